#pragma once

#include "input/EventPoster.h"

#include <linux/input.h>
#include <memory>
#include <mutex>
#include <vector>

class UinputDeviceWriter;

// Pointer and key events through uinput virtual devices, for sessions without an X server: keys and
// buttons on a keyboard-and-mouse device (wheel steps as REL_WHEEL / REL_HWHEEL), cursor placement on
// an absolute pointer device. The pointer's position is the last one placed (the kernel cannot be
// asked), the screen size the one given.
class UinputEventPoster : public EventPoster {
public:
    // The status of a write the device refused.
    static constexpr int writeFailedStatus = 1;

    UinputEventPoster(std::unique_ptr<UinputDeviceWriter> keyboardAndMouse,
                      std::unique_ptr<UinputDeviceWriter> absolutePointer, VXSize screenSize);
    ~UinputEventPoster() override;

    // The devices made through /dev/uinput for a screen of the framebuffer's size (else 1920x1080);
    // null when uinput cannot be used.
    static std::shared_ptr<UinputEventPoster> create();

    const char* name() const override { return "uinput"; }
    int placePointer(int x, int y) override;
    int postPointerMotion(int x, int y) override;
    int postButton(Button button, bool down) override;
    int postScroll(int vertical, int horizontal) override;
    int postKey(int evdevCode, bool down) override;
    std::optional<VXPoint> pointerLocation() override;
    std::optional<VXSize> mainScreenSize() override { return screenSize_; }

private:
    // Writes the events and a SYN_REPORT to the device.
    int send(UinputDeviceWriter& device, std::vector<input_event> events);

    std::mutex mutex_;
    std::unique_ptr<UinputDeviceWriter> keyboardAndMouse_;
    std::unique_ptr<UinputDeviceWriter> absolutePointer_;
    VXSize screenSize_;
    std::optional<VXPoint> location_;
};
