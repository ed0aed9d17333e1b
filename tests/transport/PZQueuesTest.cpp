#include "transport/PZByteQueue.h"
#include "transport/PZException.h"
#include "transport/PZQueue.h"

#include "TransportTestSupport.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

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
        return e.name() + " / " + e.reason();
    }
    return "no exception";
}

} // namespace

TEST(PZByteQueue, getBytesMaxLength_emptyQueueOrZeroMaximum_copiesNothing) {
    PZByteQueue empty;
    std::uint8_t byte = 42;
    EXPECT_EQ(empty.getBytesMaxLength(&byte, 1), 0u);
    EXPECT_EQ(byte, 42);
    PZByteQueue full(iota(3).data(), 3);
    EXPECT_EQ(full.getBytesMaxLength(&byte, 0), 0u);
    EXPECT_EQ(full.length(), 3u);
}

TEST(PZByteQueue, deQueueByBytes_moreThanQueued_takesWhatIsThereAndEmpties) {
    const auto bytes = iota(4);
    PZByteQueue queue(bytes.data(), bytes.size());
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
    EXPECT_EQ(exceptionOf([&] { queue.deQueue(); }), "PZByteQueue deQueue / The queue is empty");
    // The interrupted operation left the busy flag raised: the next one reports the overlap once.
    queue.enQueue(3);
    queue.enQueue(4);
    EXPECT_EQ(log.count("!!!!! accesso contemporaneo a PZByteQueue"), 1u);
    EXPECT_EQ(contents(queue), (std::vector<std::uint8_t>{3, 4}));
}

TEST(PZByteQueue, operations_mixedSizesAcrossSlabs_keepOrder) {
    // Table: sizes queued and removed in turn; the queue must match a plain model after each step.
    struct Step {
        std::size_t enqueue;
        std::size_t dequeue;
    };
    const std::vector<Step> steps = {{1, 0},         {300, 1},   {5000, 2000},
                                     {70000, 70000}, {0, 10000}, {100000, 1024}};
    PZByteQueue queue;
    std::vector<std::uint8_t> model;
    std::uint8_t next = 0;
    for (const auto& step : steps) {
        std::vector<std::uint8_t> incoming(step.enqueue);
        for (auto& byte : incoming) {
            byte = next++;
        }
        queue.enQueueBytes(incoming.data(), incoming.size());
        model.insert(model.end(), incoming.begin(), incoming.end());
        const std::size_t expected = std::min(step.dequeue, model.size());
        std::vector<std::uint8_t> out(step.dequeue);
        ASSERT_EQ(queue.deQueueByBytes(step.dequeue, out.data()), expected);
        ASSERT_TRUE(std::equal(out.begin(), out.begin() + static_cast<long>(expected), model.begin()));
        model.erase(model.begin(), model.begin() + static_cast<long>(expected));
        ASSERT_EQ(queue.length(), model.size());
        ASSERT_EQ(contents(queue), model);
    }
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

TEST(PZQueue, removeObject_lastElement_predecessorBecomesEnd) {
    PZQueue<int> queue(std::vector<int>{1, 2, 3});
    queue.removeObject(3);
    queue.enQueue(4);
    EXPECT_EQ(queue.getArray(), (std::vector<int>{1, 2, 4}));
    queue.removeObject(1); // the front
    queue.removeObject(4); // the back again
    queue.enQueue(5);
    EXPECT_EQ(queue.getArray(), (std::vector<int>{2, 5}));
    EXPECT_EQ(queue.length(), 2u);
}

TEST(PZQueue, removeObject_absentValue_changesNothingAndLeavesQueueUsable) {
    PZQueue<std::string> queue(std::vector<std::string>{"a", "b"});
    queue.removeObject("z");
    EXPECT_EQ(queue.length(), 2u); // would throw "Queue busy" if the flag had stayed raised
    EXPECT_TRUE(queue.containsObject("b"));
    EXPECT_FALSE(queue.containsObject("z"));
    queue.removeObject("a");
    queue.removeObject("b");
    queue.enQueue("c");
    EXPECT_EQ(queue.deQueue(), "c");
}

TEST(PZQueue, deQueueBy_moreThanQueued_returnsAllAndEmpties) {
    PZQueue<int> queue(std::vector<int>{7, 8});
    EXPECT_EQ(queue.deQueueBy(3), (std::vector<int>{7, 8}));
    EXPECT_EQ(queue.length(), 0u);
    queue.enQueue(9);
    EXPECT_EQ(queue.getArray(), std::vector<int>{9});
}

TEST(PZQueue, deQueue_emptyQueue_throwsAndLaterEditsReportBusy) {
    PZQueue<int> queue;
    EXPECT_EQ(exceptionOf([&] { queue.deQueue(); }),
              "Empty queue / Impossible dequeue because queue is empty");
    EXPECT_EQ(exceptionOf([&] { queue.length(); }),
              "Queue busy / Attempt read length of queue while editing PZQueue");
    EXPECT_EQ(exceptionOf([&] { queue.enQueue(1); }),
              "Queue was edit while busy / Two or more process/thread attempt to edit PZQueue");
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

TEST(PZQueue, destruction_millionElements_noRecursion) {
    // Freed one node at a time; a recursive release would overflow this small-stack thread.
    bool done = false;
    std::mutex mutex;
    std::condition_variable finished;
    PZThread::detach("queue free", [&] {
        {
            PZQueue<int> queue;
            for (int i = 0; i < 1'000'000; ++i) {
                queue.enQueue(i);
            }
            auto middle = queue.deQueueBy(10); // the rest, still linked, goes with the queue
            EXPECT_EQ(middle.back(), 9);
        }
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        finished.notify_all();
    });
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(finished.wait_for(lock, 60s, [&] { return done; }));
    lock.unlock();
    EXPECT_TRUE(waitForThreads());
}

TEST(PZQueueElement, destruction_longDetachedChain_noRecursion) {
    bool done = false;
    std::mutex mutex;
    std::condition_variable finished;
    PZThread::detach("chain free", [&] {
        {
            std::shared_ptr<PZQueueElement<int>> head;
            for (int i = 0; i < 1'000'000; ++i) {
                head = PZQueueElement<int>::queueElementWithValueNextElement(i, head);
            }
            EXPECT_EQ(head->value(), 999'999);
            EXPECT_EQ(head->next()->value(), 999'998);
        }
        std::lock_guard<std::mutex> lock(mutex);
        done = true;
        finished.notify_all();
    });
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(finished.wait_for(lock, 60s, [&] { return done; }));
    lock.unlock();
    EXPECT_TRUE(waitForThreads());
}
