#pragma once

#include "sysinfo/VXPixelBuffer.h"

#include <optional>

// The screen as the capture code needs it: the main screen's frame, rectangle capture into a
// BGRX buffer and the pointer position. Implementations serialise their own use: sessions on
// several threads capture at the same time.
class VXScreenGrabber {
public:
    virtual ~VXScreenGrabber() = default;

    // Whether the screen can be captured by rectangle right now (a display is there).
    virtual bool canCaptureRect() = 0;
    // The main screen's frame in root-window coordinates; nothing without a display.
    virtual std::optional<VXPixelRect> mainScreenFrame() = 0;
    // The whole capturable area (the root window); nothing without a display.
    virtual std::optional<VXPixelRect> screenBounds() = 0;
    // Captures `rect` clipped to the screen into `into` (resized as needed, its storage reused);
    // returns the rectangle actually captured, nothing when the clipped rectangle is empty or
    // the capture fails.
    virtual std::optional<VXPixelRect> captureRect(const VXPixelRect& rect, VXPixelBuffer& into) = 0;
    // The pointer's position in root-window coordinates; nothing without a display.
    virtual std::optional<VXPixelPoint> pointerLocation() = 0;
};
