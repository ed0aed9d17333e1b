#include "transport/PZBackgroundObject.h"

#include "transport/PZRunLoop.h"
#include "transport/PZRunLoopSource.h"

PZBackgroundObject::PZBackgroundObject() {
    makeSource();
}

PZBackgroundObject::~PZBackgroundObject() {
    invalidate();
}

void PZBackgroundObject::makeSource() {
    std::lock_guard<std::mutex> lock(iCondition_);
    if (runLoopSource_) {
        return;
    }
    // The source outlives no perform of this object: the owner guard set when it is scheduled keeps the
    // object alive for each perform, and the destructor invalidates the source.
    runLoopSource_ = std::make_shared<PZRunLoopSource>(PZRunLoopSource::Callbacks{
        .schedule = {},
        .cancel = {},
        .perform = [this] { performAllInvocations(); },
    });
}

void PZBackgroundObject::scheduleInRunLoop(const std::shared_ptr<PZRunLoop>& runLoop) {
    std::shared_ptr<PZRunLoopSource> source;
    {
        std::lock_guard<std::mutex> lock(iCondition_);
        source = runLoopSource_;
    }
    if (!source || !runLoop) {
        return;
    }
    if (auto self = weak_from_this().lock()) {
        source->setOwner(self);
    }
    runLoop->addSource(source);
}

void PZBackgroundObject::removeFromRunLoop(const std::shared_ptr<PZRunLoop>& runLoop) {
    std::shared_ptr<PZRunLoopSource> source;
    {
        std::lock_guard<std::mutex> lock(iCondition_);
        source = runLoopSource_;
    }
    if (source && runLoop) {
        runLoop->removeSource(source);
    }
}

std::shared_ptr<PZRunLoop> PZBackgroundObject::runLoop() const {
    std::lock_guard<std::mutex> lock(iCondition_);
    return runLoopSource_ ? runLoopSource_->scheduledLoop() : nullptr;
}

void PZBackgroundObject::addInvocation(std::optional<PZInvocation> invocation) {
    if (!invocation) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(iCondition_);
        if (!runLoopSource_ || !runLoopSource_->isValid()) {
            return;
        }
        invocations_.enQueue(std::move(*invocation));
    }
    signal();
}

void PZBackgroundObject::signal() {
    std::shared_ptr<PZRunLoopSource> source;
    {
        std::lock_guard<std::mutex> lock(iCondition_);
        source = runLoopSource_;
    }
    if (source) {
        source->signal(); // wakes the loop the source is scheduled on
    }
}

void PZBackgroundObject::performAllInvocations() {
    std::optional<PZQueue<PZInvocation>> local;
    {
        std::lock_guard<std::mutex> lock(iCondition_);
        local.emplace(std::move(invocations_));
    }
    while (local->length() > 0) {
        local->deQueue().invoke();
    }
}

bool PZBackgroundObject::isValid() const {
    std::lock_guard<std::mutex> lock(iCondition_);
    return runLoopSource_ && runLoopSource_->isValid();
}

void PZBackgroundObject::invalidate() {
    std::shared_ptr<PZRunLoopSource> source;
    std::optional<PZQueue<PZInvocation>> dropped; // destroyed after the lock: invocations may own objects
    {
        std::lock_guard<std::mutex> lock(iCondition_);
        source = std::move(runLoopSource_);
        dropped.emplace(std::move(invocations_));
    }
    if (source) {
        source->invalidate();
    }
}
