#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

// Brings a process's window to the front and tells when the keyboard focus has moved there.
class ProcessActivator {
public:
    virtual ~ProcessActivator() = default;

    // Raises the process's top-most window; true when such a window exists and the request was sent.
    virtual bool activateProcess(std::int64_t pid) = 0;
    // The same for the process whose executable is called `name`; its pid, nothing when none has a window.
    virtual std::optional<std::int64_t> activateProcessNamed(const std::string& name) = 0;
    // Waits until a window of `pid` has the focus, at most `timeout`; true when it has.
    virtual bool waitForFocus(std::int64_t pid, std::chrono::milliseconds timeout) = 0;
};
