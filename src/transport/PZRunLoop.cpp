#include "transport/PZRunLoop.h"

#include "transport/PZException.h"
#include "transport/PZRunLoopSource.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace {

pid_t currentThreadId() {
    thread_local const pid_t tid = gettid();
    return tid;
}

// A repeating timer fires at most every 0.1 ms, so that a zero interval cannot hold its loop.
constexpr PZRunLoop::Clock::duration kShortestRepeat = std::chrono::microseconds(100);

} // namespace

PZRunLoop::PZRunLoop(Key, pid_t thread) : thread_(thread) {
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

PZRunLoop::~PZRunLoop() {
    if (wakeFd_ >= 0) {
        ::close(wakeFd_);
    }
}

std::shared_ptr<PZRunLoop> PZRunLoop::current() {
    thread_local std::shared_ptr<PZRunLoop> loop;
    if (!loop) {
        const pid_t tid = currentThreadId();
        loop = tid == getpid() ? main() : std::make_shared<PZRunLoop>(Key{}, tid);
    }
    return loop;
}

std::shared_ptr<PZRunLoop> PZRunLoop::main() {
    static std::mutex mutex;
    static std::shared_ptr<PZRunLoop> loop;
    std::lock_guard<std::mutex> lock(mutex);
    if (!loop) {
        loop = std::make_shared<PZRunLoop>(Key{}, getpid());
    }
    return loop;
}

bool PZRunLoop::isCurrent() const {
    return currentThreadId() == thread_;
}

void PZRunLoop::run() {
    runInternal(Clock::time_point::max(), false);
}

PZRunLoop::RunResult PZRunLoop::runUntil(Clock::time_point deadline) {
    return runInternal(deadline, false);
}

PZRunLoop::RunResult PZRunLoop::runOnce(Clock::duration timeout) {
    return runInternal(Clock::now() + timeout, true);
}

void PZRunLoop::stop() {
    stopRequested_.store(true);
    wakeUp();
}

void PZRunLoop::wakeUp() {
    // An awake loop looks for work once more before it sleeps; only a sleeping one needs the descriptor.
    if (!awake_.load()) {
        writeWake();
    }
}

void PZRunLoop::post(std::function<void()> fn) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        posted_.push_back(std::move(fn));
    }
    wakeUp();
}

void PZRunLoop::addSource(const std::shared_ptr<PZRunLoopSource>& source) {
    if (!source || !source->isValid()) {
        return;
    }
    auto self = shared_from_this();
    auto previous = source->scheduledLoop();
    if (previous == self) {
        return;
    }
    if (previous) {
        previous->removeSource(source);
    }
    source->scheduledOn(self);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sources_.push_back(source);
    }
    if (source->callbacks_.schedule) {
        source->callbacks_.schedule(*this);
    }
    // A signal given before the scheduling is performed now.
    if (source->signalled_.load(std::memory_order_acquire)) {
        markReady(source);
    }
}

void PZRunLoop::removeSource(const std::shared_ptr<PZRunLoopSource>& source) {
    if (!source || !source->cancelledFrom(*this)) {
        return;
    }
    forgetSource(*source);
    if (source->callbacks_.cancel) {
        source->callbacks_.cancel(*this);
    }
}

void PZRunLoop::forgetSource(const PZRunLoopSource& source) {
    std::shared_ptr<PZRunLoopSource> released; // released after the lock
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it =
            std::find_if(sources_.begin(), sources_.end(), [&](const auto& s) { return s.get() == &source; });
        if (it != sources_.end()) {
            released = std::move(*it);
            sources_.erase(it);
        }
    }
    // A loop whose last source went away may now be finished.
    wakeUp();
}

void PZRunLoop::markReady(const std::shared_ptr<PZRunLoopSource>& source) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ready_.push_back(source);
    }
    wakeUp();
}

