#include "input/VXCommandExecute.h"
#include "Gestures.h"
#include "fakes/FakeEventPoster.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSystemBackends.h"
#include "input/PZMouse.h"
#include "input/VXCommandTester.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "support/LogCapture.h"
#include "transport/PZException.h"
#include "transport/PZRunLoop.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

using Events = std::vector<std::string>;
using namespace std::chrono_literals;

class VXCommandExecuteTest : public ::testing::Test {
protected:
    VXCommandExecuteTest() {
        activator_->processes[4242] = "gedit";
        VXCommandExecute::Backends backends;
        backends.eventPoster = poster_;
        backends.keyboardLayout = layout_;
        backends.powerActions = power_;
        backends.launcher = launcher_;
        backends.processActivator = activator_;
        backends.systemControls = controls_;
        backends.clickDelay = clickDelay_;
        backends.commandKey = [] { return std::string("super"); };
        executor_ = VXCommandExecute::create(backends);
        poster_->takeEvents();
    }

    static std::string message(const std::shared_ptr<VXError>& error) {
        return error ? error->message().value_or("?") : "nil";
    }

    std::shared_ptr<VXError> run(const std::string& type, const std::string& instruction,
                                 std::int64_t pid = -1, const std::string& name = "") {
        return executor_->execute(VXCommand(type, VXProcess(name, pid), instruction));
    }

    std::chrono::milliseconds clickDelay_ = 40ms;
    std::shared_ptr<FakeEventPoster> poster_ = std::make_shared<FakeEventPoster>();
    std::shared_ptr<FakeKeyboardLayout> layout_ = std::make_shared<FakeKeyboardLayout>();
    std::shared_ptr<FakePowerActions> power_ = std::make_shared<FakePowerActions>();
    std::shared_ptr<FakeApplicationLauncher> launcher_ = std::make_shared<FakeApplicationLauncher>();
    std::shared_ptr<FakeProcessActivator> activator_ = std::make_shared<FakeProcessActivator>();
    std::shared_ptr<FakeSystemControls> controls_ = std::make_shared<FakeSystemControls>();
    std::shared_ptr<VXCommandExecute> executor_;
};

TEST_F(VXCommandExecuteTest, exe_typesWithoutHandler_unableToRecognizeAndNoEffect) {
    for (const char* type : {"terminal", "", "Keyboard"}) {
        EXPECT_EQ(message(run(type, "sleep", 4242)), "UNABLE_TO_RECOGNIZE_COMMAND_ERROR") << type;
    }
    EXPECT_EQ(message(executor_->execute(VXCommand(std::nullopt, std::nullopt, std::nullopt))),
              "UNABLE_TO_RECOGNIZE_COMMAND_ERROR");
    EXPECT_TRUE(poster_->takeEvents().empty());
    EXPECT_TRUE(power_->calls.empty());
    EXPECT_TRUE(activator_->activated.empty());
}

TEST_F(VXCommandExecuteTest, exe_special_wordsWithoutRegardToCase) {
    EXPECT_EQ(run("special", "SLEEP"), nullptr);
    EXPECT_EQ(run("special", "Restart"), nullptr);
    EXPECT_EQ(run("special", "shutdown"), nullptr);
    EXPECT_EQ(power_->calls, (std::vector<std::string>{"suspend", "reboot", "powerOff"}));
    for (const char* word : {"shut down", ""}) {
        EXPECT_EQ(message(run("special", word)), "UNABLE_TO_RECOGNIZE_COMMAND_ERROR") << word;
    }
    EXPECT_EQ(power_->calls.size(), 3u);
}

TEST_F(VXCommandExecuteTest, exe_specialRefused_unableToExecuteAndLogged) {
    power_->refusal = "The name org.freedesktop.login1 was not provided by any .service files";
    LogCapture log;
    EXPECT_EQ(message(run("special", "sleep")), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("VXCommandExecute exe: special {number = ", 0), 0u) << lines[0];
    ASSERT_TRUE(executor_->error().has_value());
    power_->refusal.reset();
    EXPECT_EQ(run("special", "sleep"), nullptr);
    EXPECT_FALSE(executor_->error().has_value());
}

