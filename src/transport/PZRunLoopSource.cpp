#include "transport/PZRunLoopSource.h"

#include "transport/PZRunLoop.h"

PZRunLoopSource::PZRunLoopSource(Callbacks callbacks) : callbacks_(std::move(callbacks)) {}

void PZRunLoopSource::signal() {
    if (!isValid() || signalled_.exchange(true, std::memory_order_acq_rel)) {
        return; // already waiting for its perform (or for its scheduling)
    }
    if (auto loop = scheduledLoop()) {
        loop->markReady(shared_from_this());
    }
}

void PZRunLoopSource::invalidate() {
    if (!valid_.exchange(false, std::memory_order_acq_rel)) {
        return;
    }
    std::shared_ptr<PZRunLoop> loop;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        loop = loop_.lock();
        loop_.reset();
    }
    if (loop) {
        loop->forgetSource(*this);
        if (callbacks_.cancel) {
            callbacks_.cancel(*loop);
        }
    }
}

void PZRunLoopSource::setOwner(std::weak_ptr<void> owner) {
    std::lock_guard<std::mutex> lock(mutex_);
    owner_ = std::move(owner);
    hasOwner_ = true;
}

std::shared_ptr<PZRunLoop> PZRunLoopSource::scheduledLoop() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return loop_.lock();
}

void PZRunLoopSource::scheduledOn(const std::shared_ptr<PZRunLoop>& loop) {
    std::lock_guard<std::mutex> lock(mutex_);
    loop_ = loop;
}

bool PZRunLoopSource::cancelledFrom(const PZRunLoop& loop) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (loop_.lock().get() != &loop) {
        return false;
    }
    loop_.reset();
    return true;
}

bool PZRunLoopSource::performIfSignalled(const PZRunLoop& loop) {
    std::shared_ptr<void> guard;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (loop_.lock().get() != &loop) {
            return false; // moved to another loop or unscheduled; that loop performs it
        }
        if (hasOwner_) {
            guard = owner_.lock();
            if (!guard) {
                return false;
            }
        }
    }
    if (!isValid() || !signalled_.exchange(false, std::memory_order_acq_rel)) {
        return false;
    }
    if (callbacks_.perform) {
        callbacks_.perform();
    }
    return true;
}
