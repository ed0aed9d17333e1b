#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The displays whose backlight can be read and set, each by a small id that stays the same while
// the display is present. Errors are errno-style numbers; 0 is success.
class VXBacklight {
public:
    virtual ~VXBacklight() = default;

    // The active displays in the order they are asked, at most `capacity`; an error code on failure.
    virtual int activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& displays) = 0;
    // The display's brightness on the scale 0.0..1.0, or an error code.
    virtual int getBrightness(std::uint32_t display, float& value) = 0;
    // Sets the display's brightness (0.0..1.0); an error code on failure.
    virtual int setBrightness(std::uint32_t display, float value) = 0;
};
