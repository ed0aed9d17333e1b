#pragma once

#include "platform/x11/X11Connection.h"
#include "sysinfo/VXScreenGrabber.h"

#include <memory>
#include <mutex>
#include <string>

// Captures rectangles of the X root window: XShmGetImage through a shared-memory segment kept
// between captures of the same size, XGetImage where MIT-SHM is missing or cannot be attached (a
// remote display). Has its own X connection, which comes back after the X server was restarted.
class X11ScreenGrabber : public VXScreenGrabber {
public:
    // `displayName` empty: $DISPLAY at each connection attempt.
    explicit X11ScreenGrabber(std::string displayName = {});
    ~X11ScreenGrabber() override;

    bool canCaptureRect() override;
    std::optional<VXPixelRect> mainScreenFrame() override;
    std::optional<VXPixelRect> screenBounds() override;
    std::optional<VXPixelRect> captureRect(const VXPixelRect& rect, VXPixelBuffer& into) override;
    std::optional<VXPixelPoint> pointerLocation() override;

    // Whether the last capture went through shared memory (tests and diagnostics).
    bool lastCaptureUsedSharedMemory() const { return lastUsedShm_; }
    // Makes the grabber use XGetImage only (tests of the fallback).
    void setSharedMemoryAllowed(bool allowed) { shmAllowed_ = allowed; }

private:
    struct SharedImage;
    X11Display* display();
    std::optional<VXPixelRect> rootBounds(X11Display& display);
    bool captureShared(X11Display& display, const VXPixelRect& rect, VXPixelBuffer& into);
    bool captureCopied(X11Display& display, const VXPixelRect& rect, VXPixelBuffer& into);

    std::mutex mutex_;
    X11Connection connection_;
    X11Display* shmDisplay_ = nullptr;
    std::unique_ptr<SharedImage> shared_;
    bool shmBroken_ = false;
    bool shmAllowed_ = true;
    bool lastUsedShm_ = false;
};
