#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// A first-in-first-out queue of bytes kept as a singly linked list, one node per byte. Nodes come from
// a pool owned by the queue (a free list refilled in slabs), so queuing a byte costs no heap allocation
// and a dequeued node is reused by the next enqueue. It does not lock: its owner does. The busy flag only
// reports overlapping use, with a log line.
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
    // Once the queue is empty, gives the pool's memory back. Until then freed nodes are kept for reuse,
    // already in memory (call it when idle).
    void releaseUnusedMemory();

private:
    // A node: one byte and the link to the next node. Links are pool numbers (1-based; 0 is "none")
    // rather than pointers, which halves the node to 8 bytes and so the memory a burst touches.
    struct Node {
        std::uint32_t next;
        std::uint8_t byte;
    };
    using NodeId = std::uint32_t;
    static constexpr unsigned kSlabBits = 16; // 65536 nodes (512 KiB) a slab, touched only as used

    static Node& at(std::unique_ptr<Node[]>* slabs, NodeId id) noexcept {
        return slabs[(id - 1) >> kSlabBits][(id - 1) & ((1u << kSlabBits) - 1)];
    }
    Node& node(NodeId id) const noexcept { return at(slabs_.data(), id); }
    NodeId allocateNode();
    bool addSlab();
    struct Walk {
        std::uint64_t visited = 0; // nodes visited
        NodeId last = 0;           // the last node visited, or 0
        NodeId next = 0;           // the node after it, or 0
    };
    template <typename Visit> Walk walk(NodeId from, std::uint64_t count, Visit&& visit) const;

    mutable bool busy_ = false;
    NodeId start_ = 0; // the front node, or 0
    NodeId end_ = 0;   // the back node, or 0
    std::uint64_t length_ = 0;

    // The pool: slabs own the nodes; freeNodes_ links the unused ones; never used ones are handed out
    // in order from unusedFrom_.
    mutable std::vector<std::unique_ptr<Node[]>> slabs_;
    NodeId freeNodes_ = 0;
    std::uint64_t unusedFrom_ = 1;
};
