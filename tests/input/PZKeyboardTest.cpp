#include "input/PZKeyboard.h"
#include "fakes/FakeEventPoster.h"
#include "fakes/FakeKeyboardLayout.h"
#include "input/KeyEventSender.h"
#include "input/PZKeyboardMap.h"
#include "input/SystemEventsScriptRunner.h"
#include "support/LogCapture.h"
#include "transport/PZException.h"

#include <gtest/gtest.h>

namespace {

using Events = std::vector<std::string>;

// Records the scripts it is given; fails them with `failure` when set.
class RecordingScriptRunner : public ScriptRunner {
public:
    std::optional<Error> runScript(const std::string& source) override {
        sources.push_back(source);
        return failure;
    }
    std::vector<std::string> sources;
    std::optional<Error> failure;
};

class PZKeyboardTest : public ::testing::Test {
protected:
    PZKeyboardTest() {
        keys_->setCommandKeyProvider([this] { return commandKey_; });
        keyboard_ = std::make_unique<PZKeyboard>(layout_, keys_, runner_);
    }

    bool type(const std::string& instruction, int method = 1,
              std::optional<std::string> process = std::nullopt) {
        return keyboard_->simulateToProcessWithMethod(instruction, process, method);
    }

    std::shared_ptr<FakeEventPoster> poster_ = std::make_shared<FakeEventPoster>();
    std::shared_ptr<FakeKeyboardLayout> layout_ = std::make_shared<FakeKeyboardLayout>();
    std::shared_ptr<KeyEventSender> keys_ = std::make_shared<KeyEventSender>(poster_, layout_);
    std::shared_ptr<RecordingScriptRunner> runner_ = std::make_shared<RecordingScriptRunner>();
    std::string commandKey_ = "control";
    std::unique_ptr<PZKeyboard> keyboard_;
};

TEST_F(PZKeyboardTest, simulate_instructionsWithMethod1_postTheirKeysInOrder) {
    using Locks = std::optional<KeyboardLayout::LockState>;
    struct Case {
        const char* instruction;
        Events events;
        const char* commandKey = "control";
        Locks locks = KeyboardLayout::LockState{false, true};
    };
    const Case cases[] = {
        {"a", {"key+30", "key-30"}},
        {"A", {"key+42", "key+30", "key-30", "key-42"}},    // capital alone: shift map
        {"#4 c", {"key+29", "key+46", "key-46", "key-29"}}, // command is Control
        {"#1 #4 LeftArrow",
         {"key+42", "key+29", "key+105", "key-105", "key-42", "key-29"}}, // released in order
        {"#1 A", {"key+42", "key+30", "key-30", "key-42"}},               // lowered with a modifier
        {"#2 !", {"key+29", "key+2", "key-2", "key-29"}},                 // the instruction's modifiers only
        {"€", {"key+100", "key+18", "key-18", "key-100"}},                // option map: the third level
        {"numpadesc", {"key+1", "key-1"}},
        {"eject", {"key+161", "key-161"}},   // XF86Eject's key
        {"play", {"key+164", "key-164"}},    // XF86AudioPlay's key
        {"restart", {"key+116", "key-116"}}, // XF86PowerOff's key
        {"#3 next", {"key+100", "key+163", "key-163", "key-100"}},
        {"#4 c", {"key+125", "key+46", "key-46", "key-125"}, "super"}, // the preferred command key
        {"#4 c", {"key+56", "key+46", "key-46", "key-56"}, "alt"},
        // The keyboard's locked modifiers: Caps Lock released, Num Lock set around the key.
        {"a", {"key+58", "key-58", "key+30", "key-30", "key+58", "key-58"}, "control", Locks({true, true})},
        {"numpad5",
         {"key+69", "key-69", "key+76", "key-76", "key+69", "key-69"},
         "control",
         Locks({false, false})},
        {"numpadreturn", {"key+96", "key-96"}, "control", Locks({false, false})}, // Enter needs no Num Lock
        {"numpad5", {"key+76", "key-76"}, "control", std::nullopt},               // unknown: left alone
    };
    for (const Case& c : cases) {
        commandKey_ = c.commandKey;
        layout_->locks = c.locks;
        EXPECT_TRUE(type(c.instruction)) << c.instruction << " " << c.commandKey;
        EXPECT_EQ(poster_->takeEvents(), c.events) << c.instruction << " " << c.commandKey;
    }
}

TEST_F(PZKeyboardTest, simulate_unknownOrEmptyKeyOrOtherMethod_falseAndNothingPosted) {
    // "#9 xyz": the unknown key is found before the unknown mark; "A", method 3: no method 3 for the
    // map's modifiers.
    const std::pair<const char*, int> cases[] = {{"", 1},       {"xyz", 1}, {"#1 xyz", 1},
                                                 {"#9 xyz", 1}, {"a", 3},   {"A", 3}};
    for (const auto& [instruction, method] : cases) {
        EXPECT_FALSE(type(instruction, method)) << '"' << instruction << '"';
        EXPECT_TRUE(poster_->takeEvents().empty()) << instruction;
    }
    EXPECT_THROW(type("#1 a", 3), PZException); // no method 3 for the instruction's modifiers
}

TEST_F(PZKeyboardTest, simulate_unknownMarkBeforeKnownKey_raisesUnknownModifier) {
    for (const char* instruction : {"#9 a", "#4  c"}) { // unknown, empty
        try {
            type(instruction);
            FAIL() << instruction;
        } catch (const PZException& e) {
            EXPECT_EQ(e.name(), "PZKeyboard getModifiersFrom:");
            EXPECT_EQ(e.reason().rfind("Unknown modifier ", 0), 0u) << e.reason();
        }
    }
    EXPECT_TRUE(poster_->takeEvents().empty());
}

TEST_F(PZKeyboardTest, simulate_modifierFlags_setWhileHeldAndClearedAfter) {
    EXPECT_TRUE(type("#1 #4 c"));
    ASSERT_EQ(poster_->flagsAtKeys.size(), 6u);
    EXPECT_EQ(poster_->flagsAtKeys[2], KeyEventSender::shiftFlag | KeyEventSender::commandFlag);
    EXPECT_EQ(KeyEventSender::currentModifierFlags(), 0u);
}

TEST_F(PZKeyboardTest, simulate_characterOnNoKey_typedThroughTemporaryKey) {
    layout_->canBind = true;
    EXPECT_TRUE(type("ő"));
    EXPECT_TRUE(type("ÿ"));
    EXPECT_TRUE(type("#1 😀"));
    EXPECT_EQ(layout_->boundKeysyms, (std::vector<std::uint32_t>{0x01000151, 0xff, 0x0101f600}));
    EXPECT_EQ(poster_->takeEvents(),
              (Events{"key+200", "key-200", "key+200", "key-200", "key+42", "key+200", "key-200", "key-42"}));
    // Several characters, a control character and method 2 are not typed that way.
    EXPECT_FALSE(type("őő"));
    EXPECT_FALSE(type("\x01"));
    EXPECT_FALSE(type("ő", 2));
    EXPECT_EQ(layout_->boundKeysyms.size(), 3u);
    layout_->canBind = false;
    EXPECT_FALSE(type("ő"));
}

TEST_F(PZKeyboardTest, simulate_layoutChange_mapsRebuiltBeforeTheNextKey) {
    EXPECT_TRUE(type("z"));
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+44", "key-44"}));
    // A German layout: z and y change places.
    std::swap(layout_->keys[KEY_Z], layout_->keys[KEY_Y]);
    layout_->changed = true;
    EXPECT_TRUE(type("z"));
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+21", "key-21"}));
}

TEST_F(PZKeyboardTest, simulate_method2_scriptsWithKeyCodeModifiersAndProcess) {
    struct ScriptCase {
        const char* instruction;
        std::optional<std::string> process;
        std::string source;
    };
    const std::string se = "tell application \"System Events\"\n";
    const ScriptCase cases[] = {
        {"mute", std::nullopt, se + "key code 74\nend tell"},
        {"#4 c", "TextEdit",
         se + "tell process \"TextEdit\"\nkey code 8 using {command down}\nend tell\nend tell"},
        {"A", std::nullopt, se + "key code 0 using {shift down}\nend tell"},
        {"#1 #2 #3 #4 return", std::nullopt,
         se + "key code 36 using {shift down, control down, option down, command down}\nend tell"},
    };
    for (const ScriptCase& c : cases) {
        EXPECT_TRUE(type(c.instruction, 2, c.process)) << c.instruction;
        ASSERT_FALSE(runner_->sources.empty());
        EXPECT_EQ(runner_->sources.back(), c.source) << c.instruction;
    }
    EXPECT_TRUE(poster_->takeEvents().empty());
    runner_->sources.clear();
    EXPECT_FALSE(type("eject", 2)); // special keys are method 1 only
    EXPECT_TRUE(runner_->sources.empty());
}

TEST_F(PZKeyboardTest, simulate_method2ScriptFails_falseErrorKeptAndTwoLogLines) {
    runner_->failure = ScriptRunner::Error{-1728, "no such process"};
    LogCapture log;
    EXPECT_FALSE(type("a", 2));
    const auto lines = log.lines();
    ASSERT_TRUE(keyboard_->error().has_value());
    EXPECT_EQ(keyboard_->error()->number, -1728);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("PZKeyboard asyncAppleScript error: ", 0), 0u);
    EXPECT_EQ(lines[1].rfind("PZKeyboard error asyncAppleScript: ", 0), 0u);
    runner_->failure.reset();
    EXPECT_TRUE(type("a", 2));
    EXPECT_FALSE(keyboard_->error().has_value());
}

