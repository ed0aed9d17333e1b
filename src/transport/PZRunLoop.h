#pragma once

#include "transport/PZTimer.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

class PZRunLoopSource;

// The event loop of one thread: it performs work posted from any thread, signalled sources and due
// timers, and sleeps on an eventfd in between. A wake-up is paid only when the loop may be asleep. It
// can run by itself (run, runUntil, runOnce) or be driven by another event loop (wakeDescriptor,
// processDue, nextTimerDeadline).
class PZRunLoop : public std::enable_shared_from_this<PZRunLoop> {
public:
    using Clock = std::chrono::steady_clock;

    // Why a run returned.
    enum class RunResult {
        Finished,      // nothing can wake the loop any more: no sources, no timers, no posted work
        Stopped,       // stop() was called
        TimedOut,      // the deadline passed
        HandledSource, // runOnce handled something
    };

    PZRunLoop(const PZRunLoop&) = delete;
    PZRunLoop& operator=(const PZRunLoop&) = delete;
    ~PZRunLoop();

    // The calling thread's run loop, made on first use.
    static std::shared_ptr<PZRunLoop> current();
    // The main thread's run loop (made on first use, from any thread).
    static std::shared_ptr<PZRunLoop> main();
    // Whether the calling thread is this loop's thread.
    bool isCurrent() const;

    // Runs until stop() or until nothing can wake the loop (loop's thread only).
    void run();
    // Runs until deadline, stop(), or until nothing can wake the loop (loop's thread only).
    RunResult runUntil(Clock::time_point deadline);
    // Handles what is due, waiting up to timeout for something to handle (loop's thread only).
    RunResult runOnce(Clock::duration timeout);
    // Makes the innermost run return; a stop given while not running ends the next run at once (any thread).
    void stop();
    // Wakes the loop if it may be asleep, so that it looks at its sources (any thread).
    void wakeUp();

    // Queues fn to run on the loop's thread, in posting order (any thread).
    void post(std::function<void()> fn);
    // Queues fn(receiver) to run on the loop's thread; dropped if receiver is gone by then (any thread).
    template <typename T, typename F> void post(const std::weak_ptr<T>& receiver, F&& fn) {
        post([weak = receiver, fn = std::forward<F>(fn)]() mutable {
            if (auto strong = weak.lock()) {
                fn(*strong);
            }
        });
    }
    // As above, from a shared reference (only a weak one is kept).
    template <typename T, typename F> void post(const std::shared_ptr<T>& receiver, F&& fn) {
        post(std::weak_ptr<T>(receiver), std::forward<F>(fn));
    }

    // Schedules source on this loop, moving it from any other loop (any thread).
    void addSource(const std::shared_ptr<PZRunLoopSource>& source);
    // Unschedules source from this loop (any thread).
    void removeSource(const std::shared_ptr<PZRunLoopSource>& source);

    // Adds timer to this loop; a timer that already belongs to a loop is left alone (any thread).
    void addTimer(const std::shared_ptr<PZTimer>& timer);
    // Calls fn(target) once after delay, unless target is gone or the request is cancelled (any thread).
    template <typename T, typename F>
    std::shared_ptr<PZTimer> performAfterDelay(const std::shared_ptr<T>& target, Clock::duration delay,
                                               F&& fn, std::string selector = {}) {
        auto timer = std::make_shared<PZTimer>(
            delay, false, [weak = std::weak_ptr<T>(target), fn = std::forward<F>(fn)](PZTimer&) mutable {
                if (auto strong = weak.lock()) {
                    fn(*strong);
                }
            });
        timer->performTarget_ = static_cast<const void*>(target.get());
        timer->performSelector_ = std::move(selector);
        addTimer(timer);
        return timer;
    }
    // Cancels every pending performAfterDelay request of target on this loop (any thread).
    void cancelPreviousPerformRequests(const void* target);
    // Cancels the pending requests of target made with selector on this loop (any thread).
    void cancelPreviousPerformRequests(const void* target, const std::string& selector);

    // A descriptor that becomes readable when the loop has work (for an outer event loop to watch).
    int wakeDescriptor() const { return wakeFd_; }
    // Handles what is due now: posted work, signalled sources, due timers; true if anything ran.
    bool processDue();
    // When the earliest timer is due, if there is one (loop's thread only).
    std::optional<Clock::time_point> nextTimerDeadline() const;

private:
    friend class PZRunLoopSource;
    friend class PZTimer;

    struct Key {};

public:
    // Made by current() and main() only.
    PZRunLoop(Key, pid_t thread);

private:
    RunResult runInternal(Clock::time_point deadline, bool returnAfterHandling);
    bool processPass();
    bool fireDueTimers();
    bool hasPendingWork();
    bool isFinished();
    void sleepUntil(Clock::time_point wakeAt);
    void writeWake();
    void drainWake();
    void markReady(const std::shared_ptr<PZRunLoopSource>& source);
    void forgetSource(const PZRunLoopSource& source);
    void requeue(std::vector<std::function<void()>>& posted, std::size_t from,
                 std::vector<std::shared_ptr<PZRunLoopSource>>& ready, std::size_t readyFrom);
    void insertTimer(const std::shared_ptr<PZTimer>& timer);
    void removeTimer(PZTimer& timer);
    void cancelRequests(const void* target, const std::string* selector);

    const pid_t thread_;
    int wakeFd_ = -1;
    std::atomic<bool> awake_{false};
    std::atomic<bool> stopRequested_{false};

    std::mutex mutex_; // guards posted_, ready_, sources_
    std::vector<std::function<void()>> posted_;
    std::vector<std::shared_ptr<PZRunLoopSource>> ready_;
    std::vector<std::shared_ptr<PZRunLoopSource>> sources_;

    // Owned by the loop's thread.
    std::map<std::pair<Clock::time_point, std::uint64_t>, std::shared_ptr<PZTimer>> timers_;
    std::uint64_t timerSequence_ = 0;
};
