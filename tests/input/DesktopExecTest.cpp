#include "input/linux/DesktopExec.h"

#include <gtest/gtest.h>

namespace {

using Args = std::vector<std::string>;

TEST(DesktopExecTest, parse_execValues_argumentVectors) {
    const std::pair<const char*, Args> cases[] = {
        {"gedit %U", {"gedit"}},
        {"/usr/bin/foo --file=%f --bar", {"/usr/bin/foo", "--file=", "--bar"}},
        {"\"/opt/My App/run\" --x", {"/opt/My App/run", "--x"}},
        // The value's own escapes come first: \\\\ in the file is one backslash for the command.
        {"sh -c \"echo \\\"hi\\\" \\$HOME \\`id\\` \\\\\\\\\"", {"sh", "-c", "echo \"hi\" $HOME `id` \\"}},
        {"foo %% 100%%", {"foo", "%", "100%"}},
        {"foo\\sbar", {"foo", "bar"}},
        {"env  A=1   prog", {"env", "A=1", "prog"}},
        {"foo \"\"", {"foo", ""}},
        {"foo ; rm -rf ~ && $(reboot) | cat > x",
         {"foo", ";", "rm", "-rf", "~", "&&", "$(reboot)", "|", "cat", ">", "x"}},
    };
    for (const auto& [exec, expected] : cases) {
        const auto parsed = DesktopExec::parse(exec);
        ASSERT_TRUE(parsed.has_value()) << exec;
        EXPECT_EQ(*parsed, expected) << exec;
    }
}

TEST(DesktopExecTest, parse_malformedValues_nothing) {
    // The last: \\" in the file escapes the quote, which is then never closed.
    for (const char* exec : {"", "\"unclosed", "\"\" foo", "sh -c \"a \\\\\""}) {
        EXPECT_FALSE(DesktopExec::parse(exec).has_value()) << exec;
    }
}

} // namespace
