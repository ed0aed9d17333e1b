#include "transport/PZByteQueue.h"

#include "transport/PZException.h"
#include "transport/PZLogger.h"

#include <new>

namespace {

// Node numbers are 32-bit: at most this many slabs.
constexpr std::size_t kMostSlabs = std::size_t{1} << 16;

} // namespace

// Visits up to count nodes from the node from, calling visit(node, index). Nodes handed out together sit
// side by side in their slab; the walk reads such runs by address instead of following each link, so the
// processor need not wait for one node before it can load the next.
template <typename Visit>
PZByteQueue::Walk PZByteQueue::walk(NodeId from, std::uint64_t count, Visit&& visit) const {
    Walk result;
    result.next = from;
    auto* slabs = slabs_.data();
    constexpr std::uint64_t slabSize = std::uint64_t{1} << kSlabBits;
    while (result.visited < count && result.next != 0) {
        const NodeId id = result.next;
        Node* base = &at(slabs, id);
        const std::uint64_t limit = std::min(slabSize - ((id - 1) & (slabSize - 1)), count - result.visited);
        std::uint64_t k = 0;
        NodeId next = 0;
        do {
            visit(base[k], result.visited + k);
            next = base[k].next;
            ++k;
        } while (k < limit && next == id + k);
        result.visited += k;
        result.last = static_cast<NodeId>(id + k - 1);
        result.next = next;
    }
    return result;
}

PZByteQueue::PZByteQueue() = default;

PZByteQueue::PZByteQueue(const std::uint8_t* bytes, std::uint64_t length) : PZByteQueue() {
    enQueueBytes(bytes, length);
}

PZByteQueue::PZByteQueue(const PZByteQueue& other) : PZByteQueue() {
    std::vector<std::uint8_t> buffer(other.length());
    const std::uint64_t copied = other.getBytesMaxLength(buffer.data(), buffer.size());
    enQueueBytes(buffer.data(), copied);
}

PZByteQueue::~PZByteQueue() = default; // the slabs own every node

std::unique_ptr<PZByteQueue> PZByteQueue::queueWithBytesLength(const std::uint8_t* bytes,
                                                               std::uint64_t length) {
    return std::make_unique<PZByteQueue>(bytes, length);
}

std::unique_ptr<PZByteQueue> PZByteQueue::queueWithQueue(const PZByteQueue& other) {
    return std::make_unique<PZByteQueue>(other);
}

void PZByteQueue::setBusy(bool busy) const {
    if (busy_ && busy) {
        PZLog("!!!!! accesso contemporaneo a PZByteQueue");
        return;
    }
    busy_ = busy;
}

