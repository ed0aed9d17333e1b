#pragma once

#include "transport/PZException.h"
#include "transport/PZQueueElement.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

// A first-in-first-out queue of values kept as a singly linked list of PZQueueElement nodes. It does not
// lock: its owner does. Overlapping use is a programming error and raises PZException.
template <typename T> class PZQueue {
public:
    using Element = PZQueueElement<T>;

    // An empty queue.
    PZQueue() = default;
    // A queue holding the values of array, in index order.
    explicit PZQueue(const std::vector<T>& array) { enQueueArray(array); }
    // A queue holding the values of other, front to back; other is unchanged.
    PZQueue(const PZQueue& other) { enQueueArray(other.getArray()); }
    // Takes over other's nodes; other is left empty.
    PZQueue(PZQueue&& other) noexcept
        : start_(std::move(other.start_)), end_(std::move(other.end_)),
          length_(std::exchange(other.length_, 0)) {}
    PZQueue& operator=(const PZQueue&) = delete;
    PZQueue& operator=(PZQueue&&) = delete;
    // Frees the nodes one at a time, however long the queue.
    ~PZQueue() { clear(); }

    // A new queue holding the values of array.
    static std::unique_ptr<PZQueue> queueWithArray(const std::vector<T>& array) {
        return std::make_unique<PZQueue>(array);
    }
    // A new queue holding the values of other.
    static std::unique_ptr<PZQueue> queueWithQueue(const PZQueue& other) {
        return std::make_unique<PZQueue>(other);
    }

    // The count of values; throws "Queue busy" while an edit is under way.
    std::uint64_t length() const {
        if (busy_) {
            throw PZException("Queue busy", "Attempt read length of queue while editing PZQueue");
        }
        return length_;
    }

    // Appends value.
    void enQueue(T value) {
        setBusy(true);
        link(std::move(value));
        ++length_;
        setBusy(false);
    }

    // Removes the front value and returns it; throws "Empty queue" when there is none.
    T deQueue() {
        setBusy(true);
        if (!start_ || length_ == 0) {
            // The busy flag stays raised: callers test length() first.
            throw PZException("Empty queue", "Impossible dequeue because queue is empty");
        }
        T value = takeFront();
        --length_;
        setBusy(false);
        return value;
    }

    // Appends every value of array in index order.
    void enQueueArray(const std::vector<T>& array) {
        setBusy(true);
        for (const T& value : array) {
            link(value);
        }
        length_ += array.size();
        setBusy(false);
    }

    // Removes up to count values from the front and returns them in queue order.
    std::vector<T> deQueueBy(std::uint64_t count) {
        setBusy(true);
        std::vector<T> values;
        values.reserve(static_cast<std::size_t>(std::min(count, length_)));
        while (values.size() < count && start_) {
            values.push_back(takeFront());
        }
        length_ -= values.size();
        setBusy(false);
        return values;
    }

    // All values, front to back; nothing is removed.
    std::vector<T> getArray() const {
        setBusy(true);
        std::vector<T> values;
        values.reserve(static_cast<std::size_t>(length_));
        for (auto element = start_; element; element = element->next()) {
            values.push_back(element->value());
        }
        setBusy(false);
        return values;
    }

    // Whether some value equals value.
    bool containsObject(const T& value) const {
        setBusy(true);
        bool found = false;
        for (auto element = start_; element && !found; element = element->next()) {
            found = element->value() == value;
        }
        setBusy(false);
        return found;
    }

    // Unlinks the first value equal to value; nothing happens when none is.
    void removeObject(const T& value) {
        setBusy(true);
        std::shared_ptr<Element> previous;
        for (auto element = start_; element; previous = element, element = element->next()) {
            if (!(element->value() == value)) {
                continue;
            }
            auto follower = element->next();
            if (previous) {
                previous->setNext(follower);
            } else {
                setStart(follower);
            }
            if (!follower && previous) {
                setEnd(previous);
            }
            element->setNext(nullptr);
            --length_;
            break;
        }
        setBusy(false);
    }

private:
    // Raises or lowers the overlap detector; raising it twice is a programming error.
    void setBusy(bool busy) const {
        if (busy_ && busy) {
            throw PZException("Queue was edit while busy",
                              "Two or more process/thread attempt to edit PZQueue");
        }
        busy_ = busy;
    }

    void setStart(std::shared_ptr<Element> element) {
        if (element != start_) {
            start_ = std::move(element);
            if (!start_) {
                setEnd(nullptr);
            }
        }
    }

    void setEnd(std::shared_ptr<Element> element) {
        if (element != end_) {
            end_ = std::move(element);
        }
    }

    void link(T value) {
        auto element = Element::queueElementWithValueNextElement(std::move(value), nullptr);
        if (start_) {
            end_->setNext(element);
        } else {
            setStart(element);
        }
        setEnd(std::move(element));
    }

    T takeFront() {
        std::shared_ptr<Element> front = start_;
        T value = front->takeValue();
        setStart(front->next());
        front->setNext(nullptr);
        return value;
    }

    void clear() noexcept {
        end_.reset();
        std::shared_ptr<Element> element = std::move(start_);
        while (element) {
            std::shared_ptr<Element> next = element->next();
            element->setNext(nullptr);
            element = std::move(next);
        }
        length_ = 0;
    }

    mutable bool busy_ = false;
    std::shared_ptr<Element> start_;
    std::shared_ptr<Element> end_;
    std::uint64_t length_ = 0;
};
