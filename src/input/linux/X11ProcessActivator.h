#pragma once

#include "input/ProcessActivator.h"
#include "platform/x11/X11Connection.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>

// Brings processes to the front through the window manager (EWMH _NET_ACTIVE_WINDOW on the process's
// top-most managed window; without a window manager the window gets the input focus directly). The
// active window is followed through property events on the root window, so a command for the
// process already in front costs no round trip to the X server. Has its own X connection.
class X11ProcessActivator : public ProcessActivator {
public:
    // `displayName` empty: $DISPLAY.
    explicit X11ProcessActivator(std::string displayName = {});

    bool activateProcess(std::int64_t pid) override;
    std::optional<std::int64_t> activateProcessNamed(const std::string& name) override;
    bool waitForFocus(std::int64_t pid, std::chrono::milliseconds timeout) override;

private:
    X11Display* display();
    void readEvents();
    std::uint32_t activeWindow();
    int pidOfWindow(std::uint32_t window);
    bool activeBelongsTo(std::int64_t pid);
    bool focusBelongsTo(std::int64_t pid);
    void raise(std::uint32_t window);

    std::mutex mutex_;
    X11Connection connection_;
    X11Display* current_ = nullptr;
    bool activeStale_ = true;
    std::uint32_t active_ = 0;
    std::unordered_map<std::uint32_t, int> pids_;
};
