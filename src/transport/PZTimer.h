#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

class PZRunLoop;

// A one-shot or repeating timer. It fires on the thread of the run loop it was added to and belongs to
// that loop alone; invalidate() from another thread is handed to that loop.
class PZTimer : public std::enable_shared_from_this<PZTimer> {
public:
    using Clock = std::chrono::steady_clock;
    using Callback = std::function<void(PZTimer&)>;

    // A valid timer, not yet added to a run loop, first due interval after it is added.
    PZTimer(Clock::duration interval, bool repeats, Callback callback);

    // A new timer added to the calling thread's run loop.
    static std::shared_ptr<PZTimer> scheduledTimer(Clock::duration interval, bool repeats, Callback callback);
    // As above, calling fn(target, timer); when target is gone the timer invalidates itself instead.
    template <typename T, typename F>
    static std::shared_ptr<PZTimer> scheduledTimer(const std::shared_ptr<T>& target, Clock::duration interval,
                                                   bool repeats, F&& fn) {
        return scheduledTimer(
            interval, repeats,
            [weak = std::weak_ptr<T>(target), fn = std::forward<F>(fn)](PZTimer& timer) mutable {
                if (auto strong = weak.lock()) {
                    fn(*strong, timer);
                } else {
                    timer.invalidate();
                }
            });
    }

    // Stops the timer for good; on the loop's thread no callback starts after it returns.
    void invalidate();
    // Whether invalidate() has not been called (a one-shot timer invalidates itself after firing).
    bool isValid() const { return valid_.load(std::memory_order_acquire); }
    // The time between firings.
    Clock::duration interval() const { return interval_; }
    // Whether the timer fires again after each firing.
    bool repeats() const { return repeats_; }

private:
    friend class PZRunLoop;

    Callback callback_;
    const Clock::duration interval_;
    const bool repeats_;
    std::atomic<bool> valid_{true};

    mutable std::mutex mutex_;      // guards loop_, hasLoop_
    std::weak_ptr<PZRunLoop> loop_; // set once, when added
    bool hasLoop_ = false;

    // Owned by the loop's thread.
    Clock::time_point fireDate_{};
    std::uint64_t sequence_ = 0;
    bool inLoop_ = false;
    bool firing_ = false;
    const void* performTarget_ = nullptr; // set by PZRunLoop::performAfterDelay
    std::string performSelector_;
};
