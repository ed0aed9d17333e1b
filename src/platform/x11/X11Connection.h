#pragma once

#include "platform/x11/X11Display.h"

#include <chrono>
#include <memory>
#include <string>

// The X connection of one back end: opened on first use, dropped when it is lost and opened
// again on a later use, so that a restarted X server is used again without restarting the
// program. Not thread-safe: its owner serialises the use (each back end has its own).
class X11Connection {
public:
    // `displayName` empty: $DISPLAY at the time of each connection attempt.
    explicit X11Connection(std::string owner, std::string displayName = {});

    // A live display, or nullptr when no X server answers. Attempts are made at most once per
    // `retryInterval` while the server is away; "no X display" is logged once per absence.
    X11Display* get();

    // Forgets the current display (for example after the owner saw it fail); the next get() reconnects.
    void reset();

    void setRetryInterval(std::chrono::milliseconds interval) { retryInterval_ = interval; }

private:
    std::string owner_;
    std::string displayName_;
    std::unique_ptr<X11Display> display_;
    std::chrono::steady_clock::time_point lastAttempt_{};
    std::chrono::milliseconds retryInterval_{1000};
    bool attempted_ = false;
    bool absenceLogged_ = false;
};
