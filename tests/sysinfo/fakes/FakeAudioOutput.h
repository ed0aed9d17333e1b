#pragma once

#include "sysinfo/VXAudioOutput.h"

#include <mutex>

// An audio output whose state the test sets and reads: one device (0: none), its level and mute, and
// switches that make it refuse or fail. Thread-safe.
class FakeAudioOutput : public VXAudioOutput {
public:
    struct State {
        std::uint32_t device = 3;
        std::optional<float> volume = 0.5f;
        bool muted = false;
        bool volumeSettable = true;
        bool muteSettable = true;
        bool setVolumeFails = false;
        bool setMuteFails = false;
    };

    // Runs `f` on the state under the lock (a change as the system would make it) and returns its result.
    template <typename F> auto change(F&& f) {
        std::lock_guard<std::mutex> lock(mutex_);
        return f(state_);
    }
    State state() {
        return change([](State& s) { return s; });
    }
    void setLevel(float volume) {
        change([volume](State& s) { s.volume = volume; });
    }
    float level() { return state().volume.value_or(0.0f); }

    std::uint32_t defaultOutputDevice() override {
        return change([](State& s) { return s.device; });
    }
    std::optional<float> volume(std::uint32_t d) override {
        return change([d](State& s) { return d == s.device ? s.volume : std::nullopt; });
    }
    std::optional<bool> muted(std::uint32_t d) override {
        return change([d](State& s) { return d == s.device ? std::optional<bool>(s.muted) : std::nullopt; });
    }
    bool canSetVolume(std::uint32_t d) override {
        return change([d](State& s) { return d == s.device && s.volumeSettable; });
    }
    bool canSetMute(std::uint32_t d) override {
        return change([d](State& s) { return d == s.device && s.muteSettable; });
    }
    bool setVolume(std::uint32_t d, float volume) override {
        return change(
            [&](State& s) { return d == s.device && !s.setVolumeFails && (s.volume = volume, true); });
    }
    bool setMute(std::uint32_t d, bool muted) override {
        return change([&](State& s) { return d == s.device && !s.setMuteFails && (s.muted = muted, true); });
    }

private:
    std::mutex mutex_;
    State state_;
};
