#include "transport/PZBackgroundObject.h"
#include "transport/PZRunLoop.h"
#include "transport/PZThread.h"

#include "TransportTestSupport.h"

namespace {

struct Target {
    std::vector<int> received;
};

} // namespace

TEST(PZBackgroundObject, performAll_targetAbsentOrGoneRunsNothingAndAnAdditionDuringPerformWaits) {
    auto object = std::make_shared<PZBackgroundObject>();
    auto target = std::make_shared<Target>();
    std::weak_ptr<Target> weak = target;
    std::weak_ptr<Target> absent;
    EXPECT_FALSE(PZBackgroundObject::invocationWithTarget(absent, [](Target&) {}).has_value());
    object->postInvocation(absent, [](Target& t) { t.received.push_back(0); });
    auto gone = std::make_shared<Target>();
    object->postInvocation(std::weak_ptr<Target>(gone), [&](Target&) { target->received.push_back(0); });
    gone.reset(); // gone before the perform: the queued invocation does nothing
    object->postInvocation(weak, [&](Target& t) {
        t.received.push_back(1);
        object->postInvocation(weak, [](Target& t) { t.received.push_back(2); });
    });
    object->performAllInvocations();
    EXPECT_EQ(target->received, std::vector<int>{1});
    object->performAllInvocations();
    EXPECT_EQ(target->received, (std::vector<int>{1, 2}));
}

TEST(PZBackgroundObject, invalidate_dropsPendingAndIgnoresLaterInvocations) {
    auto object = std::make_shared<PZBackgroundObject>();
    auto target = std::make_shared<Target>();
    std::weak_ptr<Target> weak = target;
    object->scheduleInRunLoop(PZRunLoop::current());
    object->postInvocation(weak, [](Target& t) { t.received.push_back(1); });
    object->postInvocation(std::weak_ptr<PZBackgroundObject>(object),
                           [](PZBackgroundObject& o) { o.invalidate(); });
    object->postInvocation(weak, [](Target& t) { t.received.push_back(2); }); // same batch: still runs
    PZRunLoop::current()->runOnce(1s);
    EXPECT_FALSE(object->isValid());
    object->postInvocation(weak, [](Target& t) { t.received.push_back(3); });
    object->performAllInvocations();
    EXPECT_EQ(target->received, (std::vector<int>{1, 2}));
    // With its only source gone, nothing can wake the loop any more.
    EXPECT_EQ(PZRunLoop::current()->runOnce(0ms), PZRunLoop::RunResult::Finished);
}
