#pragma once

#include <cstdint>
#include <optional>

// The mixer of the default audio output. Devices are numbered from 1; 0 means none.
// Implementations serialise their own use.
class VXAudioOutput {
public:
    virtual ~VXAudioOutput() = default;

    // The default output device, 0 when there is none (no audio server, no output).
    virtual std::uint32_t defaultOutputDevice() = 0;
    // The device's volume setting on the scale 0.0..1.0 (not lowered by mute); nothing on failure.
    virtual std::optional<float> volume(std::uint32_t device) = 0;
    // Whether the device's volume can be set.
    virtual bool canSetVolume(std::uint32_t device) = 0;
    // Sets the device's volume (0.0..1.0); false on failure.
    virtual bool setVolume(std::uint32_t device, float volume) = 0;
    // Whether the device can be muted.
    virtual bool canSetMute(std::uint32_t device) = 0;
    // Mutes or unmutes the device; false on failure.
    virtual bool setMute(std::uint32_t device, bool muted) = 0;
    // Whether the device is muted; nothing on failure.
    virtual std::optional<bool> muted(std::uint32_t device) = 0;
};
