#include "sysinfo/PZBrightnessControl.h"

#include "transport/PZLogger.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace {

std::string decimal(long long value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string hex(std::uint32_t value) {
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, 16);
    return "0x" + std::string(buffer, result.ptr);
}

// The per-display messages go to the standard error stream only, not to the system log.
void writeToStandardError(const std::string& text) {
    std::fputs((text + "\n").c_str(), stderr);
}

} // namespace

PZBrightnessControl::PZBrightnessControl(std::shared_ptr<VXBacklight> backlight)
    : backlight_(std::move(backlight)) {}

float PZBrightnessControl::getBrightness() {
    if (!backlight_) {
        return -1.0f;
    }
    std::vector<std::uint32_t> displays;
    const int error = backlight_->activeDisplays(maxDisplays, displays);
    if (error != 0) {
        PZLog("cannot get list of displays (error " + decimal(error) + ")\n");
        return -1.0f;
    }
    for (std::uint32_t display : displays) {
        float value = 0.0f;
        const int readError = backlight_->getBrightness(display, value);
        if (readError == 0) {
            return value;
        }
        writeToStandardError("failed to get brightness of display " + hex(display) + " (error " +
                             decimal(readError) + ")");
    }
    return -1.0f;
}

void PZBrightnessControl::setBrightness(float value) {
    if (!backlight_) {
        return;
    }
    std::vector<std::uint32_t> displays;
    const int error = backlight_->activeDisplays(maxDisplays, displays);
    if (error != 0) {
        PZLog("cannot get list of displays (error " + decimal(error) + ")\n");
        return;
    }
    for (std::uint32_t display : displays) {
        float current = 0.0f;
        const int readError = backlight_->getBrightness(display, current);
        if (readError != 0) {
            writeToStandardError("failed to get brightness of display " + hex(display) + " (error " +
                                 decimal(readError) + ")");
            continue;
        }
        const int writeError = backlight_->setBrightness(display, value);
        if (writeError != 0) {
            writeToStandardError("Failed to set brightness of display " + hex(display) + " (error " +
                                 decimal(writeError) + ")");
        }
    }
}
