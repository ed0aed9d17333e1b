#include "platform/qt/PZQtRunLoopBridge.h"

#include "transport/PZBackgroundObject.h"
#include "transport/PZException.h"
#include "transport/PZRunLoop.h"
#include "transport/PZThread.h"
#include "transport/PZTimer.h"

#include <QCoreApplication>
#include <QTimer>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

using namespace std::chrono_literals;

namespace {

struct Receiver {
    std::vector<int> values;
    bool onMainThread = true;
};

class PZQtRunLoopBridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        app_ = std::make_unique<QCoreApplication>(argc_, argv_);
        bridge_ = std::make_unique<PZQtRunLoopBridge>();
        // A failed test must not hang the run.
        QTimer::singleShot(10000, app_.get(), [] { QCoreApplication::exit(1); });
    }
    void TearDown() override {
        bridge_.reset();
        app_.reset();
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (PZThread::runningCount() > 0 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_EQ(PZThread::runningCount(), 0);
    }

    int argc_ = 1;
    char* argv_[2] = {const_cast<char*>("bridge_tests"), nullptr};
    std::unique_ptr<QCoreApplication> app_;
    std::unique_ptr<PZQtRunLoopBridge> bridge_;
};

} // namespace

TEST_F(PZQtRunLoopBridgeTest, timers_addedFromQtSlotsAndCallbacks_fireOnTime) {
    std::vector<std::string> fired;
    const auto start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration oneShotAt{};
    auto target = std::make_shared<int>(0);
    const auto fire = [&fired](const char* what) {
        fired.push_back(what);
        if (std::count(fired.begin(), fired.end(), "once") +
                std::count(fired.begin(), fired.end(), "after") ==
            2) {
            QCoreApplication::exit(0);
        }
    };
    // Added from a Qt slot, outside any run loop pass: the bridge must learn the new deadline.
    QTimer::singleShot(0, [&] {
        PZTimer::scheduledTimer(60ms, false, [&](PZTimer&) {
            oneShotAt = std::chrono::steady_clock::now() - start;
            fire("once");
        });
        PZTimer::scheduledTimer(10ms, true, [&](PZTimer& timer) {
            fire("repeat");
            if (std::count(fired.begin(), fired.end(), "repeat") == 3) {
                timer.invalidate();
                // Added from a timer callback, inside a pass.
                PZRunLoop::main()->performAfterDelay(target, 5ms, [&](int&) { fire("after"); });
            }
        });
    });
    EXPECT_EQ(app_->exec(), 0);
    EXPECT_EQ(std::count(fired.begin(), fired.end(), "repeat"), 3); // none after the invalidation
    EXPECT_EQ(std::count(fired.begin(), fired.end(), "once"), 1);
    EXPECT_EQ(std::count(fired.begin(), fired.end(), "after"), 1);
    EXPECT_GE(oneShotAt, 60ms); // never early
}

TEST_F(PZQtRunLoopBridgeTest, backgroundObject_onMainLoop_deliveriesFromWorkerInOrderWhileQtRuns) {
    auto object = std::make_shared<PZBackgroundObject>();
    object->scheduleInRunLoop(PZRunLoop::main());
    auto receiver = std::make_shared<Receiver>();
    int qtTicks = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] { ++qtTicks; });
    ticker.start(1);
    std::weak_ptr<Receiver> weak = receiver;
    bool postedOnMain = false;
    PZThread::detach("worker", [object, weak, &postedOnMain] {
        // A plain post, queued before the invocations, runs no later than they do.
        PZRunLoop::main()->post([&postedOnMain] { postedOnMain = PZRunLoop::main()->isCurrent(); });
        for (int i = 0; i < 200; ++i) {
            object->postInvocation(weak, [i](Receiver& r) {
                r.onMainThread = r.onMainThread && PZRunLoop::main()->isCurrent();
                r.values.push_back(i);
                if (r.values.size() == 200) {
                    QCoreApplication::exit(0);
                }
            });
            if (i % 20 == 0) {
                std::this_thread::sleep_for(2ms);
            }
        }
    });
    EXPECT_EQ(app_->exec(), 0);
    ASSERT_EQ(receiver->values.size(), 200u);
    EXPECT_TRUE(std::is_sorted(receiver->values.begin(), receiver->values.end()));
    EXPECT_TRUE(receiver->onMainThread);
    EXPECT_TRUE(postedOnMain);
    EXPECT_GT(qtTicks, 0); // Qt's own events kept flowing
    object->invalidate();
}

TEST_F(PZQtRunLoopBridgeTest, construct_offTheLoopsThread_throws) {
    auto construct = std::async(std::launch::async, [] { PZQtRunLoopBridge bridge(PZRunLoop::main()); });
    try {
        construct.get();
        ADD_FAILURE() << "constructed";
    } catch (const PZException& e) {
        EXPECT_EQ(e.name(), "PZQtRunLoopBridge");
    }
}
