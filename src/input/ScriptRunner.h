#pragma once

#include <optional>
#include <string>

// Runs the script texts that the keyboard (method 2) and the power commands generate, addressed to
// "System Events". The built-in runner (SystemEventsScriptRunner) is the only one on Linux; tests of
// other layers may give a fake.
class ScriptRunner {
public:
    // What a script reported when it failed to compile or to run.
    struct Error {
        int number = 0;
        std::string message;
        // "{number = N; message = "..."}", the form written to the log.
        std::string description() const;
    };

    virtual ~ScriptRunner() = default;

    // Compiles and runs `source`; nothing when it ran cleanly, else its error.
    virtual std::optional<Error> runScript(const std::string& source) = 0;
};
