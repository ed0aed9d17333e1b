#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The Exec= key of a desktop entry turned into an argument vector by freedesktop.org's rules for
// desktop entries: the string escapes of the key's value, then arguments separated by
// spaces, double-quoted arguments with \" \` \$ \\ inside, and the field codes (%f %U %i ...) dropped;
// "%%" is a percent sign. No shell takes part. Nothing when the value is malformed (an unclosed
// quote, an empty program).
class DesktopExec {
public:
    static std::optional<std::vector<std::string>> parse(std::string_view exec);
};
