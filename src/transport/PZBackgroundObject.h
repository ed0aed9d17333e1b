#pragma once

#include "transport/PZInvocation.h"
#include "transport/PZQueue.h"

#include <memory>
#include <mutex>
#include <optional>

class PZRunLoop;
class PZRunLoopSource;

// Base of the objects driven by worker threads that talk to their delegate on one chosen thread. A
// worker queues an invocation with addInvocation(); the thread whose run loop carries this object's
// source performs the queued invocations in order. Objects of this class live in a std::shared_ptr.
class PZBackgroundObject : public std::enable_shared_from_this<PZBackgroundObject> {
public:
    // A valid object with an unscheduled source and an empty queue.
    PZBackgroundObject();
    PZBackgroundObject(const PZBackgroundObject&) = delete;
    PZBackgroundObject& operator=(const PZBackgroundObject&) = delete;
    virtual ~PZBackgroundObject();

    // Makes the source if there is none yet (the constructor does).
    void makeSource();
    // Deliveries run on runLoop's thread from now on; call it on that thread, which must run its loop.
    void scheduleInRunLoop(const std::shared_ptr<PZRunLoop>& runLoop);
    // Stops deliveries on runLoop (they wait in the queue until the source is scheduled again).
    void removeFromRunLoop(const std::shared_ptr<PZRunLoop>& runLoop);
    // The run loop the source was last scheduled on, while it is scheduled there.
    std::shared_ptr<PZRunLoop> runLoop() const;

    // Queues invocation for the delivering thread; none, or an invalid object, queues nothing (any thread).
    void addInvocation(std::optional<PZInvocation> invocation);
    // Queues fn(target) for the delivering thread if target still exists (any thread).
    template <typename T, typename F> void postInvocation(const std::weak_ptr<T>& target, F&& fn) {
        addInvocation(PZInvocation::invocationWithTarget(target, std::forward<F>(fn)));
    }
    // Marks the source signalled and wakes the run loop it is scheduled on (any thread).
    void signal();
    // Performs every queued invocation, oldest first; ones queued meanwhile wait for the next perform.
    void performAllInvocations();
    // Whether the source exists and was not invalidated.
    bool isValid() const;
    // Ends deliveries for good: the source is invalidated and the queue dropped.
    void invalidate();

    // A new invocation that calls fn(target) later, or none when target is gone.
    template <typename T, typename F>
    static std::optional<PZInvocation> invocationWithTarget(const std::weak_ptr<T>& target, F&& fn) {
        return PZInvocation::invocationWithTarget(target, std::forward<F>(fn));
    }

protected:
    // This object as its own class, weakly (empty while the object is not owned by a shared_ptr).
    template <typename Self> std::weak_ptr<Self> weakSelf() {
        return std::static_pointer_cast<Self>(weak_from_this().lock());
    }

private:
    std::shared_ptr<PZRunLoopSource> runLoopSource_;
    mutable std::mutex iCondition_; // guards invocations_ and runLoopSource_
    PZQueue<PZInvocation> invocations_;
};
