#include "transport/PZRunLoop.h"
#include "transport/PZException.h"
#include "transport/PZRunLoopSource.h"
#include "transport/PZThread.h"
#include "transport/PZTimer.h"

#include "TransportTestSupport.h"

#include <future>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>

namespace {

struct Counter {};

// Runs body on a fresh PZThread with its own run loop and returns what it returns.
template <typename T> T onWorkerThread(std::function<T()> body) {
    std::promise<T> result;
    auto future = result.get_future();
    PZThread::detach("loop test", [&] { result.set_value(body()); });
    T value = future.get();
    EXPECT_TRUE(waitForThreads());
    return value;
}

} // namespace

TEST(PZRunLoop, current_eachThreadItsOwnMainIsTheMainThreadsAndOnlyItsThreadRunsIt) {
    auto here = PZRunLoop::current();
    EXPECT_EQ(here, PZRunLoop::current());
    EXPECT_EQ(here, PZRunLoop::main()); // the tests run on the main thread
    EXPECT_TRUE(here->isCurrent());
    const std::string seen = onWorkerThread<std::string>([&] {
        auto worker = PZRunLoop::current();
        if (worker == here || !worker->isCurrent() || here->isCurrent() || PZRunLoop::main() != here) {
            return std::string("not its own loop");
        }
        try {
            here->runOnce(0ms);
        } catch (const PZException& e) {
            return e.name();
        }
        return std::string("ran a foreign loop");
    });
    EXPECT_EQ(seen, "PZRunLoop run");
}

TEST(PZThread, detach_longName_truncatedAndSmallStack) {
    struct Seen {
        char name[32] = {};
        std::size_t stack = 0;
    };
    const Seen seen = onWorkerThread<Seen>([] {
        Seen s;
        pthread_getname_np(pthread_self(), s.name, sizeof s.name);
        pthread_attr_t attr;
        pthread_getattr_np(pthread_self(), &attr);
        pthread_attr_getstacksize(&attr, &s.stack);
        pthread_attr_destroy(&attr);
        return s;
    });
    EXPECT_STREQ(seen.name, "loop test");
    // Sanitizer runtimes add room of their own; the default would be several MiB.
    EXPECT_GE(seen.stack, PZThread::kStackSize);
    EXPECT_LT(seen.stack, 1024u * 1024u);
    const std::string longName = onWorkerThread<std::string>([] {
        PZThread::setCurrentName("a name longer than fifteen");
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        return std::string(name);
    });
    EXPECT_EQ(longName, "a name longer t");
}

TEST(PZRunLoop, post_fromOtherThreads_runsOnLoopThreadInOrder) {
    auto loop = PZRunLoop::current();
    std::vector<int> order;
    std::atomic<bool> offThread{false};
    PZRunLoop* raw = loop.get();
    PZThread::detach("poster", [&, loop] {
        for (int i = 0; i < 100; ++i) {
            loop->post([&order, &offThread, raw, i] {
                offThread = offThread || !raw->isCurrent();
                order.push_back(i);
            });
        }
    });
    ASSERT_TRUE(runLoopUntil([&] { return order.size() == 100; }));
    EXPECT_FALSE(offThread);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(order[static_cast<std::size_t>(i)], i);
    }
    EXPECT_TRUE(waitForThreads());
}

TEST(PZRunLoop, post_receiverGoneDroppedThrowingWorkEscapesAndLaterWorkStillRuns) {
    auto loop = PZRunLoop::current();
    auto receiver = std::make_shared<Counter>();
    std::vector<int> ran;
    loop->post(receiver, [&](Counter&) { ran.push_back(0); });
    receiver.reset();
    loop->post([&] { ran.push_back(1); });
    loop->post([] { throw std::runtime_error("boom"); });
    loop->post([&] { ran.push_back(3); });
    EXPECT_THROW(loop->runOnce(0ms), std::runtime_error);
    loop->runOnce(0ms);
    EXPECT_EQ(ran, (std::vector<int>{1, 3}));
}

TEST(PZRunLoop, run_endsAfterTheLastTimerOrWhenStoppedFromAnotherThread) {
    auto loop = PZRunLoop::current();
    int fired = 0;
    int nested = 0;
    PZTimer::scheduledTimer(20ms, false, [&](PZTimer&) { ++fired; });
    loop->post([&] { loop->post([&] { ++nested; }); }); // posted while handling: no sleep before it
    loop->run(); // returns once the one-shot timer has fired: nothing else can wake the loop
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(nested, 1);
    EXPECT_EQ(loop->runUntil(PZRunLoop::Clock::now() + 1s), PZRunLoop::RunResult::Finished);

    auto keepAlive = PZTimer::scheduledTimer(1h, false, [](PZTimer&) {});
    PZThread::detach("stopper", [loop] {
        std::this_thread::sleep_for(20ms);
        loop->stop();
    });
    EXPECT_EQ(loop->runUntil(PZRunLoop::Clock::now() + 10s), PZRunLoop::RunResult::Stopped);
    EXPECT_EQ(loop->runUntil(PZRunLoop::Clock::now() + 10ms), PZRunLoop::RunResult::TimedOut);
    keepAlive->invalidate();
    EXPECT_TRUE(waitForThreads());
}

