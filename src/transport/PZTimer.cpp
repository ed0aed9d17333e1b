#include "transport/PZTimer.h"

#include "transport/PZRunLoop.h"

PZTimer::PZTimer(Clock::duration interval, bool repeats, Callback callback)
    : callback_(std::move(callback)), interval_(interval), repeats_(repeats) {}

std::shared_ptr<PZTimer> PZTimer::scheduledTimer(Clock::duration interval, bool repeats, Callback callback) {
    auto timer = std::make_shared<PZTimer>(interval, repeats, std::move(callback));
    PZRunLoop::current()->addTimer(timer);
    return timer;
}

void PZTimer::invalidate() {
    if (!valid_.exchange(false, std::memory_order_acq_rel)) {
        return;
    }
    std::shared_ptr<PZRunLoop> loop;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        loop = loop_.lock();
    }
    if (!loop) {
        return;
    }
    if (loop->isCurrent()) {
        loop->removeTimer(*this);
    } else {
        // The timer's fields belong to its loop's thread: the removal is done there.
        PZRunLoop* target = loop.get();
        target->post([target, self = shared_from_this()] { target->removeTimer(*self); });
    }
}
