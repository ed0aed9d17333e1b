#pragma once

#include "input/ProcessActivator.h"
#include "platform/x11/X11Connection.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

// Brings processes to the front through the window manager (EWMH _NET_ACTIVE_WINDOW on the process's
// top-most managed window; without a window manager the window gets the input focus directly). Whether
// a process is in front is read from the X input focus itself, not from the window manager's active
// window, which it announces only after the focus moved. Once read, the focus window is watched for
// focus and structure events, so that commands for the process in front cost no round trip to the X
// server until the focus leaves it. The process of each window is remembered until windows come or
// go. A window manager busy with another window's arrival may pass over a request to activate one
// that it still takes for the active one: while the focus is awaited the request is repeated. Has its
// own X connection.
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
    // The process of a window or of the nearest ancestor that names one (0: none).
    int pidOfWindow(std::uint32_t window);
    bool focusBelongsTo(std::int64_t pid);
    void raise(std::uint32_t window);
    // The managed windows (without a window manager: the mapped top-level windows), top-most last.
    std::vector<std::uint32_t> windowsBottomToTop();

    std::mutex mutex_;
    X11Connection connection_;
    X11Display* current_ = nullptr;
    std::unordered_map<std::uint32_t, int> pids_;
    // The focus window as last read (0: unknown), watched until the focus leaves it, and its process.
    std::uint32_t focus_ = 0;
    int focusPid_ = 0;
    // The window last brought to the front and its process: asked for again while the focus is awaited.
    std::uint32_t raised_ = 0;
    std::int64_t raisedPid_ = 0;
};
