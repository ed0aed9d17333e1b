#include "sysinfo/HMVolumeControl.h"

#include "support/LogCapture.h"
#include "sysinfo/fakes/FakeAudioOutput.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

class HMVolumeControlTest : public testing::Test {
protected:
    std::shared_ptr<FakeAudioOutput> output_ = std::make_shared<FakeAudioOutput>();
    HMVolumeControl control_{output_};
    LogCapture log_;
};

TEST_F(HMVolumeControlTest, setVolume_belowMuteThreshold_mutesAndKeepsLevel) {
    output_->change([](auto& s) { s.volume = 0.4f; });
    control_.setVolume(0.0005f);
    EXPECT_TRUE(output_->state().muted);
    EXPECT_FLOAT_EQ(*output_->state().volume, 0.4f);
}

TEST_F(HMVolumeControlTest, setVolume_atMuteThreshold_setsLevelAndUnmutes) {
    output_->change([](auto& s) { s.muted = true; });
    control_.setVolume(0.001f);
    EXPECT_FALSE(output_->state().muted);
    EXPECT_FLOAT_EQ(*output_->state().volume, 0.001f);
}

TEST_F(HMVolumeControlTest, setVolume_outOfRange_logsAndChangesNothing) {
    const struct {
        float value;
        const char* text;
    } cases[] = {{1.2f, "Requested volume out of range (1.20)"},
                 {-0.1f, "Requested volume out of range (-0.10)"},
                 {std::numeric_limits<float>::quiet_NaN(), "Requested volume out of range (nan)"},
                 {std::numeric_limits<float>::infinity(), "Requested volume out of range (inf)"}};
    for (const auto& c : cases) {
        log_.clear();
        control_.setVolume(c.value);
        EXPECT_EQ(log_.countContaining(c.text), 1u) << c.text;
        EXPECT_FLOAT_EQ(*output_->state().volume, 0.5f);
        EXPECT_FALSE(output_->state().muted);
    }
}

TEST_F(HMVolumeControlTest, volume_mutedDevice_returnsLevelSetting) {
    output_->change([](auto& s) {
        s.volume = 0.4f;
        s.muted = true;
    });
    EXPECT_FLOAT_EQ(control_.volume(), 0.4f);
}

TEST_F(HMVolumeControlTest, volume_levelOutsideScale_returnsZero) {
    for (float level : {1.5f, -0.2f}) {
        output_->change([level](auto& s) { s.volume = level; });
        EXPECT_EQ(control_.volume(), 0.0f) << level;
    }
}

TEST_F(HMVolumeControlTest, volume_unreadableDevice_logsDeviceInHexAndReturnsZero) {
    output_->change([](auto& s) {
        s.device = 0x2a;
        s.volume = std::nullopt;
    });
    EXPECT_EQ(control_.volume(), 0.0f);
    EXPECT_EQ(log_.countContaining("No volume returned for device 0x2a"), 1u);
}

TEST_F(HMVolumeControlTest, defaultOutputDeviceID_absentDevice_logsOncePerAbsence) {
    output_->change([](auto& s) { s.device = 0; });
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(control_.volume(), 0.0f);
    }
    EXPECT_EQ(log_.countContaining("Cannot find default output device!"), 1u);
    EXPECT_EQ(log_.countContaining("Unknown device"), 1u);

    output_->change([](auto& s) { s.device = 7; });
    EXPECT_EQ(control_.defaultOutputDeviceID(), 7u);
    output_->change([](auto& s) { s.device = 0; });
    EXPECT_EQ(control_.defaultOutputDeviceID(), 0u);
    EXPECT_EQ(log_.countContaining("Cannot find default output device!"), 2u);
}

TEST_F(HMVolumeControlTest, setVolume_noDevice_logsUnknownDevice) {
    output_->change([](auto& s) { s.device = 0; });
    control_.setVolume(0.3f);
    EXPECT_EQ(log_.countContaining("Unknown device"), 1u);
}

TEST_F(HMVolumeControlTest, setVolume_refusingDevice_logsTheMatchingText) {
    const struct {
        const char* name;
        void (*setUp)(FakeAudioOutput::State&);
        float value;
        const char* text;
        float expectedLevel;
        bool expectedMuted;
    } cases[] = {
        {"level not settable", [](auto& s) { s.volumeSettable = false; }, 0.3f,
         "Device 0x3 does not support volume control", 0.5f, true},
        {"mute not settable when muting", [](auto& s) { s.muteSettable = false; }, 0.0f,
         "Device 0x3 does not support volume control", 0.5f, true},
        {"mute not settable when unmuting", [](auto& s) { s.muteSettable = false; }, 0.3f,
         "Device 0x3 does not support muting", 0.3f, true},
        {"level write fails, unmute still done", [](auto& s) { s.setVolumeFails = true; }, 0.3f,
         "Unable to set volume for device 0x3", 0.5f, false},
        {"mute write fails", [](auto& s) { s.setMuteFails = true; }, 0.0f,
         "Unable to set volume for device 0x3", 0.5f, true},
    };
    for (const auto& c : cases) {
        output_->change([&c](auto& s) {
            s = FakeAudioOutput::State{};
            s.muted = true;
            c.setUp(s);
        });
        log_.clear();
        control_.setVolume(c.value);
        EXPECT_EQ(log_.countContaining(c.text), 1u) << c.name;
        EXPECT_FLOAT_EQ(*output_->state().volume, c.expectedLevel) << c.name;
        EXPECT_EQ(output_->state().muted, c.expectedMuted) << c.name;
    }
}

TEST(HMVolumeControlNoOutputTest, everyOperation_withoutOutput_givesNeutralResult) {
    HMVolumeControl control(nullptr);
    EXPECT_EQ(control.defaultOutputDeviceID(), 0u);
    EXPECT_EQ(control.volume(), 0.0f);
    control.setVolume(0.5f); // logged, nothing to crash on
}

} // namespace
