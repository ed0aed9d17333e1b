#pragma once

#include "sysinfo/VXBacklight.h"

#include <memory>

// The backlight brightness of the active displays on the scale 0.0..1.0. Stateless apart from the
// displays it drives; callers serialise (VXSystemInfo holds its lock around each call).
class PZBrightnessControl {
public:
    // At most this many displays are considered.
    static constexpr std::size_t maxDisplays = 16;

    // `backlight` null: no display has a backlight (-1.0, sets ignored).
    explicit PZBrightnessControl(std::shared_ptr<VXBacklight> backlight);

    // The first answering display's brightness; -1.0 when no display answers.
    float getBrightness();
    // Sets every display that answers a read to `value` (no range check here).
    void setBrightness(float value);

private:
    std::shared_ptr<VXBacklight> backlight_;
};
