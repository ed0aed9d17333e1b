#include "transport/PZByteQueue.h"
#include "transport/PZException.h"
#include "transport/PZQueue.h"

#include "TransportTestSupport.h"

#include <deque>
#include <future>
#include <random>

namespace {

std::vector<std::uint8_t> iota(std::size_t count) {
    std::vector<std::uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7 + 3);
    }
    return bytes;
}

std::vector<std::uint8_t> contents(const PZByteQueue& queue) {
    std::vector<std::uint8_t> bytes(queue.length());
    bytes.resize(queue.getBytesMaxLength(bytes.data(), bytes.size()));
    return bytes;
}

template <typename F> std::string exceptionOf(F&& f) {
    try {
        f();
    } catch (const PZException& e) {
        return e.what(); // "name: reason"
    }
    return "no exception";
}

} // namespace

TEST(PZByteQueue, getAndDeQueueBytes_emptyZeroOrMoreThanQueued_takeWhatIsThere) {
    PZByteQueue queue;
    std::uint8_t byte = 42;
    EXPECT_EQ(queue.getBytesMaxLength(&byte, 1), 0u);
    EXPECT_EQ(byte, 42);
    const auto bytes = iota(4);
    queue.enQueueBytes(bytes.data(), bytes.size());
    EXPECT_EQ(queue.getBytesMaxLength(&byte, 0), 0u);
    std::vector<std::uint8_t> out(10, 0);
    EXPECT_EQ(queue.deQueueByBytes(10, out.data()), 4u);
    EXPECT_EQ(std::vector<std::uint8_t>(out.begin(), out.begin() + 4), bytes);
    EXPECT_EQ(queue.length(), 0u);
    // Empty means no node is left either: a new byte is both the front and the back.
    queue.enQueue(9);
    EXPECT_EQ(contents(queue), std::vector<std::uint8_t>{9});
    EXPECT_EQ(queue.deQueue(), 9);
}

TEST(PZByteQueue, deQueue_pastTheEnd_throwsThenLogsTheOverlapOnceAndWorks) {
    LogCapture log;
    PZByteQueue queue;
    queue.enQueue(1);
    queue.enQueue(2);
    EXPECT_EQ(queue.deQueue(), 1);
    EXPECT_EQ(queue.deQueue(), 2);
    EXPECT_EQ(exceptionOf([&] { queue.deQueue(); }), "PZByteQueue deQueue: The queue is empty");
    // The interrupted operation left the busy flag raised: the next one reports the overlap once.
    queue.enQueue(3);
    queue.enQueue(4);
    EXPECT_EQ(log.count("!!!!! accesso contemporaneo a PZByteQueue"), 1u);
    EXPECT_EQ(contents(queue), (std::vector<std::uint8_t>{3, 4}));
}

TEST(PZByteQueue, operations_randomMixAgainstModel_sameBytes) {
    // Single and bulk operations interleaved, so reused nodes end up scattered across slabs.
    std::mt19937 random(2846);
    PZByteQueue queue;
    std::deque<std::uint8_t> model;
    std::uint8_t next = 0;
    for (int step = 0; step < 3000; ++step) {
        const int op = static_cast<int>(random() % 5);
        if (op == 0) {
            queue.enQueue(next);
            model.push_back(next++);
        } else if (op == 1) {
            std::vector<std::uint8_t> incoming(random() % 3000);
            for (auto& byte : incoming) {
                byte = next++;
            }
            queue.enQueueBytes(incoming.data(), incoming.size());
            model.insert(model.end(), incoming.begin(), incoming.end());
        } else if (op == 2 && !model.empty()) {
            ASSERT_EQ(queue.deQueue(), model.front());
            model.pop_front();
        } else if (op == 3) {
            std::vector<std::uint8_t> out(random() % 4000);
            const auto taken = queue.deQueueByBytes(out.size(), out.data());
            ASSERT_EQ(taken, std::min<std::size_t>(out.size(), model.size()));
            ASSERT_TRUE(std::equal(out.begin(), out.begin() + static_cast<long>(taken), model.begin()));
            model.erase(model.begin(), model.begin() + static_cast<long>(taken));
        } else {
            queue.releaseUnusedMemory(); // only gives memory back when the queue is empty
        }
        ASSERT_EQ(queue.length(), model.size());
    }
    EXPECT_EQ(contents(queue), std::vector<std::uint8_t>(model.begin(), model.end()));
}

