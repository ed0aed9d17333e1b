#pragma once

#include <linux/input.h>
#include <vector>

// Where the uinput poster writes its events: a virtual input device (UinputDevice), or a fake that
// records them in tests.
class UinputDeviceWriter {
public:
    virtual ~UinputDeviceWriter() = default;

    // Writes one report (events ending with a SYN_REPORT); false when the device refused it.
    virtual bool write(const std::vector<input_event>& events) = 0;
};
