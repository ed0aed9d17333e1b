#include "sysinfo/HMVolumeControl.h"

#include "support/LogCapture.h"
#include "sysinfo/fakes/FakeAudioOutput.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using State = FakeAudioOutput::State;

struct HMVolumeControlTest : testing::Test {
    std::shared_ptr<FakeAudioOutput> output = std::make_shared<FakeAudioOutput>();
    HMVolumeControl control{output};
    LogCapture log;
};

TEST_F(HMVolumeControlTest, setVolume_levelsAndRefusingDevices_setOrLogTheMatchingText) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        const char* name;
        void (*setUp)(State&);
        float value;
        const char* text; // logged once
        float level;
        bool muted;
    } cases[] = {
        {"above 1", [](State&) {}, 1.2f, "Requested volume out of range (1.20)", 0.5f, false},
        {"NaN", [](State&) {}, nan, "Requested volume out of range (nan)", 0.5f, false},
        {"no device", [](State& s) { s.device = 0; }, 0.3f, "Unknown device", 0.5f, false},
        {"level not settable", [](State& s) { s.muted = true, s.volumeSettable = false; }, 0.3f,
         "Device 0x3 does not support volume control", 0.5f, true},
        {"mute not settable when muting", [](State& s) { s.muted = true, s.muteSettable = false; }, 0.0f,
         "Device 0x3 does not support volume control", 0.5f, true},
        {"mute not settable when unmuting", [](State& s) { s.muted = true, s.muteSettable = false; }, 0.3f,
         "Device 0x3 does not support muting", 0.3f, true},
        {"level write fails, unmute still done", [](State& s) { s.muted = true, s.setVolumeFails = true; },
         0.3f, "Unable to set volume for device 0x3", 0.5f, false},
        {"mute write fails", [](State& s) { s.muted = true, s.setMuteFails = true; }, 0.0f,
         "Unable to set volume for device 0x3", 0.5f, true},
    };
    for (const auto& c : cases) {
        output->change([&c](State& s) { c.setUp(s = State{}); });
        log.clear();
        control.setVolume(c.value);
        EXPECT_EQ(log.countContaining(c.text), 1u) << c.name;
        EXPECT_FLOAT_EQ(*output->state().volume, c.level) << c.name;
        EXPECT_EQ(output->state().muted, c.muted) << c.name;
    }
}

TEST_F(HMVolumeControlTest, volume_deviceStates_levelSettingOrZero) {
    const struct {
        const char* name;
        void (*setUp)(State&);
        float expected;
    } cases[] = {
        {"below the scale", [](State& s) { s.volume = -0.2f; }, 0.0f},
        {"unreadable", [](State& s) { s.device = 0x2a, s.volume = std::nullopt; }, 0.0f},
    };
    for (const auto& c : cases) {
        output->change([&c](State& s) { c.setUp(s = State{}); });
        EXPECT_EQ(control.volume(), c.expected) << c.name;
    }
    EXPECT_EQ(log.countContaining("No volume returned for device 0x2a"), 1u);
}

TEST_F(HMVolumeControlTest, defaultOutputDeviceID_absentDevice_logsOncePerAbsence) {
    output->change([](State& s) { s.device = 0; });
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(control.volume(), 0.0f);
    }
    EXPECT_EQ(log.countContaining("Cannot find default output device!"), 1u);
    EXPECT_EQ(log.countContaining("Unknown device"), 1u);
    output->change([](State& s) { s.device = 7; });
    EXPECT_EQ(control.defaultOutputDeviceID(), 7u);
    output->change([](State& s) { s.device = 0; });
    EXPECT_EQ(control.defaultOutputDeviceID(), 0u);
    EXPECT_EQ(log.countContaining("Cannot find default output device!"), 2u);

    HMVolumeControl none(nullptr); // every operation without an output: a neutral answer, no crash
    EXPECT_EQ(none.defaultOutputDeviceID(), 0u);
    EXPECT_EQ(none.volume(), 0.0f);
    none.setVolume(0.5f);
}

} // namespace