TEST_F(PZKeyboardTest, simulate_doubledModifierWithBuiltInRunner_scriptDoesNotCompile) {
    auto runner = std::make_shared<SystemEventsScriptRunner>(keys_, nullptr, nullptr);
    PZKeyboard keyboard(layout_, keys_, runner);
    EXPECT_EQ(
        PZKeyboard::makeASSourceWithKeyCodeWithModifiersToProcess(8, {"command down", "command down"}, "x"),
        "tell application \"System Events\"\ntell process \"x\"\nkey code 8 using {command down}\ncommand "
        "down}\nend tell\nend tell");
    EXPECT_FALSE(keyboard.simulateToProcessWithMethod("#4 #4 c", std::nullopt, 2));
    ASSERT_TRUE(keyboard.error().has_value());
    EXPECT_EQ(keyboard.error()->number, SystemEventsScriptRunner::syntaxErrorNumber);
    EXPECT_TRUE(keyboard.simulateToProcessWithMethod("#4 c", std::nullopt, 2));
    EXPECT_EQ(poster_->takeEvents(), (Events{"key+29", "key+46", "key-46", "key-29"}));
}

TEST(PZKeyboardStaticTest, isNumpadKey_anyCase_cleanedInOnePass) {
    const std::pair<const char*, const char*> cases[] = {
        {"numpad5", "5"}, {"5numpadNumPad", "5"}, {"nunumpadmpad", "numpad"}, {"numpad", ""}};
    for (const auto& [key, expected] : cases) {
        std::string cleaned = "untouched";
        EXPECT_TRUE(PZKeyboard::isNumpadKeyCleaned(key, cleaned)) << key;
        EXPECT_EQ(cleaned, expected) << key;
    }
    std::string cleaned = "untouched";
    EXPECT_FALSE(PZKeyboard::isNumpadKeyCleaned("num pad", cleaned));
    EXPECT_EQ(cleaned, "untouched");
}