TEST(PZRunLoopSource, signal_beforeScheduling_performedOnceScheduled) {
    auto loop = PZRunLoop::current();
    int performed = 0;
    std::vector<std::string> calls;
    auto source = std::make_shared<PZRunLoopSource>(PZRunLoopSource::Callbacks{
        .schedule = [&](PZRunLoop&) { calls.push_back("schedule"); },
        .cancel = [&](PZRunLoop&) { calls.push_back("cancel"); },
        .perform = [&] { ++performed; },
    });
    source->signal();
    source->signal(); // two signals before a perform make one perform
    loop->runOnce(0ms);
    EXPECT_EQ(performed, 0);
    loop->addSource(source);
    ASSERT_TRUE(runLoopUntil([&] { return performed == 1; }));
    loop->runOnce(10ms);
    EXPECT_EQ(performed, 1);
    source->invalidate();
    source->signal();
    loop->runOnce(10ms);
    EXPECT_EQ(performed, 1);
    EXPECT_EQ(calls, (std::vector<std::string>{"schedule", "cancel"}));
    EXPECT_EQ(loop->runOnce(0ms), PZRunLoop::RunResult::Finished);
}

TEST(PZTimer, oneShotAndRepeating_fireAsScheduledAndStopWhenInvalidated) {
    std::vector<std::string> fired;
    auto repeating = PZTimer::scheduledTimer(10ms, true, [&](PZTimer& timer) {
        fired.push_back("repeat");
        if (std::count(fired.begin(), fired.end(), "repeat") == 3) {
            timer.invalidate(); // from its own callback
        }
    });
    auto oneShot = PZTimer::scheduledTimer(15ms, false, [&](PZTimer&) { fired.push_back("once"); });
    auto cancelled = PZTimer::scheduledTimer(5ms, false, [&](PZTimer&) { fired.push_back("cancelled"); });
    cancelled->invalidate();
    PZRunLoop::current()->run();
    EXPECT_EQ(std::count(fired.begin(), fired.end(), "repeat"), 3);
    EXPECT_EQ(std::count(fired.begin(), fired.end(), "once"), 1);
    EXPECT_EQ(std::count(fired.begin(), fired.end(), "cancelled"), 0);
    EXPECT_FALSE(repeating->isValid());
    EXPECT_FALSE(oneShot->isValid()); // a fired one-shot timer is spent
}

TEST(PZRunLoop, performAfterDelay_cancelByTargetAndSelector) {
    auto loop = PZRunLoop::current();
    auto target = std::make_shared<Counter>();
    auto other = std::make_shared<Counter>();
    std::vector<std::string> ran;
    loop->performAfterDelay(
        target, 10ms, [&](Counter&) { ran.push_back("click"); }, "click");
    loop->performAfterDelay(
        target, 10ms, [&](Counter&) { ran.push_back("timeout"); }, "timeout");
    loop->performAfterDelay(other, 10ms, [&](Counter&) { ran.push_back("other"); });
    loop->cancelPreviousPerformRequests(target.get(), "click");
    loop->run();
    EXPECT_EQ(ran, (std::vector<std::string>{"timeout", "other"}));

    ran.clear();
    loop->performAfterDelay(
        target, 10ms, [&](Counter&) { ran.push_back("a"); }, "a");
    loop->performAfterDelay(
        target, 10ms, [&](Counter&) { ran.push_back("b"); }, "b");
    auto gone = std::make_shared<Counter>();
    loop->performAfterDelay(gone, 5ms, [&](Counter&) { ran.push_back("gone"); });
    gone.reset();
    // A cancellation from another thread is handed to the loop as well.
    std::thread([&] { loop->cancelPreviousPerformRequests(target.get()); }).join();
    loop->run();
    EXPECT_TRUE(ran.empty());
}

TEST(PZRunLoop, drivenFromOutside_wakeDescriptorProcessDueAndDeadline) {
    // A worker's loop driven by hand, as an outer event loop does it.
    const bool ok = onWorkerThread<bool>([] {
        auto loop = PZRunLoop::current();
        bool ran = false;
        std::thread([&] { loop->post([&] { ran = true; }); }).join();
        pollfd fd{loop->wakeDescriptor(), POLLIN, 0};
        const bool readable = ::poll(&fd, 1, 1000) == 1;
        const bool processed = loop->processDue() && ran;
        const bool quietAfter = ::poll(&fd, 1, 0) == 0;
        const auto before = PZRunLoop::Clock::now();
        auto timer = PZTimer::scheduledTimer(50ms, false, [](PZTimer&) {});
        const auto deadline = loop->nextTimerDeadline();
        const bool deadlineRight = deadline && *deadline >= before + 50ms && *deadline < before + 1s;
        timer->invalidate();
        return readable && processed && quietAfter && deadlineRight && !loop->nextTimerDeadline();
    });
    EXPECT_TRUE(ok);
}