bool PZByteQueue::addSlab() {
    if (slabs_.size() == kMostSlabs - 1) { // the last number would not fit 32 bits
        return false;
    }
    try {
        slabs_.push_back(std::make_unique_for_overwrite<Node[]>(std::size_t{1} << kSlabBits));
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

PZByteQueue::NodeId PZByteQueue::allocateNode() {
    if (freeNodes_ != 0) {
        const NodeId id = freeNodes_;
        freeNodes_ = node(id).next;
        return id;
    }
    if (unusedFrom_ > (std::uint64_t{slabs_.size()} << kSlabBits) && !addSlab()) {
        return 0;
    }
    return static_cast<NodeId>(unusedFrom_++);
}

void PZByteQueue::releaseUnusedMemory() {
    if (start_ != 0) {
        return;
    }
    slabs_.clear();
    slabs_.shrink_to_fit();
    freeNodes_ = 0;
    unusedFrom_ = 1;
}

void PZByteQueue::enQueue(std::uint8_t byte) {
    setBusy(true);
    const NodeId id = allocateNode();
    if (id == 0) {
        PZLog("procedure enQueue: Element not inserted. A problem occured while allocating new memory.\n");
    } else {
        node(id) = Node{0, byte};
        if (end_ != 0) {
            node(end_).next = id;
        } else {
            start_ = id;
        }
        end_ = id;
        ++length_;
    }
    setBusy(false);
}

std::uint8_t PZByteQueue::deQueue() {
    setBusy(true);
    if (start_ == 0 || length_ == 0) {
        // The busy flag stays raised, as after any interrupted operation.
        throw PZException("PZByteQueue deQueue", "The queue is empty");
    }
    const NodeId id = start_;
    const std::uint8_t byte = node(id).byte;
    start_ = node(id).next;
    if (start_ == 0) {
        end_ = 0;
    }
    node(id).next = freeNodes_;
    freeNodes_ = id;
    --length_;
    setBusy(false);
    return byte;
}

void PZByteQueue::enQueueBytes(const std::uint8_t* bytes, std::uint64_t length) {
    setBusy(true);
    NodeId last = end_;
    std::uint64_t i = 0;
    while (i < length) {
        NodeId first = 0;
        NodeId runEnd = 0;
        std::uint64_t run = 0;
        if (freeNodes_ != 0) {
            // Reuse freed nodes: they are linked already, so only their bytes are written.
            const std::uint8_t* from = bytes + i;
            const Walk used =
                walk(freeNodes_, length - i, [from](Node& n, std::uint64_t k) { n.byte = from[k]; });
            first = freeNodes_;
            run = used.visited;
            runEnd = used.last;
            freeNodes_ = used.next;
        } else {
            // Hand out never-used nodes of the newest slab in order.
            const std::uint64_t capacity = std::uint64_t{slabs_.size()} << kSlabBits;
            if (unusedFrom_ > capacity && !addSlab()) {
                PZLog("impossibile allocare la memoria");
                break; // no node can be made for the rest
            }
            const std::uint64_t available = (std::uint64_t{slabs_.size()} << kSlabBits) - unusedFrom_ + 1;
            run = std::min(available, length - i);
            first = static_cast<NodeId>(unusedFrom_);
            Node* base = &node(first);
            for (std::uint64_t k = 0; k < run; ++k) {
                base[k] = Node{static_cast<NodeId>(first + k + 1), bytes[i + k]};
            }
            runEnd = static_cast<NodeId>(first + run - 1);
            unusedFrom_ += run;
        }
        node(runEnd).next = 0;
        if (last != 0) {
            node(last).next = first;
        } else {
            start_ = first;
        }
        last = runEnd;
        i += run;
    }
    end_ = last;
    // The count grows by what was asked for even when a node could not be made; the reading
    // operations stop at the last real node.
    length_ += length;
    setBusy(false);
}

std::uint64_t PZByteQueue::deQueueByBytes(std::uint64_t count, std::uint8_t* bytes) {
    setBusy(true);
    const NodeId first = start_;
    const Walk taken = walk(start_, count, [bytes](const Node& n, std::uint64_t k) {
        if (bytes != nullptr) {
            bytes[k] = n.byte;
        }
    });
    const NodeId id = taken.next;
    const NodeId lastTaken = taken.last;
    if (lastTaken != 0) {
        // The taken nodes are still linked: the whole run joins the free list at once.
        node(lastTaken).next = freeNodes_;
        freeNodes_ = first;
    }
    start_ = id;
    if (start_ == 0) {
        end_ = 0;
    }
    length_ -= std::min(taken.visited, length_);
    setBusy(false);
    return taken.visited;
}

std::uint64_t PZByteQueue::deQueueBy(std::uint64_t count) {
    return deQueueByBytes(count, nullptr);
}

std::uint64_t PZByteQueue::getBytesMaxLength(std::uint8_t* bytes, std::uint64_t maxLength) const {
    setBusy(true);
    const std::uint64_t copied =
        walk(start_, maxLength, [bytes](const Node& n, std::uint64_t k) { bytes[k] = n.byte; }).visited;
    setBusy(false);
    return copied;
}
