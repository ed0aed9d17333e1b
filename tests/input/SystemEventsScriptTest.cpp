#include "input/SystemEventsScript.h"
#include "fakes/FakeEventPoster.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakePowerActions.h"
#include "fakes/FakeProcessActivator.h"
#include "input/KeyEventSender.h"
#include "input/SystemEventsScriptRunner.h"

#include <gtest/gtest.h>

namespace {

using Action = SystemEventsScript::Action;
using namespace std::string_literals;

TEST(SystemEventsScriptTest, compile_generatedTexts_understood) {
    struct Case {
        std::string source;
        Action action;
        std::optional<std::string> process;
        int keyCode;
        std::vector<int> modifiers;
    };
    const Case cases[] = {
        {"tell application \"System Events\" to sleep", Action::sleep, std::nullopt, 0, {}},
        {"tell application \"System Events\" to shut down", Action::shutDown, std::nullopt, 0, {}},
        {"tell application \"System Events\" to restart", Action::restart, std::nullopt, 0, {}},
        {"tell application \"System Events\"\nkey code 74\nend tell", Action::keyCode, std::nullopt, 74, {}},
        {"tell application \"System Events\"\nkey code 0 using {shift down}\nend tell",
         Action::keyCode,
         std::nullopt,
         0,
         {56}},
        {"tell application \"System Events\"\ntell process \"Text Edit\"\nkey code 8 using {command down, "
         "option "
         "down, control down, shift down}\nend tell\nend tell",
         Action::keyCode,
         "Text Edit",
         8,
         {55, 58, 59, 56}},
        {"tell application \"System Events\"\ntell process \"a \\\"b\\\" \\\\ c\"\nkey code 123\nend "
         "tell\nend tell",
         Action::keyCode,
         "a \"b\" \\ c",
         123,
         {}},
        {"tell application \"System Events\"\ntell process \"\"\nkey code 99999\nend tell\nend tell",
         Action::keyCode,
         "",
         99999,
         {}},
    };
    for (const Case& c : cases) {
        std::string error;
        const auto script = SystemEventsScript::compile(c.source, &error);
        ASSERT_TRUE(script.has_value()) << c.source << ": " << error;
        EXPECT_EQ(script->action(), c.action);
        EXPECT_EQ(script->processName(), c.process);
        EXPECT_EQ(script->keyCode(), c.keyCode);
        EXPECT_EQ(script->modifiers(), c.modifiers);
    }
}

TEST(SystemEventsScriptTest, compile_hostileTexts_compileErrors) {
    const std::string hostile[] = {
        "",
        "tell application \"System Events\"",
        "tell application \"System Events\" to sleep\n",
        "tell application \"System Events\" to sleep now",
        "tell application \"System Events\" to shutdown",
        "tell application \"Finder\" to sleep",
        "TELL APPLICATION \"System Events\" to sleep",
        "tell application \"System Events\"\nkey code 8 using {command down}\ncommand down}\nend tell",
        "tell application \"System Events\"\ntell process \"x\"\nkey code 8 using {command down}\ncommand "
        "down}\nend "
        "tell\nend tell",
        "tell application \"System Events\"\nkey code -1\nend tell",
        "tell application \"System Events\"\nkey code 123456\nend tell",
        "tell application \"System Events\"\nkey code \nend tell",
        "tell application \"System Events\"\nkey code 8 using {}\nend tell",
        "tell application \"System Events\"\nkey code 8 using {command down,shift down}\nend tell",
        "tell application \"System Events\"\nkey code 8 using {command up}\nend tell",
        "tell application \"System Events\"\nkey code 8 using command down\nend tell",
        "tell application \"System Events\"\nkey code 8\nend tell\n",
        "tell application \"System Events\"\nkey code 8\nend tell\nend tell",
        "tell application \"System Events\"\nkey code 8\nkey code 9\nend tell",
        "tell application \"System Events\"\ntell process \"x\"\nkey code 8\nend tell",
        "tell application \"System Events\"\ntell process \"x\nkey code 8\nend tell\nend tell",
        "tell application \"System Events\"\ntell process \"x\\q\"\nkey code 8\nend tell\nend tell",
        "tell application \"System Events\"\ntell process \"a\"b\"\nkey code 8\nend tell\nend tell",
        "tell application \"System Events\"\ndo shell script \"rm -rf /\"\nend tell",
        "do shell script \"touch /tmp/x\"",
        "tell application \"System Events\"\nkeystroke \"a\"\nend tell",
        "tell application \"System Events\"\nkey code 8\0\nend tell"s,
        "tell application \"System Events\" to sleep" + std::string(100000, ' '),
        std::string(1 << 20, '{'),
    };
    for (const std::string& source : hostile) {
        std::string error;
        EXPECT_FALSE(SystemEventsScript::compile(source, &error).has_value()) << source.substr(0, 120);
        EXPECT_EQ(error.rfind("Syntax error: expected ", 0), 0u) << error;
    }
}

class SystemEventsScriptRunnerTest : public ::testing::Test {
protected:
    std::shared_ptr<FakeEventPoster> poster_ = std::make_shared<FakeEventPoster>();
    std::shared_ptr<FakeKeyboardLayout> layout_ = std::make_shared<FakeKeyboardLayout>();
    std::shared_ptr<KeyEventSender> keys_ = std::make_shared<KeyEventSender>(poster_, layout_);
    std::shared_ptr<FakeProcessActivator> activator_ = std::make_shared<FakeProcessActivator>();
    std::shared_ptr<FakePowerActions> power_ = std::make_shared<FakePowerActions>();
    SystemEventsScriptRunner runner_{keys_, activator_, power_};
};

TEST_F(SystemEventsScriptRunnerTest, runScript_powerVerbs_reachPowerActions) {
    EXPECT_FALSE(runner_.runScript("tell application \"System Events\" to sleep").has_value());
    EXPECT_FALSE(runner_.runScript("tell application \"System Events\" to restart").has_value());
    EXPECT_FALSE(runner_.runScript("tell application \"System Events\" to shut down").has_value());
    EXPECT_EQ(power_->calls, (std::vector<std::string>{"suspend", "reboot", "powerOff"}));
    power_->refusal = "logind is not running";
    const auto error = runner_.runScript("tell application \"System Events\" to sleep");
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->message.find("logind is not running"), std::string::npos);
    EXPECT_TRUE(poster_->takeEvents().empty());
}

