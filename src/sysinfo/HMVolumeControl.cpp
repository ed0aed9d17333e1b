#include "sysinfo/HMVolumeControl.h"

#include "transport/PZLogger.h"

#include <charconv>
#include <string>

namespace {

// "0x" and the device number in lowercase hexadecimal, as "%0x" writes it.
std::string hexDevice(std::uint32_t device) {
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, device, 16);
    return "0x" + std::string(buffer, result.ptr);
}

// "%.2f" in the C locale.
std::string twoDecimals(float value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, static_cast<double>(value),
                                      std::chars_format::fixed, 2);
    return std::string(buffer, result.ptr);
}

constexpr float muteThreshold = 0.001f;

} // namespace

HMVolumeControl::HMVolumeControl(std::shared_ptr<VXAudioOutput> output) : output_(std::move(output)) {}

std::uint32_t HMVolumeControl::defaultOutputDeviceID() {
    const std::uint32_t device = output_ ? output_->defaultOutputDevice() : 0;
    if (device == 0) {
        // The change push asks every second: an absent device is reported once until it returns.
        if (!absenceLogged_.exchange(true)) {
            PZLog("Cannot find default output device!");
        }
        return 0;
    }
    absenceLogged_.store(false);
    return device;
}

float HMVolumeControl::volume() {
    const std::uint32_t device = defaultOutputDeviceID();
    if (device == 0) {
        if (!readAbsenceLogged_.exchange(true)) {
            PZLog("Unknown device");
        }
        return 0.0f;
    }
    readAbsenceLogged_.store(false);
    const std::optional<float> value = output_->volume(device);
    if (!value) {
        PZLog("No volume returned for device " + hexDevice(device));
        return 0.0f;
    }
    if (*value > 1.0f || *value < 0.0f) {
        return 0.0f;
    }
    return *value;
}

void HMVolumeControl::setVolume(float volume) {
    if (!(volume >= 0.0f && volume <= 1.0f)) {
        PZLog("Requested volume out of range (" + twoDecimals(volume) + ")");
        return;
    }
    const bool mute = volume < muteThreshold;
    const std::uint32_t device = defaultOutputDeviceID();
    if (device == 0) {
        PZLog("Unknown device");
        return;
    }
    const std::string deviceText = hexDevice(device);
    if (!(mute ? output_->canSetMute(device) : output_->canSetVolume(device))) {
        PZLog("Device " + deviceText + " does not support volume control");
        return;
    }
    if (mute) {
        if (!output_->setMute(device, true)) {
            PZLog("Unable to set volume for device " + deviceText);
        }
        return;
    }
    if (!output_->setVolume(device, volume)) {
        PZLog("Unable to set volume for device " + deviceText);
    }
    if (!output_->canSetMute(device)) {
        PZLog("Device " + deviceText + " does not support muting");
        return;
    }
    if (!output_->setMute(device, false)) {
        PZLog("Unable to set volume for device " + deviceText);
    }
}
