#pragma once

#include "sysinfo/VXAudioOutput.h"

#include <atomic>
#include <cstdint>
#include <memory>

// The master volume of the default audio output, muted at the bottom of the range. Stateless
// apart from the output it drives; callers serialise (VXSystemInfo holds its lock around each call).
class HMVolumeControl {
public:
    // `output` null: no audio at all (every read 0.0, every set logged and ignored).
    explicit HMVolumeControl(std::shared_ptr<VXAudioOutput> output);

    // The default output device, 0 (logged once per absence) when there is none.
    std::uint32_t defaultOutputDeviceID();
    // The volume setting 0.0..1.0 whether muted or not; 0.0 on any failure.
    float volume();
    // Sets the volume: below 0.001 mutes and keeps the level; otherwise sets the level and unmutes.
    // Values outside 0.0..1.0 are logged and ignored.
    void setVolume(float volume);

private:
    std::shared_ptr<VXAudioOutput> output_;
    std::atomic<bool> absenceLogged_{false};
    std::atomic<bool> readAbsenceLogged_{false};
};