TEST(PZKeyboardStaticTest, lookupsByName_withoutRegardToCaseAndNamedExceptions) {
    EXPECT_EQ(PZKeyboard::getIndipendetCode("TAB"), 48);
    EXPECT_EQ(PZKeyboard::getIndipendetCode("forwarddelete"), PZKeyboard::getIndipendetCode("canc"));
    int kind = 0;
    EXPECT_EQ(PZKeyboard::getCodeFromSpecialMapType("EJECT", kind), 10);
    EXPECT_EQ(kind, 2);
    EXPECT_EQ(PZKeyboard::getCodeFromSpecialMapType("Next", kind), 17);
    EXPECT_EQ(kind, 3);
    const std::tuple<std::function<void()>, const char*, const char*> failures[] = {
        {[] { PZKeyboard::getIndipendetCode("F16"); }, "PZKeybaord getIndipendetCode:", "code not found"},
        {[&] { PZKeyboard::getCodeFromSpecialMapType("previous", kind); }, "PZKeyboard getCodeFromSpecialMap",
         "key code not found"},
    };
    for (const auto& [call, name, reason] : failures) {
        try {
            call();
            ADD_FAILURE() << name;
        } catch (const PZException& e) {
            EXPECT_EQ(e.name(), name);
            EXPECT_EQ(e.reason(), reason);
        }
    }
}

TEST(PZKeyboardStaticTest, getModifiersFrom_marksAndCodesPerMethod) {
    EXPECT_EQ(
        PZKeyboard::getModifiersFromForMethod(std::vector<std::string>{"#4", "#1", "#3", "#2"}, 1).keyCodes,
        (std::vector<int>{55, 56, 58, 59}));
    EXPECT_EQ(PZKeyboard::getModifiersFromForMethod(std::vector<std::string>{"#2", "#4"}, 2).words,
              (std::vector<std::string>{"control down", "command down"}));
    EXPECT_EQ(PZKeyboard::getModifiersFromForMethod(std::vector<int>{57, 99}, 1).keyCodes,
              (std::vector<int>{57, 99})); // codes pass through unchanged for method 1
    EXPECT_EQ(PZKeyboard::getModifiersFromForMethod(std::vector<int>{56, 58}, 2).words,
              (std::vector<std::string>{"shift down", "option down"}));
    EXPECT_THROW(PZKeyboard::getModifiersFromForMethod(std::vector<int>{57}, 2), PZException);
    EXPECT_THROW(PZKeyboard::getModifiersFromForMethod(std::vector<std::string>{"#1"}, 0), PZException);
    EXPECT_TRUE(PZKeyboard::getModifiersFromForMethod(std::vector<std::string>{}, 0).keyCodes.empty());
    try {
        PZKeyboard::getModifiersFromForMethod(std::vector<std::string>{"#1", "#5"}, 1);
        FAIL();
    } catch (const PZException& e) {
        EXPECT_EQ(e.reason(), "Unknown modifier #5");
    }
}

} // namespace
