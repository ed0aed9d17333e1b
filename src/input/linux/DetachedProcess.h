#pragma once

#include <string>
#include <vector>

// Starts a program on its own: in a new session, with standard input from /dev/null, no other
// descriptor of this process, default signal handling, and no zombie left behind (an intermediate
// child exits at once and is reaped; the program is adopted by init). No shell is used.
class DetachedProcess {
public:
    // Starts argv[0] (searched in PATH when it has no slash) with the arguments. True once the
    // program was executed; false, with the reason in `error`, when it could not be.
    static bool spawn(const std::vector<std::string>& argv, std::string* error = nullptr);
};
