#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

// One node of a PZQueue: a stored value and the following node. The accessors are atomic with respect
// to each other, and a node handed out by next() stays alive for its holder even if the queue frees it.
template <typename T> class PZQueueElement {
public:
    // A node holding value, followed by next.
    PZQueueElement(T value, std::shared_ptr<PZQueueElement> next)
        : value_(std::move(value)), next_(std::move(next)) {}
    PZQueueElement(const PZQueueElement&) = delete;
    PZQueueElement& operator=(const PZQueueElement&) = delete;

    // Frees the chain that only this node holds one node at a time, never by recursion.
    ~PZQueueElement() {
        std::shared_ptr<PZQueueElement> next = std::move(next_);
        while (next && next.use_count() == 1) {
            std::shared_ptr<PZQueueElement> after = std::move(next->next_);
            next = std::move(after);
        }
    }

    // A new shared node holding value, followed by next.
    static std::shared_ptr<PZQueueElement>
    queueElementWithValueNextElement(T value, std::shared_ptr<PZQueueElement> next) {
        return std::make_shared<PZQueueElement>(std::move(value), std::move(next));
    }

    // A copy of the stored value.
    T value() const {
        Guard guard(lock_);
        return value_;
    }
    // Replaces the stored value.
    void setValue(T value) {
        Guard guard(lock_);
        std::swap(value_, value);
    }
    // The following node, or null.
    std::shared_ptr<PZQueueElement> next() const {
        Guard guard(lock_);
        return next_;
    }
    // Replaces the following node.
    void setNext(std::shared_ptr<PZQueueElement> next) {
        Guard guard(lock_);
        std::swap(next_, next);
    }
    // Moves the stored value out (the queue's dequeue, which owns the node at that point).
    T takeValue() {
        Guard guard(lock_);
        return std::move(value_);
    }

private:
    // A one-byte spin lock: the accessors hold it for a copy or a swap only; the old value is
    // released after the lock (by the swapped-out local).
    class Guard {
    public:
        explicit Guard(std::atomic_flag& flag) : flag_(flag) {
            while (flag_.test_and_set(std::memory_order_acquire)) {
                std::this_thread::yield();
            }
        }
        ~Guard() { flag_.clear(std::memory_order_release); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        std::atomic_flag& flag_;
    };

    T value_;
    std::shared_ptr<PZQueueElement> next_;
    mutable std::atomic_flag lock_;
};
