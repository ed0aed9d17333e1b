#pragma once

#include "protocol/VXGeometry.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

class EventPoster;

// Synthesises pointer activity through an event poster: absolute and relative moves, button
// presses, clicks and scroll steps. Nothing fails visibly: every failure of the back end, and every
// move that lands too far from the request, becomes a line of the bounded log that the keyboard test
// puts into its report.
class PZMouse {
public:
    // The log is cut back to this many characters (then the screen size line is written again).
    static constexpr std::size_t logLimit = 42000;

    // The process's one mouse over the probed back end (XTest, then uinput, then none).
    static std::shared_ptr<PZMouse> sharedMouse();

    // A mouse posting through `poster`; writes the screen size line into the new log.
    explicit PZMouse(std::shared_ptr<EventPoster> poster);
    // Releases the left and then the right button, so no button stays pressed.
    ~PZMouse();
    PZMouse(const PZMouse&) = delete;
    PZMouse& operator=(const PZMouse&) = delete;

    // A copy of the log.
    std::string log() const;
    // Appends to the log, trimming it first when it is over the limit.
    void addLogMessage(const std::string& text);

    // The pointer's current position ((0, 0) when it cannot be read).
    VXPoint getLocation();
    // Absolute move: places the cursor, checks where it went, posts a motion event when it missed.
    void moveToPoint(VXPoint point);
    // moveToPoint of the current location plus the displacement.
    void translateOf(VXPoint displacement);
    void leftMouseDown();
    void leftMouseUp();
    void rightMouseDown();
    void rightMouseUp();
    // leftMouseDown then leftMouseUp, without delay.
    void click();
    // rightMouseDown then rightMouseUp.
    void rightClick();
    // click twice.
    void doubleClick();
    // One scroll step per axis beyond the dead zone, opposite to the displacement's sign.
    void scrollWheel(VXPoint displacement);

    // The dead zone of scrolling, in points.
    std::int16_t scrollWheelSensibility() const { return scrollWheelSensibility_; }
    EventPoster& poster() const { return *eventDriver_; }

private:
    std::string screenSizeLine();
    void postButton(int button, bool down, const char* failureFormat);

    std::shared_ptr<EventPoster> eventDriver_;
    std::int16_t scrollWheelSensibility_ = 5;
    mutable std::mutex logMutex_;
    std::string log_;
};
