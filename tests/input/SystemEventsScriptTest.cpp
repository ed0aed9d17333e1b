#include "input/SystemEventsScript.h"
#include "fakes/FakeEventPoster.h"
#include "fakes/FakeKeyboardLayout.h"
#include "fakes/FakeSystemBackends.h"
#include "input/KeyEventSender.h"
#include "input/SystemEventsScriptRunner.h"

#include <gtest/gtest.h>

namespace {

using Action = SystemEventsScript::Action;
using namespace std::string_literals;

const std::string se = "tell application \"System Events\"";

TEST(SystemEventsScriptTest, compile_generatedTexts_understood) {
    struct Case {
        std::string source;
        Action action;
        std::optional<std::string> process;
        int keyCode;
        std::vector<int> modifiers;
    };
    const Case cases[] = {
        {se + " to sleep", Action::sleep, std::nullopt, 0, {}},
        {se + " to shut down", Action::shutDown, std::nullopt, 0, {}},
        {se + " to restart", Action::restart, std::nullopt, 0, {}},
        {se + "\nkey code 74\nend tell", Action::keyCode, std::nullopt, 74, {}},
        {se + "\ntell process \"Text Edit\"\nkey code 8 using {command down, option down, control down, "
              "shift down}\nend tell\nend tell",
         Action::keyCode,
         "Text Edit",
         8,
         {55, 58, 59, 56}},
        {se + "\ntell process \"a \\\"b\\\" \\\\ c\"\nkey code 123\nend tell\nend tell",
         Action::keyCode,
         "a \"b\" \\ c",
         123,
         {}},
        {se + "\ntell process \"\"\nkey code 99999\nend tell\nend tell", Action::keyCode, "", 99999, {}},
    };
    for (const Case& c : cases) {
        std::string error;
        const auto script = SystemEventsScript::compile(c.source, &error);
        ASSERT_TRUE(script.has_value()) << c.source << ": " << error;
        EXPECT_EQ(script->action(), c.action) << c.source;
        EXPECT_EQ(script->processName(), c.process) << c.source;
        EXPECT_EQ(script->keyCode(), c.keyCode) << c.source;
        EXPECT_EQ(script->modifiers(), c.modifiers) << c.source;
    }
}

TEST(SystemEventsScriptTest, compile_hostileTexts_compileErrors) {
    // One per way of failing; the last two are the doubled modifier and an oversize text.
    const std::string hostile[] = {
        "",
        "tell application \"Finder\" to sleep",
        se,
        se + " to sleep now",
        se + " to shutdown",
        se + "\nkey code -1\nend tell",
        se + "\nkey code 123456\nend tell",
        se + "\nkey code 8 using {}\nend tell",
        se + "\nkey code 8 using {command down,shift down}\nend tell",
        se + "\nkey code 8\0\nend tell"s,
        se + "\nkey code 8\nend tell\nend tell",
        se + "\ntell process \"x\nkey code 8\nend tell\nend tell",
        se + "\ntell process \"x\\q\"\nkey code 8\nend tell\nend tell",
        se + "\ntell process \"a\"b\"\nkey code 8\nend tell\nend tell",
        se + "\ndo shell script \"rm -rf /\"\nend tell",
        se + "\ntell process \"x\"\nkey code 8 using {command down}\ncommand down}\nend tell\nend tell",
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

// The three verbs reaching the power actions are proven through the executor's special commands.
TEST_F(SystemEventsScriptRunnerTest, runScript_powerVerbRefused_reasonInTheError) {
    power_->refusal = "logind is not running";
    const auto error = runner_.runScript(se + " to sleep");
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->message.find("logind is not running"), std::string::npos);
    EXPECT_TRUE(poster_->takeEvents().empty());
}

TEST_F(SystemEventsScriptRunnerTest, runScript_keyCodeInProcess_raisesProcessThenTypes) {
    activator_->processes[4242] = "gedit";
    const auto source = se + "\ntell process \"gedit\"\nkey code 0 using {shift down}\nend tell\nend tell";
    EXPECT_FALSE(runner_.runScript(source).has_value());
    EXPECT_EQ(activator_->activated, std::vector<std::int64_t>{4242});
    EXPECT_EQ(activator_->waitedFor, std::vector<std::int64_t>{4242});
    EXPECT_EQ(poster_->takeEvents(), (std::vector<std::string>{"key+42", "key+30", "key-30", "key-42"}));
}

TEST_F(SystemEventsScriptRunnerTest, runScript_unknownProcessOrKeyOrSyntax_errorAndNoKey) {
    const auto noProcess =
        runner_.runScript(se + "\ntell process \"nothing\"\nkey code 0\nend tell\nend tell");
    ASSERT_TRUE(noProcess.has_value());
    EXPECT_EQ(noProcess->number, SystemEventsScriptRunner::noSuchProcessNumber);
    const auto noKey = runner_.runScript(se + "\nkey code 200 using {shift down}\nend tell");
    ASSERT_TRUE(noKey.has_value());
    EXPECT_EQ(noKey->number, SystemEventsScriptRunner::refusedNumber);
    const auto syntax = runner_.runScript(se + " to do shell script \"id\"");
    ASSERT_TRUE(syntax.has_value());
    EXPECT_EQ(syntax->number, SystemEventsScriptRunner::syntaxErrorNumber);
    EXPECT_TRUE(poster_->takeEvents().empty());
    EXPECT_TRUE(power_->calls.empty());
    EXPECT_EQ(syntax->description().rfind("{number = -2741; message = \"Syntax error", 0), 0u);
}

} // namespace
