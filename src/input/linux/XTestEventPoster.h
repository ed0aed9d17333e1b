#pragma once

#include "input/EventPoster.h"

#include <memory>

class X11InputConnection;

// Pointer and key events through the XTEST extension: motions, buttons, scrolling as buttons 4 to 7,
// keys as X key codes (evdev + 8); the cursor is placed with a pointer warp. Each event is flushed at
// once, except key presses, which go out with the next release. Reads the pointer with QueryPointer and the
// main screen from RandR.
class XTestEventPoster : public EventPoster {
public:
    // Status values besides 0.
    static constexpr int noDisplayStatus = 1;
    static constexpr int badKeyStatus = 2;
    static constexpr int noXTestStatus = 3;

    explicit XTestEventPoster(std::shared_ptr<X11InputConnection> connection);

    const char* name() const override { return "XTest"; }
    int placePointer(int x, int y) override;
    int postPointerMotion(int x, int y) override;
    int postButton(Button button, bool down) override;
    int postScroll(int vertical, int horizontal) override;
    int postKey(int evdevCode, bool down) override;
    std::optional<VXPoint> pointerLocation() override;
    std::optional<VXSize> mainScreenSize() override;

    // Whether an X server with XTEST answers now.
    bool available();

private:
    int fake(std::uint8_t type, std::uint8_t detail, int x = 0, int y = 0, bool flush = true);

    std::shared_ptr<X11InputConnection> connection_;
};
