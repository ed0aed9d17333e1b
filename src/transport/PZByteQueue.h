#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// A first-in-first-out queue of bytes kept as a singly linked list, one node per byte. Nodes come from
// a pool owned by the queue (a free list refilled in slabs), so queuing a byte costs no heap allocation.
// It does not lock: its owner does. The busy flag only reports overlapping use, with a log line.
class PZByteQueue {
public:
    // An empty queue.
    PZByteQueue();
    // A queue holding a copy of length bytes.
    PZByteQueue(const std::uint8_t* bytes, std::uint64_t length);
    // A queue holding a copy of other's bytes; other is unchanged.
    PZByteQueue(const PZByteQueue& other);
    PZByteQueue& operator=(const PZByteQueue&) = delete;
    ~PZByteQueue();

    // A new queue holding a copy of length bytes.
    static std::unique_ptr<PZByteQueue> queueWithBytesLength(const std::uint8_t* bytes, std::uint64_t length);
    // A new queue holding a copy of other's bytes.
    static std::unique_ptr<PZByteQueue> queueWithQueue(const PZByteQueue& other);

    // Appends one byte.
    void enQueue(std::uint8_t byte);
    // Removes and returns the front byte; throws PZException "PZByteQueue deQueue" when empty.
    std::uint8_t deQueue();
    // Appends length bytes in order.
    void enQueueBytes(const std::uint8_t* bytes, std::uint64_t length);
    // Moves up to count front bytes into bytes (may be null to drop them); returns how many were moved.
    std::uint64_t deQueueByBytes(std::uint64_t count, std::uint8_t* bytes);
    // Removes up to count front bytes; returns how many were removed.
    std::uint64_t deQueueBy(std::uint64_t count);
    // Copies up to maxLength front bytes into bytes without removing them; returns how many were copied.
    std::uint64_t getBytesMaxLength(std::uint8_t* bytes, std::uint64_t maxLength) const;
    // The count of bytes queued.
    std::uint64_t length() const noexcept { return length_; }
    // Raises or lowers the overlap detector; raising it twice logs "!!!!! accesso contemporaneo a
    // PZByteQueue".
    void setBusy(bool busy) const;

private:
    struct Node {
        std::uint8_t byte;
        Node* next;
    };

    Node* allocateNode();
    void freeNode(Node* node) noexcept;
    void releaseSlabs() noexcept;

    mutable bool busy_ = false;
    Node* start_ = nullptr;
    Node* end_ = nullptr;
    std::uint64_t length_ = 0;

    // The pool: slabs own the nodes; freeNodes_ links the unused ones; the newest slab is handed out
    // front to back from slabNext_.
    std::vector<std::unique_ptr<Node[]>> slabs_;
    Node* freeNodes_ = nullptr;
    std::size_t slabNext_ = 0;
    std::size_t slabSize_ = 0;
};
