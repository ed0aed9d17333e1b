#pragma once

typedef struct _XDisplay Display;

// Catches the X protocol errors raised by the requests made on this thread while it lives:
//   X11ErrorTrap trap(display); XGetWindowProperty(...); if (trap.failed()) ...
// failed() synchronises with the server first, so every error of the requests made so far has
// arrived. Errors outside any trap are ignored (a window that vanished mid-request is not a crash).
class X11ErrorTrap {
public:
    explicit X11ErrorTrap(Display* display);
    ~X11ErrorTrap();
    X11ErrorTrap(const X11ErrorTrap&) = delete;
    X11ErrorTrap& operator=(const X11ErrorTrap&) = delete;

    // Syncs with the server and tells whether any error arrived since the trap was set.
    bool failed();
    // The error code of the first error caught (0, Success, when none).
    int errorCode() const { return errorCode_; }

    // Called by the process-wide error handler; true when a trap on this thread took the error.
    static bool recordOnThisThread(Display* display, int errorCode);

private:
    Display* display_;
    X11ErrorTrap* previous_;
    int errorCode_ = 0;
};
