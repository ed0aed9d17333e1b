#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

class PZRunLoop;

// A custom event source of a PZRunLoop. Any thread may signal it; the run loop it is scheduled on then
// calls its perform callback once on the loop's thread. A signal given before scheduling is kept until
// the source is scheduled.
class PZRunLoopSource : public std::enable_shared_from_this<PZRunLoopSource> {
public:
    struct Callbacks {
        std::function<void(PZRunLoop&)> schedule; // called when added to a run loop
        std::function<void(PZRunLoop&)> cancel;   // called when removed from a run loop
        std::function<void()> perform;            // called on the loop's thread after a signal
    };

    // A valid, unscheduled, unsignalled source with the given callbacks.
    explicit PZRunLoopSource(Callbacks callbacks);

    // Marks the source signalled; if it is scheduled, the loop performs it at its next pass (see wakeUp()).
    void signal();
    // Removes the source from its run loop for good; no callback runs after it returns on the loop's thread.
    void invalidate();
    // Whether invalidate() has not been called.
    bool isValid() const { return valid_.load(std::memory_order_acquire); }
    // Only while owner is alive is perform called, and owner is kept alive during the call.
    void setOwner(std::weak_ptr<void> owner);
    // The run loop the source is scheduled on, or null.
    std::shared_ptr<PZRunLoop> scheduledLoop() const;

private:
    friend class PZRunLoop;

    void scheduledOn(const std::shared_ptr<PZRunLoop>& loop);
    bool cancelledFrom(const PZRunLoop& loop);
    bool performIfSignalled(const PZRunLoop& loop);

    Callbacks callbacks_;
    std::atomic<bool> valid_{true};
    std::atomic<bool> signalled_{false};
    mutable std::mutex mutex_; // guards loop_, owner_
    std::weak_ptr<PZRunLoop> loop_;
    std::weak_ptr<void> owner_;
    bool hasOwner_ = false;
};
