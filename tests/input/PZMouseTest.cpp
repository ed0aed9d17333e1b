#include "input/PZMouse.h"
#include "fakes/FakeEventPoster.h"

#include <gtest/gtest.h>

namespace {

using Events = std::vector<std::string>;

class PZMouseTest : public ::testing::Test {
protected:
    std::shared_ptr<FakeEventPoster> poster_ = std::make_shared<FakeEventPoster>();
    PZMouse mouse_{poster_};
};

TEST_F(PZMouseTest, scrollWheel_displacements_deadZoneAndDirections) {
    const std::pair<VXPoint, Events> cases[] = {
        {{0, 0}, {}},
        {{4.9, -3}, {}},
        {{5, 5}, {"scroll 0 0"}}, // exactly the dead zone: posted with both deltas 0
        {{6, 0}, {"scroll 0 -1"}},
        {{-6, 8}, {"scroll -1 1"}},
        {{0.5, -100}, {"scroll 1 0"}},
        {{1e300, -1e300}, {"scroll 1 -1"}},
    };
    for (const auto& [displacement, events] : cases) {
        mouse_.scrollWheel(displacement);
        EXPECT_EQ(poster_->takeEvents(), events) << displacement.x << "," << displacement.y;
    }
}

// Each check tolerates 50 points (bounds included) and truncates; a missed placement is followed by a motion.
TEST_F(PZMouseTest, moveToPoint_placementAndMotionChecks_eventsAndLog) {
    struct Case {
        VXPoint placementError, motionError, target;
        std::string logged;
    };
    const std::string set = "IOHIDSetMouseLocation set mouse at ", request = " when request is {10, 20}\n";
    const std::string post = "IOHIDPostEvent(mouse move) set mouse at ";
    const Case cases[] = {
        {{49, -49}, {0, 0}, {300.9, 200.2}, ""},
        {{-50, 50}, {0, 0}, {300, 200}, ""},
        {{60, 0}, {0, 30}, {10, 20}, set + "{70, 20}" + request},
        {{0, 60}, {0, -2}, {10, 20}, set + "{10, 80}" + request + post + "{10, 18}" + request},
        {{0, 60}, {0, -1}, {10, 20}, set + "{10, 80}" + request},
    };
    for (const Case& c : cases) {
        poster_->placementError = c.placementError;
        poster_->motionError = c.motionError;
        const std::string before = mouse_.log();
        mouse_.moveToPoint(c.target);
        const std::string at = std::to_string(int(c.target.x)) + " " + std::to_string(int(c.target.y));
        Events events{"place " + at};
        if (!c.logged.empty()) {
            events.push_back("motion " + at);
        }
        EXPECT_EQ(poster_->takeEvents(), events) << c.logged;
        EXPECT_EQ(mouse_.log(), before + c.logged);
    }
    EXPECT_EQ(mouse_.log().rfind("Main screen size {1280, 800}\n", 0), 0u);
}

TEST_F(PZMouseTest, moveToPoint_failingBackEnd_statusesLogged) {
    poster_->placeStatus = 7;
    poster_->motionStatus = -3;
    mouse_.moveToPoint({1, 1});
    EXPECT_EQ(poster_->takeEvents(), (Events{"place 1 1", "motion 1 1"}));
    EXPECT_NE(mouse_.log().find("IOHIDSetMouseLocation return 7 != KERN_SUCCESS\n"
                                "IOHIDPostEvent(mouse move) return -3 != KERN_SUCCESS\n"),
              std::string::npos);
    poster_->buttonStatus = 5;
    mouse_.rightClick();
    EXPECT_NE(mouse_.log().find("IOHIDPostEvent(NX_RMOUSEDOWN) return 5 != KERN_SUCCESS\n"
                                "IOHIDPostEvent(NX_RMOUSEUP) return 5 != KERN_SUCCESS\n"),
              std::string::npos);
}

TEST_F(PZMouseTest, translateOf_zeroDisplacement_stillAFullMove) {
    poster_->location = {40, 50};
    mouse_.translateOf({0, 0});
    EXPECT_EQ(poster_->takeEvents(), (Events{"place 40 50"}));
    mouse_.translateOf({-5.5, 10});
    EXPECT_EQ(poster_->takeEvents(), (Events{"place 34 60"}));
    mouse_.moveToPoint({32768, -32769.7}); // beyond 16 bits: wrapped
    EXPECT_EQ(poster_->takeEvents().front(), "place -32768 32767");
}

TEST_F(PZMouseTest, clicks_buttonsPressedAndReleasedWithoutDelay) {
    mouse_.click();
    mouse_.rightClick();
    mouse_.doubleClick();
    EXPECT_EQ(poster_->takeEvents(), (Events{"button+1", "button-1", "button+3", "button-3", "button+1",
                                             "button-1", "button+1", "button-1"}));
}

TEST(PZMouseLifeTest, destruction_releasesLeftThenRight) {
    auto poster = std::make_shared<FakeEventPoster>();
    { PZMouse mouse(poster); }
    EXPECT_EQ(poster->takeEvents(), (Events{"button-1", "button-3"}));
}

TEST(PZMouseLifeTest, addLogMessage_overLimit_trimmedToLimitAndScreenSizeRepeated) {
    auto poster = std::make_shared<FakeEventPoster>();
    poster->screen = std::nullopt;
    PZMouse mouse(poster);
    const std::string first = "Main screen size {0, 0}\n";
    EXPECT_EQ(mouse.log(), first);
    mouse.addLogMessage(std::string(PZMouse::logLimit - first.size(), 'x'));
    ASSERT_EQ(mouse.log().size(), PZMouse::logLimit);
    mouse.addLogMessage("A"); // exactly at the limit: no trimming
    EXPECT_EQ(mouse.log().size(), PZMouse::logLimit + 1);
    EXPECT_EQ(mouse.log().substr(0, first.size()), first);
    poster->screen = VXSize{800, 600};
    mouse.addLogMessage("B"); // over it: cut to the limit, then the size line, then the message
    const std::string log = mouse.log();
    EXPECT_EQ(log.size(), PZMouse::logLimit + std::string("Main screen size {800, 600}\n").size() + 1);
    const std::string tail = "xAMain screen size {800, 600}\nB";
    EXPECT_EQ(log.substr(log.size() - tail.size()), tail);
    EXPECT_EQ(log.substr(0, first.size() - 1), first.substr(1)); // only the first character went
}

} // namespace
