#include "Gestures.h"
#include "TestWindow.h"
#include "input/PZMouse.h"
#include "input/VXCommandExecute.h"
#include "input/linux/InputBackendProbe.h"
#include "input/linux/X11InputConnection.h"
#include "input/linux/X11KeyboardLayout.h"
#include "input/linux/X11ProcessActivator.h"
#include "input/linux/XTestEventPoster.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "support/TestPlatform.h"
#include "support/XvfbProcess.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr unsigned shiftMask = 1;
constexpr unsigned controlMask = 4;
constexpr unsigned numLockMask = 16;

// A private X server with openbox, a test window and an executor over the X11 back ends.
class X11InputTest : public ::testing::Test {
protected:
    void SetUp() override { startServer(true); }

    void startServer(bool windowManager, int displayNumber = -1) {
        VXH_REQUIRE_PLATFORM(xvfb_.start(1280, 800, displayNumber), "Xvfb could not be started");
        if (windowManager) {
            VXH_REQUIRE_PLATFORM(xvfb_.startWindowManager(), "openbox could not be started");
        }
        auto connection = std::make_shared<X11InputConnection>(xvfb_.name());
        VXCommandExecute::Backends backends;
        backends.eventPoster = std::make_shared<XTestEventPoster>(connection);
        layout_ = std::make_shared<X11KeyboardLayout>(connection);
        backends.keyboardLayout = layout_;
        backends.processActivator = std::make_shared<X11ProcessActivator>(xvfb_.name());
        // A loaded test machine may need longer than a desktop for the window manager to move the focus.
        backends.focusTimeout = std::chrono::seconds(2);
        executor_ = VXCommandExecute::create(backends);
        ASSERT_TRUE(window_.start(xvfb_.name()));
        ASSERT_TRUE(!windowManager || window_.waitForFocus());
    }

