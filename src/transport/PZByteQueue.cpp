#include "transport/PZByteQueue.h"

#include "transport/PZException.h"
#include "transport/PZLogger.h"

#include <new>

namespace {

// Slabs grow from 4 KiB of nodes up to 1 MiB of nodes as a queue grows.
constexpr std::size_t kFirstSlabNodes = 256;
constexpr std::size_t kLargestSlabNodes = 64 * 1024;

} // namespace

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

PZByteQueue::Node* PZByteQueue::allocateNode() {
    if (freeNodes_ != nullptr) {
        Node* node = freeNodes_;
        freeNodes_ = node->next;
        return node;
    }
    if (slabs_.empty() || slabNext_ == slabSize_) {
        const std::size_t size =
            slabs_.empty() ? kFirstSlabNodes : std::min(slabSize_ * 2, kLargestSlabNodes);
        try {
            slabs_.push_back(std::make_unique_for_overwrite<Node[]>(size));
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
        slabSize_ = size;
        slabNext_ = 0;
    }
    return &slabs_.back()[slabNext_++];
}

void PZByteQueue::freeNode(Node* node) noexcept {
    node->next = freeNodes_;
    freeNodes_ = node;
}

// Once the queue runs empty, a large burst's slabs are given back; the first slab is kept for reuse.
void PZByteQueue::releaseSlabs() noexcept {
    if (slabs_.size() <= 1) {
        return;
    }
    slabs_.resize(1);
    slabSize_ = kFirstSlabNodes;
    slabNext_ = 0;
    freeNodes_ = nullptr;
}

void PZByteQueue::enQueue(std::uint8_t byte) {
    setBusy(true);
    Node* node = allocateNode();
    if (node == nullptr) {
        PZLog("procedure enQueue: Element not inserted. A problem occured while allocating new memory.\n");
    } else {
        node->byte = byte;
        node->next = nullptr;
        if (end_ != nullptr) {
            end_->next = node;
        } else {
            start_ = node;
        }
        end_ = node;
        ++length_;
    }
    setBusy(false);
}

std::uint8_t PZByteQueue::deQueue() {
    setBusy(true);
    if (start_ == nullptr || length_ == 0) {
        // The busy flag stays raised, as after any interrupted operation.
        throw PZException("PZByteQueue deQueue", "The queue is empty");
    }
    Node* node = start_;
    const std::uint8_t byte = node->byte;
    start_ = node->next;
    if (start_ == nullptr) {
        end_ = nullptr;
    }
    freeNode(node);
    --length_;
    if (start_ == nullptr) {
        releaseSlabs();
    }
    setBusy(false);
    return byte;
}

void PZByteQueue::enQueueBytes(const std::uint8_t* bytes, std::uint64_t length) {
    setBusy(true);
    Node* last = end_;
    for (std::uint64_t i = 0; i < length; ++i) {
        Node* node = allocateNode();
        if (node == nullptr) {
            PZLog("impossibile allocare la memoria");
            continue;
        }
        node->byte = bytes[i];
        node->next = nullptr;
        if (last != nullptr) {
            last->next = node;
        } else {
            start_ = node;
        }
        last = node;
    }
    end_ = last;
    // The count grows by what was asked for even when a node could not be made; the reading
    // operations stop at the last real node.
    length_ += length;
    setBusy(false);
}

std::uint64_t PZByteQueue::deQueueByBytes(std::uint64_t count, std::uint8_t* bytes) {
    setBusy(true);
    std::uint64_t taken = 0;
    Node* node = start_;
    while (taken < count && node != nullptr) {
        if (bytes != nullptr) {
            bytes[taken] = node->byte;
        }
        Node* next = node->next;
        freeNode(node);
        node = next;
        ++taken;
    }
    start_ = node;
    if (start_ == nullptr) {
        end_ = nullptr;
    }
    length_ -= std::min(taken, length_);
    if (start_ == nullptr) {
        releaseSlabs();
    }
    setBusy(false);
    return taken;
}

std::uint64_t PZByteQueue::deQueueBy(std::uint64_t count) {
    return deQueueByBytes(count, nullptr);
}

std::uint64_t PZByteQueue::getBytesMaxLength(std::uint8_t* bytes, std::uint64_t maxLength) const {
    setBusy(true);
    std::uint64_t copied = 0;
    for (const Node* node = start_; copied < maxLength && node != nullptr; node = node->next) {
        bytes[copied++] = node->byte;
    }
    setBusy(false);
    return copied;
}
