#pragma once

#include "platform/x11/X11Display.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What one window says about itself through EWMH and ICCCM properties.
struct X11WindowInfo {
    xcb_window_t window = 0;
    bool exists = false;           // false when the window vanished before it was asked
    int pid = 0;                   // _NET_WM_PID, 0 when not set
    std::string instanceName;      // WM_CLASS instance ("gedit")
    std::string className;         // WM_CLASS class ("Gedit")
    std::string title;             // _NET_WM_NAME, else WM_NAME
    std::vector<xcb_atom_t> types; // _NET_WM_WINDOW_TYPE, in order of preference
    bool transient = false;        // WM_TRANSIENT_FOR is set
};

// An icon of _NET_WM_ICON: width x height pixels, each 0xAARRGGBB, rows top-down.
struct X11Icon {
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> argb;
};

// The Extended Window Manager Hints that the back ends use. Property requests for many windows
// are pipelined: all are sent first, then all replies are collected (one round trip in all).
class X11Ewmh {
public:
    explicit X11Ewmh(X11Display& display);

    // Whether a window manager announces EWMH support (_NET_SUPPORTING_WM_CHECK is set).
    bool windowManagerPresent();
    // _NET_CLIENT_LIST: the managed windows in the order of mapping (empty without a window manager).
    std::vector<xcb_window_t> clientList();
    // _NET_CLIENT_LIST_STACKING: the managed windows from bottom to top.
    std::vector<xcb_window_t> clientListStacking();
    // The properties of each window, pipelined; the result has one entry per window, in order.
    std::vector<X11WindowInfo> describe(const std::vector<xcb_window_t>& windows);
    // A managed window that is "normal" or a dialog (no type: normal, or dialog when transient).
    bool isNormalOrDialog(const X11WindowInfo& info);
    // _NET_ACTIVE_WINDOW of the root window (0 when none).
    xcb_window_t activeWindow();
    // Asks the window manager to activate `window`; false when the window does not exist.
    bool activateWindow(xcb_window_t window);
    // The icon of `window` closest to `size` pixels square (the smallest one not below it, else the largest).
    std::optional<X11Icon> windowIcon(xcb_window_t window, int size);

private:
    std::vector<xcb_window_t> windowListProperty(const char* name);

    X11Display& display_;
};