    void setLayout(const std::string& layout) {
        const std::string command = "setxkbmap -display " + xvfb_.name() + " " + layout;
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    std::shared_ptr<VXError> type(const std::string& instruction, const TestWindow* target = nullptr,
                                  const std::string& name = "") {
        const TestWindow& window = target != nullptr ? *target : window_;
        return executor_->execute(VXCommand("keyboard", VXProcess(name, window.pid()), instruction));
    }

    // Types each character of `text` as its own command ("space" for a space).
    void typeText(const std::string& text) {
        std::size_t i = 0;
        while (i < text.size()) {
            const auto lead = static_cast<unsigned char>(text[i]);
            const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
            const std::string piece = text.substr(i, length);
            EXPECT_EQ(type(piece == " " ? "space" : piece), nullptr) << piece;
            i += length;
        }
    }

    // The first key press with this keysym, if the window saw one.
    std::optional<TestWindow::Key> pressOf(unsigned long keysym) {
        std::optional<TestWindow::Key> found;
        window_.waitFor([&] {
            for (const auto& key : window_.keys()) {
                if (key.press && key.keysym == keysym) {
                    found = key;
                    return true;
                }
            }
            return false;
        });
        return found;
    }

    XvfbProcess xvfb_;
    TestWindow window_;
    std::shared_ptr<X11KeyboardLayout> layout_;
    std::shared_ptr<VXCommandExecute> executor_;
};

// US and German typing, also after a switch, are proven end to end; here the French layout's own keys.
TEST_F(X11InputTest, execute_textOnFrenchLayout_windowReceivesText) {
    setLayout("fr");
    typeText("àéèç azerty");
    EXPECT_EQ(window_.waitForText("àéèç azerty"), "àéèç azerty");
}

// Num Lock is set around a keypad key and off again after it; a media key arrives as its keysym.
TEST_F(X11InputTest, execute_keys_keysymStateAndText) {
    const std::tuple<const char*, unsigned long, const char*, unsigned> cases[] = {
        {"numpad5", 0xffb5, "5", numLockMask}, {"a", 'a', "a", 0}, {"play", 0x1008ff14, "", 0}};
    for (const auto& [instruction, keysym, text, state] : cases) {
        window_.clear();
        EXPECT_EQ(type(instruction), nullptr) << instruction;
        const auto press = pressOf(keysym);
        ASSERT_TRUE(press.has_value()) << instruction;
        EXPECT_EQ(press->state & (shiftMask | controlMask | numLockMask), state) << instruction;
        EXPECT_EQ(press->text, text) << instruction;
    }
}

TEST_F(X11InputTest, execute_capsLockLocked_textAsAskedAndLockKept) {
    Display* dpy = XOpenDisplay(xvfb_.name().c_str());
    ASSERT_NE(dpy, nullptr);
    const KeyCode caps = XKeysymToKeycode(dpy, 0xffe5);
    XTestFakeKeyEvent(dpy, caps, True, CurrentTime);
    XTestFakeKeyEvent(dpy, caps, False, CurrentTime);
    XSync(dpy, False);
    // The layout follows the lock through the server's events, which reach it a moment later.
    ASSERT_TRUE(window_.waitFor([&] {
        const auto locks = layout_->lockState();
        return locks && locks->capsLock;
    }));
    typeText("aB");
    EXPECT_EQ(window_.waitForText("aB"), "aB");
    // Locked again after the last key (its events may still be on their way when the text is there).
    EXPECT_TRUE(window_.waitFor([&] {
        XkbStateRec state{};
        XkbGetState(dpy, XkbUseCoreKbd, &state);
        return (state.locked_mods & LockMask) != 0;
    }));
    XCloseDisplay(dpy);
}

TEST_F(X11InputTest, execute_characterOnNoKey_temporaryKeyThenMappingRestored) {
    // A program fetches the changed mapping only when it reads its events: one that reads them late
    // (stopped here) must still find the temporary key bound after the next command.
    ::kill(window_.pid(), SIGSTOP);
    typeText("ő");
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    typeText("😀aőé");
    ::kill(window_.pid(), SIGCONT);
    EXPECT_EQ(window_.waitForText("ő😀aőé"), "ő😀aőé");
    EXPECT_FALSE(layout_->layoutChanged()); // its own mapping changes are no new layout
    layout_->releaseTemporaryKeys(true);
    Display* dpy = XOpenDisplay(xvfb_.name().c_str());
    ASSERT_NE(dpy, nullptr);
    EXPECT_EQ(XKeysymToKeycode(dpy, 0x01000151), 0);
    EXPECT_EQ(XKeysymToKeycode(dpy, 0x0101f600), 0);
    XCloseDisplay(dpy);
    EXPECT_FALSE(layout_->layoutChanged());
}

TEST_F(X11InputTest, execute_otherProcess_focusMovesThereBeforeTypingWithEitherMethod) {
    TestWindow second;
    ASSERT_TRUE(second.start(xvfb_.name(), "second window", "300x200+500+300"));
    ASSERT_TRUE(second.waitForFocus());
    EXPECT_EQ(type("x", &window_), nullptr);
    EXPECT_EQ(type("y", &second), nullptr);
    executor_->setKeyboardMethod(2); // the script raises the process by name, then types
    EXPECT_EQ(type("#1 q", &window_, "vxh_test_window"), nullptr);
    EXPECT_EQ(window_.waitForText("xQ"), "xQ");
    EXPECT_EQ(second.waitForText("y"), "y");
    EXPECT_EQ(type("a", &window_, "no-such-program")->message(), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    executor_->setKeyboardMethod(1);
    VXCommand gone("keyboard", VXProcess("", 999999), "q");
    EXPECT_EQ(executor_->execute(gone)->message(), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
}

// The gesture logic is proven against a fake poster; here the buttons and moves as the window sees them.
TEST_F(X11InputTest, trackpad_gestures_buttonsAndPointerAtTheWindow) {
    struct Case {
        const char* name;
        VXPoint start;
        std::vector<Gesture> gestures;
        std::vector<std::string> buttons;
        std::optional<VXPoint> end{}; // where the pointer and the last button event are
    };
    const Case cases[] = {
        {"two fingers: right click and scroll",
         {200, 150},
         {{0, 2, 1}, {2, 2, 0, {0, 30}}, {2, 2, 0, {-30, 0}}},
         {"+3", "-3", "+5", "-5", "+6", "-6"}},
        {"double tap, hold, move, release: a drag without extra click",
         {100, 100},
         {{0, 1, 1}, {1, 1, 2}, {2, 1, 2, {50, 20}}, {0, 1, 2}},
         {"+1", "-1"},
         VXPoint{150, 120}},
    };
    for (const Case& c : cases) {
        executor_->mouse().moveToPoint(c.start);
        window_.clear();
        EXPECT_TRUE(perform(*executor_, c.gestures)) << c.name;
        runLoopFor(400ms);
        ASSERT_TRUE(window_.waitFor([&] {
            const auto motions = window_.motions();
            return window_.buttons().size() >= c.buttons.size() &&
                   (!c.end ||
                    (!motions.empty() && motions.back().x == c.end->x && motions.back().y == c.end->y));
        })) << c.name;
        const auto buttons = window_.buttons();
        std::vector<std::string> events;
        for (const auto& button : buttons) {
            events.push_back((button.press ? "+" : "-") + std::to_string(button.button));
        }
        EXPECT_EQ(events, c.buttons) << c.name;
        if (c.end) {
            EXPECT_EQ(executor_->mouse().getLocation(), *c.end) << c.name;
            if (!buttons.empty()) {
                EXPECT_EQ((VXPoint{double(buttons.back().x), double(buttons.back().y)}), *c.end) << c.name;
            }
        }
    }
}

TEST_F(X11InputTest, mouse_outsideTheScreen_landsOnEdgeAndLogsBothChecks) {
    PZMouse& mouse = executor_->mouse();
    EXPECT_EQ(mouse.log(), "Main screen size {1280, 800}\n");
    mouse.moveToPoint({5000, 5000});
    EXPECT_EQ(mouse.getLocation(), (VXPoint{1279, 799}));
    EXPECT_NE(mouse.log().find(
                  "IOHIDSetMouseLocation set mouse at {1279, 799} when request is {5000, 5000}\n"
                  "IOHIDPostEvent(mouse move) set mouse at {1279, 799} when request is {5000, 5000}\n"),
              std::string::npos)
        << mouse.log();
}

TEST_F(X11InputTest, probe_xServerWithXTest_xtestBackEnds) {
    const auto backends = InputBackendProbe::probe(xvfb_.name());
    ASSERT_NE(backends.eventPoster, nullptr);
    EXPECT_STREQ(backends.eventPoster->name(), "XTest");
    EXPECT_NE(backends.processActivator, nullptr);
    EXPECT_NE(backends.launcher, nullptr);
    EXPECT_NE(backends.powerActions, nullptr);
    const auto none = InputBackendProbe::probe(":31999");
    EXPECT_STRNE(none.eventPoster->name(), "XTest"); // uinput where it can be written, else none
}

// A server on a display number of its own, far above those that servers started with -displayfd take,
// so that no other test's server takes its number while it is away.
class X11ReconnectTest : public X11InputTest {
protected:
    void SetUp() override { startServer(true, 600 + static_cast<int>(getpid() % 300)); }
};

TEST_F(X11ReconnectTest, execute_xServerRestarted_failsMeanwhileThenTypesAgain) {
    const int number = xvfb_.number();
    ASSERT_GE(number, 600);
    const VXCommand toGoneWindow("keyboard", VXProcess("", window_.pid()), "a");
    window_.stop();
    xvfb_.stop();
    const auto failed = executor_->execute(toGoneWindow);
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->message(), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    executor_->mouse().moveToPoint({10, 10}); // logged, not raised
    VXH_REQUIRE_PLATFORM(xvfb_.start(1280, 800, number), "Xvfb could not be started again");
    VXH_REQUIRE_PLATFORM(xvfb_.startWindowManager(), "openbox could not be started again");
    TestWindow again;
    ASSERT_TRUE(again.start(xvfb_.name()));
    ASSERT_TRUE(again.waitForFocus());
    setLayout("de");
    // The connections come back on a use after their retry interval.
    ASSERT_TRUE(again.waitFor(
        [&] { return executor_->execute(VXCommand("keyboard", VXProcess("", again.pid()), "z")) == nullptr; },
        std::chrono::seconds(5)));
    EXPECT_EQ(type("@", &again), nullptr);
    EXPECT_EQ(again.waitForText("z@"), "z@");
}

class X11InputWithoutWindowManagerTest : public X11InputTest {
protected:
    void SetUp() override { startServer(false); }
};

TEST_F(X11InputWithoutWindowManagerTest, execute_processPid_focusSetDirectly) {
    EXPECT_EQ(type("k"), nullptr);
    EXPECT_EQ(window_.waitForText("k"), "k");
    EXPECT_TRUE(window_.waitForFocus());
}

} // namespace
