#pragma once

#include "platform/x11/X11Display.h"

// Screen geometry in root-window coordinates.
struct X11Rect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool empty() const { return width <= 0 || height <= 0; }
    bool operator==(const X11Rect&) const = default;
    // The part of this rectangle inside `other` (empty when they do not meet).
    X11Rect intersected(const X11Rect& other) const;
};

class X11ScreenGeometry {
public:
    // The root window's rectangle (the whole virtual screen).
    static X11Rect rootRect(X11Display& display);
    // The main screen: the primary RandR output; none set, the first active output; no RandR,
    // the root window.
    static X11Rect mainScreen(X11Display& display);
};
