#pragma once

#include "protocol/VXGeometry.h"

#include <optional>

// Posts synthetic pointer and key events into the system's input stream, and reads the pointer.
// Status results are 0 on success and a back-end specific non-zero value on failure. Back ends:
// XTest on X11, a uinput virtual device, or a null poster that only logs. Thread-safe.
class EventPoster {
public:
    enum class Button { left = 1, right = 3 };

    virtual ~EventPoster() = default;

    // A short name for the log ("XTest on :0", "uinput", "none").
    virtual const char* name() const = 0;

    // Places the cursor at a point of the root window, as a driver would.
    virtual int placePointer(int x, int y) = 0;
    // Posts a pointer motion to a point of the root window.
    virtual int postPointerMotion(int x, int y) = 0;
    // Presses or releases a button where the pointer is.
    virtual int postButton(Button button, bool down) = 0;
    // Scrolls one step per non-zero axis where the pointer is: `vertical` +1 up, -1 down;
    // `horizontal` +1 left, -1 right.
    virtual int postScroll(int vertical, int horizontal) = 0;
    // Presses or releases the key with this evdev code. A press may be held back and sent together
    // with the next key release or other event (every press the input code makes is released).
    virtual int postKey(int evdevCode, bool down) = 0;

    // The pointer's position in root-window coordinates; nothing when it cannot be read.
    virtual std::optional<VXPoint> pointerLocation() = 0;
    // The size of the main screen; nothing when there is no screen.
    virtual std::optional<VXSize> mainScreenSize() = 0;
};
