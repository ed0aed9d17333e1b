#pragma once

#include "input/linux/UinputDeviceWriter.h"

#include <memory>
#include <string>

// A virtual input device made through /dev/uinput: a keyboard with every key and a mouse with
// buttons and wheels (relative), or a pointer placed by absolute coordinates.
class UinputDevice : public UinputDeviceWriter {
public:
    enum class Kind { keyboardAndMouse, absolutePointer };

    // Whether /dev/uinput (or `path`) can be written by this process.
    static bool isAvailable(const std::string& path = "/dev/uinput");
    // Creates the device; null when uinput refuses. `width` and `height` bound an absolute pointer.
    static std::unique_ptr<UinputDevice> create(Kind kind, int width, int height,
                                                const std::string& path = "/dev/uinput");

    ~UinputDevice() override;
    UinputDevice(const UinputDevice&) = delete;
    UinputDevice& operator=(const UinputDevice&) = delete;

    bool write(const std::vector<input_event>& events) override;

private:
    explicit UinputDevice(int fd) : fd_(fd) {}

    int fd_ = -1;
};
