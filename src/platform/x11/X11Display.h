#pragma once

#include <xcb/xcb.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

// Xlib's own headers define macros such as None, Status and Bool that clash with other code:
// they are included only where Xlib is called.
typedef struct _XDisplay Display;

// One Xlib connection to an X server, with its XCB view for pipelined requests.
//
// Every back end that can run on its own thread opens its own X11Display. X protocol errors
// never end the process: they are collected by the non-fatal handler and can be caught with an
// X11ErrorTrap. A lost connection (the X server went away) marks the display as lost instead of
// exiting; its owner drops it and opens a new one on a later use (see X11Connection).
class X11Display {
public:
    // Opens a connection to `name` (nullptr: $DISPLAY). Returns nullptr when no X server answers.
    static std::unique_ptr<X11Display> open(const char* name = nullptr);

    // Calls XInitThreads and installs the process-wide non-fatal handlers; safe to call often.
    // Must run before any other Xlib call of the process: main() calls it first thing.
    static void initThreads();

    ~X11Display();
    X11Display(const X11Display&) = delete;
    X11Display& operator=(const X11Display&) = delete;

    Display* display() const { return display_; }
    xcb_connection_t* xcb() const { return xcb_; }
    // The root window of the default screen.
    unsigned long root() const { return root_; }
    int screenNumber() const { return screen_; }
    const std::string& name() const { return name_; }

    // True once the connection to the X server has been lost; nothing should use it any more.
    bool isLost() const;

    // The atom of `name`, interned once per connection (None on failure).
    unsigned long atom(const char* name);

private:
    X11Display(Display* display, std::string name);
    static void onConnectionLost(Display* display, void* userData);

    Display* display_ = nullptr;
    xcb_connection_t* xcb_ = nullptr;
    unsigned long root_ = 0;
    int screen_ = 0;
    std::string name_;
    std::atomic<bool> lost_{false};
    std::mutex atomsMutex_;
    std::unordered_map<std::string, unsigned long> atoms_;
};