void PZRunLoop::addTimer(const std::shared_ptr<PZTimer>& timer) {
    if (!timer) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(timer->mutex_);
        if (timer->hasLoop_) {
            return; // a timer belongs to the first loop it was added to
        }
        timer->hasLoop_ = true;
        timer->loop_ = shared_from_this();
    }
    const Clock::time_point fireDate = Clock::now() + timer->interval_;
    if (isCurrent()) {
        timer->fireDate_ = fireDate;
        insertTimer(timer);
        wakeUp(); // an outer event loop driving this one must learn the new deadline
    } else {
        post([this, timer, fireDate] {
            timer->fireDate_ = fireDate;
            insertTimer(timer);
        });
    }
}

void PZRunLoop::insertTimer(const std::shared_ptr<PZTimer>& timer) {
    if (!timer->isValid()) {
        timer->callback_ = nullptr;
        return;
    }
    timer->sequence_ = ++timerSequence_;
    timer->inLoop_ = true;
    timers_.emplace(std::make_pair(timer->fireDate_, timer->sequence_), timer);
}

void PZRunLoop::removeTimer(PZTimer& timer) {
    std::shared_ptr<PZTimer> keep; // the map may hold the last reference
    if (timer.inLoop_) {
        auto it = timers_.find(std::make_pair(timer.fireDate_, timer.sequence_));
        if (it != timers_.end()) {
            keep = std::move(it->second);
            timers_.erase(it);
        }
        timer.inLoop_ = false;
    }
    if (!timer.firing_) {
        timer.callback_ = nullptr;
    }
}

void PZRunLoop::cancelPreviousPerformRequests(const void* target) {
    if (isCurrent()) {
        cancelRequests(target, nullptr);
    } else {
        post([this, target] { cancelRequests(target, nullptr); });
    }
}

void PZRunLoop::cancelPreviousPerformRequests(const void* target, const std::string& selector) {
    if (isCurrent()) {
        cancelRequests(target, &selector);
    } else {
        post([this, target, selector] { cancelRequests(target, &selector); });
    }
}

void PZRunLoop::cancelRequests(const void* target, const std::string* selector) {
    std::vector<std::shared_ptr<PZTimer>> cancelled;
    for (const auto& [key, timer] : timers_) {
        if (timer->performTarget_ == target && target != nullptr &&
            (selector == nullptr || timer->performSelector_ == *selector)) {
            cancelled.push_back(timer);
        }
    }
    for (const auto& timer : cancelled) {
        timer->valid_.store(false, std::memory_order_release);
        removeTimer(*timer);
    }
}

std::optional<PZRunLoop::Clock::time_point> PZRunLoop::nextTimerDeadline() const {
    if (timers_.empty()) {
        return std::nullopt;
    }
    return timers_.begin()->first.first;
}

bool PZRunLoop::processDue() {
    const bool wasAwake = awake_.exchange(true);
    drainWake();
    bool handled = false;
    try {
        handled = processPass();
    } catch (...) {
        awake_.store(wasAwake);
        writeWake();
        throw;
    }
    awake_.store(wasAwake);
    // Work that arrived meanwhile is handled at the next call, after the outer loop had its turn.
    if (hasPendingWork()) {
        writeWake();
    }
    return handled;
}

PZRunLoop::RunResult PZRunLoop::runInternal(Clock::time_point deadline, bool returnAfterHandling) {
    if (!isCurrent()) {
        throw PZException("PZRunLoop run", "A run loop runs only on its own thread");
    }
    struct AwakeScope {
        std::atomic<bool>& awake;
        bool previous;
        ~AwakeScope() { awake.store(previous); }
    } scope{awake_, awake_.exchange(true)};

    for (;;) {
        if (stopRequested_.exchange(false)) {
            return RunResult::Stopped;
        }
        const bool handled = processPass();
        if (stopRequested_.exchange(false)) {
            return RunResult::Stopped;
        }
        if (handled && returnAfterHandling) {
            return RunResult::HandledSource;
        }
        if (isFinished()) {
            return RunResult::Finished;
        }
        if (Clock::now() >= deadline) {
            return RunResult::TimedOut;
        }
        Clock::time_point wakeAt = deadline;
        if (auto next = nextTimerDeadline()) {
            wakeAt = std::min(wakeAt, *next);
        }
        sleepUntil(wakeAt);
    }
}