TEST(PZByteQueue, copy_fromOtherQueue_leavesOtherUnchanged) {
    const auto bytes = iota(1500);
    PZByteQueue original(bytes.data(), bytes.size());
    auto copy = PZByteQueue::queueWithQueue(original);
    EXPECT_EQ(copy->deQueueBy(1000), 1000u);
    EXPECT_EQ(contents(original), bytes);
    EXPECT_EQ(contents(*copy), std::vector<std::uint8_t>(bytes.begin() + 1000, bytes.end()));
}

TEST(PZQueue, removeObjectAndDeQueueBy_frontBackAbsentOrMoreThanQueued_queueStaysConsistent) {
    PZQueue<std::string> queue(std::vector<std::string>{"a", "b", "c"});
    queue.removeObject("c"); // the back: its predecessor becomes the end
    queue.enQueue("d");
    EXPECT_EQ(queue.getArray(), (std::vector<std::string>{"a", "b", "d"}));
    queue.removeObject("a"); // the front
    queue.removeObject("d"); // the back again
    queue.removeObject("z"); // absent: nothing changes, and the busy flag is lowered again
    EXPECT_EQ(queue.length(), 1u);
    EXPECT_TRUE(queue.containsObject("b"));
    EXPECT_FALSE(queue.containsObject("z"));
    queue.enQueue("e");
    EXPECT_EQ(queue.getArray(), (std::vector<std::string>{"b", "e"}));
    EXPECT_EQ(queue.deQueueBy(3), (std::vector<std::string>{"b", "e"}));
    EXPECT_EQ(queue.length(), 0u);
    queue.enQueue("f"); // after emptying by dequeueing
    queue.removeObject("f");
    queue.enQueue("g"); // after emptying by a removal
    EXPECT_EQ(queue.getArray(), std::vector<std::string>{"g"});
}

TEST(PZQueue, deQueue_emptyQueue_throwsAndLaterEditsReportBusy) {
    PZQueue<int> queue;
    EXPECT_EQ(exceptionOf([&] { queue.deQueue(); }),
              "Empty queue: Impossible dequeue because queue is empty");
    EXPECT_EQ(exceptionOf([&] { queue.length(); }),
              "Queue busy: Attempt read length of queue while editing PZQueue");
    EXPECT_EQ(exceptionOf([&] { queue.enQueue(1); }),
              "Queue was edit while busy: Two or more process/thread attempt to "
              "edit PZQueue");
}

TEST(PZQueue, copyAndMove_keepOrderAndValues) {
    auto values = std::vector<std::shared_ptr<int>>{std::make_shared<int>(1), std::make_shared<int>(2)};
    PZQueue<std::shared_ptr<int>> queue(values);
    auto copy = PZQueue<std::shared_ptr<int>>::queueWithQueue(queue);
    PZQueue<std::shared_ptr<int>> moved(std::move(queue));
    EXPECT_EQ(queue.length(), 0u);
    EXPECT_EQ(moved.getArray(), values);
    EXPECT_EQ(copy->deQueue(), values[0]); // the same objects, shared
    EXPECT_TRUE(copy->containsObject(values[1]));
}

TEST(PZQueue, destruction_millionElementsOrDetachedChain_noRecursion) {
    // Freed one node at a time; a recursive release would overflow this small-stack thread.
    std::promise<void> finished;
    PZThread::detach("queue free", [&] {
        {
            PZQueue<int> queue;
            for (int i = 0; i < 1'000'000; ++i) {
                queue.enQueue(i);
            }
            EXPECT_EQ(queue.deQueueBy(10).back(),
                      9); // the rest, still linked, goes with the queue
        }
        {
            std::shared_ptr<PZQueueElement<int>> head;
            for (int i = 0; i < 1'000'000; ++i) {
                head = PZQueueElement<int>::queueElementWithValueNextElement(i, head);
            }
            EXPECT_EQ(head->value(), 999'999);
            EXPECT_EQ(head->next()->value(), 999'998);
        }
        finished.set_value();
    });
    EXPECT_EQ(finished.get_future().wait_for(60s), std::future_status::ready);
    EXPECT_TRUE(waitForThreads());
}
