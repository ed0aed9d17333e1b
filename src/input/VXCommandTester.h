#pragma once

class VXCommand;
class VXError;

// Watches the command executor (the keyboard test view). The calls arrive on the main thread while
// the executing thread waits.
class VXCommandTester {
public:
    virtual ~VXCommandTester() = default;

    // Before a command runs.
    virtual void willExecuteCommand(const VXCommand& command) { (void)command; }
    // After a command ran without error.
    virtual void didExecuteCommand(const VXCommand& command) { (void)command; }
    // Declared for testers; the executor itself does not send it.
    virtual void commandExecutingGenerateError(const VXCommand& command, const VXError& error) {
        (void)command;
        (void)error;
    }
};
