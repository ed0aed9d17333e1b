#pragma once

#include "sysinfo/VXAudioOutput.h"

#include <mutex>

// An audio output whose state the test sets and reads: one device (or none), its level and mute,
// and switches that make it refuse or fail. Thread-safe.
class FakeAudioOutput : public VXAudioOutput {
public:
    struct State {
        std::uint32_t device = 3; // 0: no output device
        std::optional<float> volume = 0.5f;
        bool muted = false;
        bool volumeSettable = true;
        bool muteSettable = true;
        bool setVolumeFails = false;
        bool setMuteFails = false;
    };

    // A copy of the current state.
    State state() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return state_;
    }
    // Changes the state as the system would (another program moving the volume).
    template <typename Change> void change(Change&& change) {
        std::lock_guard<std::mutex> lock(mutex_);
        change(state_);
    }
    // The level, as another program would set it / as it stands (0 without a level).
    void setLevel(float volume) {
        change([volume](State& state) { state.volume = volume; });
    }
    float level() const { return state().volume.value_or(0.0f); }
    // How many times the level was read.
    int volumeReads() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return volumeReads_;
    }

    std::uint32_t defaultOutputDevice() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return state_.device;
    }
    std::optional<float> volume(std::uint32_t device) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++volumeReads_;
        return device == state_.device ? state_.volume : std::nullopt;
    }
    bool canSetVolume(std::uint32_t device) override {
        std::lock_guard<std::mutex> lock(mutex_);
        return device == state_.device && state_.volumeSettable;
    }
    bool setVolume(std::uint32_t device, float volume) override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (device != state_.device || state_.setVolumeFails) {
            return false;
        }
        state_.volume = volume;
        return true;
    }
    bool canSetMute(std::uint32_t device) override {
        std::lock_guard<std::mutex> lock(mutex_);
        return device == state_.device && state_.muteSettable;
    }
    bool setMute(std::uint32_t device, bool muted) override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (device != state_.device || state_.setMuteFails) {
            return false;
        }
        state_.muted = muted;
        return true;
    }
    std::optional<bool> muted(std::uint32_t device) override {
        std::lock_guard<std::mutex> lock(mutex_);
        return device == state_.device ? std::optional<bool>(state_.muted) : std::nullopt;
    }

private:
    mutable std::mutex mutex_;
    State state_;
    int volumeReads_ = 0;
};