bool PZRunLoop::processPass() {
    std::vector<std::function<void()>> posted;
    std::vector<std::shared_ptr<PZRunLoopSource>> ready;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        posted.swap(posted_);
        ready.swap(ready_);
    }
    bool handled = false;
    std::size_t i = 0;
    try {
        for (; i < posted.size(); ++i) {
            std::function<void()> fn = std::move(posted[i]);
            fn();
            handled = true;
        }
    } catch (...) {
        requeue(posted, i + 1, ready, 0);
        throw;
    }
    std::size_t j = 0;
    try {
        for (; j < ready.size(); ++j) {
            handled = ready[j]->performIfSignalled(*this) || handled;
        }
    } catch (...) {
        requeue(posted, posted.size(), ready, j + 1);
        throw;
    }
    return fireDueTimers() || handled;
}

// After an exception escaped a callback, what the pass had not reached yet goes back to the front.
void PZRunLoop::requeue(std::vector<std::function<void()>>& posted, std::size_t from,
                        std::vector<std::shared_ptr<PZRunLoopSource>>& ready, std::size_t readyFrom) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (from < posted.size()) {
        posted_.insert(posted_.begin(),
                       std::make_move_iterator(posted.begin() + static_cast<std::ptrdiff_t>(from)),
                       std::make_move_iterator(posted.end()));
    }
    if (readyFrom < ready.size()) {
        ready_.insert(ready_.begin(), ready.begin() + static_cast<std::ptrdiff_t>(readyFrom), ready.end());
    }
}

bool PZRunLoop::fireDueTimers() {
    const Clock::time_point now = Clock::now();
    bool handled = false;
    for (;;) {
        auto it = timers_.begin();
        if (it == timers_.end() || it->first.first > now) {
            break;
        }
        std::shared_ptr<PZTimer> timer = std::move(it->second);
        timers_.erase(it);
        timer->inLoop_ = false;
        if (!timer->isValid()) {
            timer->callback_ = nullptr;
            continue;
        }
        timer->firing_ = true;
        try {
            timer->callback_(*timer);
        } catch (...) {
            timer->firing_ = false;
            timer->valid_.store(false);
            timer->callback_ = nullptr;
            throw;
        }
        timer->firing_ = false;
        handled = true;
        if (timer->repeats_ && timer->isValid()) {
            const Clock::duration interval = std::max(timer->interval_, kShortestRepeat);
            Clock::time_point next = timer->fireDate_ + interval;
            if (next <= now) { // late: the missed firings are skipped
                next += ((now - next) / interval + 1) * interval;
            }
            timer->fireDate_ = next;
            insertTimer(timer);
        } else {
            timer->valid_.store(false, std::memory_order_release);
            timer->callback_ = nullptr;
        }
    }
    return handled;
}

bool PZRunLoop::hasPendingWork() {
    std::lock_guard<std::mutex> lock(mutex_);
    return !posted_.empty() || !ready_.empty();
}

bool PZRunLoop::isFinished() {
    if (!timers_.empty()) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    return sources_.empty() && posted_.empty() && ready_.empty();
}

void PZRunLoop::sleepUntil(Clock::time_point wakeAt) {
    awake_.store(false);
    if (hasPendingWork() || stopRequested_.load()) {
        awake_.store(true);
        return;
    }
    pollfd fd{wakeFd_, POLLIN, 0};
    if (wakeAt == Clock::time_point::max()) {
        ::ppoll(&fd, 1, nullptr, nullptr);
    } else {
        const auto wait = std::max(wakeAt - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
        const timespec timeout{static_cast<time_t>(seconds.count()),
                               static_cast<long>(std::chrono::nanoseconds(wait - seconds).count())};
        ::ppoll(&fd, 1, &timeout, nullptr);
    }
    awake_.store(true);
    if (fd.revents & POLLIN) {
        drainWake();
    }
}

void PZRunLoop::writeWake() {
    const std::uint64_t one = 1;
    // EAGAIN means the counter is already far from zero: the loop will wake anyway.
    [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
}

void PZRunLoop::drainWake() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t read = ::read(wakeFd_, &count, sizeof count);
}
