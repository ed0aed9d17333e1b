#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// Runs a program with an argument vector (never through a shell) and collects what it writes to
// its standard output.
class ProgramOutput {
public:
    // The standard output of `arguments` (the program found on PATH) when it exits with status 0
    // within `timeout`; nothing when it cannot start, fails or takes too long (it is then killed).
    // At most `limit` bytes are kept.
    static std::optional<std::string> run(const std::vector<std::string>& arguments,
                                          std::chrono::milliseconds timeout = std::chrono::seconds(3),
                                          std::size_t limit = 1 << 20);
};