TEST_F(SystemEventsScriptRunnerTest, runScript_keyCodeInProcess_raisesProcessThenTypes) {
    activator_->processes[4242] = "gedit";
    EXPECT_FALSE(
        runner_
            .runScript("tell application \"System Events\"\ntell process \"gedit\"\nkey code 0 using {shift "
                       "down}\nend tell\nend tell")
            .has_value());
    EXPECT_EQ(activator_->activated, std::vector<std::int64_t>{4242});
    EXPECT_EQ(activator_->waitedFor, std::vector<std::int64_t>{4242});
    EXPECT_EQ(poster_->takeEvents(), (std::vector<std::string>{"key+42", "key+30", "key-30", "key-42"}));
}

TEST_F(SystemEventsScriptRunnerTest, runScript_unknownProcessOrKeyOrSyntax_errorAndNoKey) {
    const auto noProcess = runner_.runScript(
        "tell application \"System Events\"\ntell process \"nothing\"\nkey code 0\nend tell\nend tell");
    ASSERT_TRUE(noProcess.has_value());
    EXPECT_EQ(noProcess->number, SystemEventsScriptRunner::noSuchProcessNumber);
    const auto noKey =
        runner_.runScript("tell application \"System Events\"\nkey code 200 using {shift down}\nend tell");
    ASSERT_TRUE(noKey.has_value());
    EXPECT_EQ(noKey->number, SystemEventsScriptRunner::refusedNumber);
    const auto syntax = runner_.runScript("tell application \"System Events\" to do shell script \"id\"");
    ASSERT_TRUE(syntax.has_value());
    EXPECT_EQ(syntax->number, SystemEventsScriptRunner::syntaxErrorNumber);
    EXPECT_TRUE(poster_->takeEvents().empty());
    EXPECT_TRUE(power_->calls.empty());
    EXPECT_EQ(syntax->description().rfind("{number = -2741; message = \"Syntax error", 0), 0u);
}

} // namespace
