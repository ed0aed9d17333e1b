#pragma once

#include "platform/x11/X11Connection.h"

#include <cstdint>
#include <mutex>
#include <string>

// The X connection that the XTest poster and the X11 keyboard layout share, so that a temporary key
// binding reaches the server before the key press that uses it. XCB owns its event queue (the
// layout reads the XKB events with xcb). Every use holds lock(); the connection is made again after
// the X server went away.
class X11InputConnection {
public:
    explicit X11InputConnection(std::string displayName = {});

    // The lock that serialises the use of the connection.
    std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock<std::recursive_mutex>(mutex_); }
    // Under lock(): a live display, or nullptr when no X server answers.
    X11Display* display();
    // Under lock(): increases with every new connection, so users set up their state again.
    std::uint64_t generation() const { return generation_; }
    // Under lock(): whether the XTEST extension is there (false without a display).
    bool hasXTest() const { return hasXTest_; }

private:
    X11Connection connection_;
    X11Display* current_ = nullptr;
    std::recursive_mutex mutex_;
    std::uint64_t generation_ = 0;
    bool hasXTest_ = false;
};
