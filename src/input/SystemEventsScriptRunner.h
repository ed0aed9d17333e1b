#pragma once

#include "input/ScriptRunner.h"

#include <chrono>
#include <memory>

class KeyEventSender;
class PowerActions;
class ProcessActivator;

// The built-in "System Events": compiles a script (SystemEventsScript) and runs it. "key code"
// raises the named process's window first (and waits for the focus), then types through the key
// sender; sleep, shut down and restart go to the power actions.
class SystemEventsScriptRunner : public ScriptRunner {
public:
    // Compile errors carry this number, as the scripting system numbers a syntax error.
    static constexpr int syntaxErrorNumber = -2741;
    // A process that cannot be found.
    static constexpr int noSuchProcessNumber = -1728;
    // A command that the system refused.
    static constexpr int refusedNumber = -10000;

    SystemEventsScriptRunner(std::shared_ptr<KeyEventSender> keys,
                             std::shared_ptr<ProcessActivator> activator, std::shared_ptr<PowerActions> power,
                             std::chrono::milliseconds focusTimeout = std::chrono::milliseconds(100));

    std::optional<Error> runScript(const std::string& source) override;

private:
    std::shared_ptr<KeyEventSender> keys_;
    std::shared_ptr<ProcessActivator> activator_;
    std::shared_ptr<PowerActions> power_;
    std::chrono::milliseconds focusTimeout_;
};