TEST_F(VXCommandExecuteTest, exe_launch_namesAndPathsReachLauncherUnchanged) {
    const std::pair<const char*, const char*> cases[] = {
        {"Google Chrome", "app Google Chrome"},
        {"\"\" /tmp/some file.txt", "open /tmp/some file.txt"},
        {"\"\"", "app \"\""},
        {"\"\"x /tmp", "app \"\"x /tmp"},
        {"a; rm -rf ~ && $(reboot) `id` | cat > /tmp/x", "app a; rm -rf ~ && $(reboot) `id` | cat > /tmp/x"},
    };
    for (const auto& [instruction, call] : cases) {
        EXPECT_EQ(run("launch", instruction), nullptr) << instruction;
        ASSERT_FALSE(launcher_->calls.empty());
        EXPECT_EQ(launcher_->calls.back(), call);
    }
    launcher_->calls.clear();
    EXPECT_EQ(message(run("launch", "\"\" ")), "UNABLE_TO_EXECUTE_COMMAND_ERROR"); // no path to open
    EXPECT_TRUE(launcher_->calls.empty());
    launcher_->succeed = false;
    EXPECT_EQ(message(run("launch", "Nothing")), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
}

TEST_F(VXCommandExecuteTest, exe_keyboard_frontProcessDecidesWhetherKeysAreSent) {
    EXPECT_EQ(message(run("keyboard", "a", 0)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(message(run("numPad", "a", -2)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(message(run("keyboard", "a", 999)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(message(executor_->execute(VXCommand("keyboard", std::nullopt, "a"))),
              "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_TRUE(poster_->takeEvents().empty());
    EXPECT_EQ(run("keyboard", "a", -1), nullptr);
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+30", "key-30"}));
    activator_->activated.clear();
    EXPECT_EQ(run("numPad", "numpad5", 4242), nullptr);
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+76", "key-76"}));
    EXPECT_EQ(activator_->activated, std::vector<std::int64_t>{4242});
    EXPECT_EQ(activator_->waitedFor, std::vector<std::int64_t>{4242});
    EXPECT_EQ(message(run("keyboard", "nokey", -1)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
}

TEST_F(VXCommandExecuteTest, exe_keyboardMethod2_processNamedOnlyForRealPids) {
    executor_->setKeyboardMethod(2);
    EXPECT_EQ(run("keyboard", "#4 c", 4242, "gedit"), nullptr);
    // The script raised gedit by name, then typed.
    EXPECT_EQ(activator_->activated, (std::vector<std::int64_t>{4242, 4242}));
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+125", "key+46", "key-46", "key-125"})); // command: Super
    activator_->activated.clear();
    EXPECT_EQ(run("keyboard", "a", -1, "Mac"), nullptr);
    EXPECT_TRUE(activator_->activated.empty());
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+30", "key-30"}));
    // A process whose window is gone by the time the script runs: the script fails.
    activator_->processes[77] = "other";
    EXPECT_EQ(message(run("keyboard", "a", 77, "renamed")), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(message(run("keyboard", "eject", -1)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
}

TEST(VXCommandExecuteBareTest, execute_noBackEnds_eventsDroppedAndLoggedOnceLaunchRefused) {
    LogCapture log;
    {
        const auto executor = VXCommandExecute::create({});
        EXPECT_EQ(executor->execute(VXCommand("launch", VXProcess("", 0), "x"))->message(),
                  "UNABLE_TO_EXECUTE_COMMAND_ERROR");
        executor->mouse().click();
    }
    EXPECT_EQ(log.countContaining("synthetic pointer and key events are dropped"), 1u);
}

TEST_F(VXCommandExecuteTest, exe_keyboardUnknownMark_raisesAndReleasesTheLock) {
    EXPECT_THROW(run("keyboard", "#7 a"), PZException);
    std::thread other([&] { EXPECT_EQ(run("keyboard", "a"), nullptr); });
    other.join();
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+30", "key-30"}));
}

TEST_F(VXCommandExecuteTest, exe_volumeAndBrightness_numbersReadInCLocale) {
    const std::pair<const char*, float> cases[] = {{"0.5", 0.5f},   {" 0.25xyz", 0.25f}, {"+0.75", 0.75f},
                                                   {"1e400", 0.0f}, {"nan", 0.0f},       {"0,5", 0.0f},
                                                   {"", 0.0f}};
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(run("volume", text), nullptr);
        EXPECT_EQ(run("brightness", text), nullptr);
        ASSERT_FALSE(controls_->volumes.empty());
        EXPECT_FLOAT_EQ(controls_->volumes.back(), value) << text;
        EXPECT_FLOAT_EQ(controls_->brightnesses.back(), value) << text;
    }
    EXPECT_EQ(run("volume", "0.5", 0), nullptr); // no process needed
}

TEST_F(VXCommandExecuteTest, exe_focus_throughFrontProcess) {
    EXPECT_EQ(run("focus", "", 4242), nullptr);
    EXPECT_EQ(run("focus", "", -1), nullptr);
    EXPECT_EQ(message(run("focus", "", 0)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(message(run("focus", "", 31337)), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(activator_->activated, (std::vector<std::int64_t>{4242, 31337}));
    EXPECT_TRUE(activator_->waitedFor.empty());
}

// Records the tester calls with the thread they arrived on.
class RecordingTester : public VXCommandTester {
public:
    void willExecuteCommand(const VXCommand& c) override { record("will " + c.type().value_or("")); }
    void didExecuteCommand(const VXCommand& c) override { record("did " + c.type().value_or("")); }
    void record(std::string call) {
        calls.push_back(std::move(call));
        threads.push_back(std::this_thread::get_id());
    }

    std::vector<std::string> calls;
    std::vector<std::thread::id> threads;
};

TEST_F(VXCommandExecuteTest, execute_withTester_hooksOnMainThreadAndNoDidAfterError) {
    auto tester = std::make_shared<RecordingTester>();
    executor_->setCommandTester(tester);
    std::atomic<bool> done{false};
    std::shared_ptr<VXError> ok;
    std::shared_ptr<VXError> failed;
    std::thread session([&] {
        ok = run("keyboard", "a");
        failed = run("mouse", "x");
        done = true;
    });
    while (!done) {
        PZRunLoop::main()->runOnce(10ms);
    }
    session.join();
    EXPECT_EQ(ok, nullptr);
    EXPECT_EQ(message(failed), "UNABLE_TO_RECOGNIZE_COMMAND_ERROR");
    EXPECT_EQ(tester->calls, (std::vector<std::string>{"will keyboard", "did keyboard", "will mouse"}));
    for (const auto& id : tester->threads) {
        EXPECT_EQ(id, std::this_thread::get_id());
    }
    tester.reset(); // not owned: a tester that is gone hears nothing
    EXPECT_EQ(executor_->commandTester(), nullptr);
    EXPECT_EQ(run("keyboard", "a"), nullptr);
}

TEST_F(VXCommandExecuteTest, trackpad_singleTap_clickAfterDelay) {
    EXPECT_TRUE(perform(*executor_, {{0, 1, 1}}));
    EXPECT_TRUE(executor_->needClick());
    EXPECT_TRUE(poster_->takeEvents().empty());
    runLoopFor(clickDelay_ / 2);
    EXPECT_TRUE(poster_->takeEvents().empty());
    runLoopFor(clickDelay_ * 2);
    EXPECT_EQ(poster_->takeEvents(), (Events{"button+1", "button-1"}));
    EXPECT_FALSE(executor_->needClick());
}

TEST_F(VXCommandExecuteTest, trackpad_gestures_postedEvents) {
    struct Case {
        const char* name;
        VXPoint start;
        std::vector<Gesture> gestures;
        Events events;
    };
    const Case cases[] = {
        {"a move within the delay cancels the click",
         {100, 100},
         {{0, 1, 1}, {2, 1, 0, {5, -3}}},
         {"place 105 97"}},
        {"two fingers: right click, scroll outside the dead zone; three fingers: nothing",
         {100, 100},
         {{0, 2, 1}, {2, 2, 0, {0, 20}}, {2, 2, 0, {2, 2}}, {0, 3, 1}, {2, 3, 0, {30, 30}}},
         {"button+3", "button-3", "scroll -1 0"}},
        {"double tap, hold, move, release: a drag without extra click",
         {10, 10},
         {{0, 1, 1}, {1, 1, 2}, {2, 1, 2, {40, 0}}, {0, 1, 2}},
         {"button+1", "place 50 10", "button-1"}},
        {"double tap without moving: press, release and one more click",
         {100, 100},
         {{0, 1, 1}, {1, 1, 2}, {0, 1, 2}},
         {"button+1", "button-1", "button+1", "button-1"}},
        {"a lift or a move ending the touch releases; a touch down that is no second tap does nothing",
         {100, 100},
         {{0, 1, 0}, {0, 1, 0, {1, 1}}, {1, 1, 1}, {5, 1, 1}},
         {"button-1", "place 101 101", "button-1"}},
    };
    for (const Case& c : cases) {
        poster_->location = c.start;
        EXPECT_TRUE(perform(*executor_, c.gestures)) << c.name;
        runLoopFor(clickDelay_ * 3);
        EXPECT_EQ(poster_->takeEvents(), c.events) << c.name;
        EXPECT_FALSE(executor_->needClick()) << c.name;
    }
}

TEST_F(VXCommandExecuteTest, getKeyboardMaps_fourMapsInSearchOrder) {
    const std::string text = executor_->getKeyboardMaps();
    EXPECT_EQ(text.rfind("PZKeyboard\n<PZKeyboardMap: ", 0), 0u);
    std::size_t maps = 0;
    for (auto at = text.find("modifiers:\n"); at != std::string::npos;
         at = text.find("modifiers:\n", at + 1)) {
        ++maps;
    }
    EXPECT_EQ(maps, 4u);
    EXPECT_LT(text.find("(null)"), text.find("    56\n)"));
    EXPECT_NE(text.find("a (97) = 0\n"), std::string::npos); // the entries' format: PZKeyboardMapTest
}

} // namespace
