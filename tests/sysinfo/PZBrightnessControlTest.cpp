#include "sysinfo/PZBrightnessControl.h"

#include "TempTree.h"
#include "support/LogCapture.h"
#include "sysinfo/fakes/FakeBacklight.h"
#include "sysinfo/linux/SysfsBacklight.h"

#include <gtest/gtest.h>

#include <map>

namespace {

// A display folder as /sys/class/backlight has them.
void addDisplay(const TempTree& sysfs, const std::string& name, const std::string& type,
                const std::string& brightness, const std::string& maximum) {
    sysfs.write(name + "/type", type + "\n");
    sysfs.write(name + "/brightness", brightness + "\n");
    sysfs.write(name + "/actual_brightness", brightness + "\n");
    sysfs.write(name + "/max_brightness", maximum + "\n");
}

std::string brightnessFile(const TempTree& sysfs, const std::string& name) {
    std::ifstream in(sysfs.path(name + "/brightness"));
    std::string text;
    std::getline(in, text);
    return text;
}

// Never there, so the files are written.
bool noLogind(const std::string&, std::uint32_t) {
    return false;
}

PZBrightnessControl sysfsControl(const TempTree& sysfs) {
    return PZBrightnessControl(std::make_shared<SysfsBacklight>(sysfs.path(), noLogind));
}

TEST(PZBrightnessControlTest, sysfs_threeDisplays_readsFirstInTypeThenNameOrderAndSetsAll) {
    TempTree sysfs;
    addDisplay(sysfs, "acpi_video0", "raw", "50", "100");
    addDisplay(sysfs, "b_panel", "raw", "100", "937");
    addDisplay(sysfs, "intel_backlight", "platform", "300", "1200");
    addDisplay(sysfs, "zz_firmware", "firmware", "3", "4");
    PZBrightnessControl control = sysfsControl(sysfs);
    EXPECT_FLOAT_EQ(control.getBrightness(), 0.75f);
    control.setBrightness(0.5f);
    EXPECT_EQ(brightnessFile(sysfs, "acpi_video0"), "50");
    EXPECT_EQ(brightnessFile(sysfs, "b_panel"), "469");
    EXPECT_EQ(brightnessFile(sysfs, "zz_firmware"), "2");
    EXPECT_FLOAT_EQ(control.getBrightness(), 0.5f);
    control.setBrightness(7.0f);
    EXPECT_EQ(brightnessFile(sysfs, "b_panel"), "937");
    control.setBrightness(-3.0f);
    EXPECT_EQ(brightnessFile(sysfs, "b_panel"), "0");
}

TEST(PZBrightnessControlTest, setBrightness_logindAnswersOrIsAbsent_leavesFilesToItOrWritesThem) {
    TempTree sysfs;
    addDisplay(sysfs, "panel", "raw", "10", "200");
    std::map<std::string, std::uint32_t> asked;
    PZBrightnessControl(std::make_shared<SysfsBacklight>(sysfs.path(), [&asked](const std::string& name,
                                                                                std::uint32_t value) {
        asked[name] = value;
        return true;
    })).setBrightness(0.25f);
    EXPECT_EQ(asked, (std::map<std::string, std::uint32_t>{{"panel", 50}}));
    EXPECT_EQ(brightnessFile(sysfs, "panel"), "10");
    // The default writer where this machine runs no logind (else it would change a real backlight).
    if (std::system("busctl --system status org.freedesktop.login1 >/dev/null 2>&1") != 0) {
        PZBrightnessControl(std::make_shared<SysfsBacklight>(sysfs.path())).setBrightness(0.3f);
        EXPECT_EQ(brightnessFile(sysfs, "panel"), "60");
    }
}

TEST(PZBrightnessControlTest, getBrightness_noBacklight_returnsMinusOneAndLogsOnce) {
    LogCapture log;
    PZBrightnessControl missingRoot(std::make_shared<SysfsBacklight>("/nonexistent/backlight", noLogind));
    TempTree empty;
    PZBrightnessControl emptyRoot = sysfsControl(empty);
    PZBrightnessControl none(nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(missingRoot.getBrightness(), -1.0f);
        EXPECT_EQ(emptyRoot.getBrightness(), -1.0f);
        EXPECT_EQ(none.getBrightness(), -1.0f);
        missingRoot.setBrightness(0.5f);
        none.setBrightness(0.5f);
    }
    EXPECT_EQ(log.countContaining("Brightness: no backlight under /nonexistent/backlight"), 1u);
}

TEST(PZBrightnessControlTest, getBrightness_brokenFiles_skipsToTheNextDisplay) {
    const struct {
        const char* name;
        const char* brightness;
        const char* maximum;
    } broken[] = {{"letters", "abc", "100"},   {"zero max", "5", "0"},
                  {"negative", "-5", "100"},   {"empty", "", "100"},
                  {"max letters", "5", "ten"}, {"huge", "99999999999999999999", "10"}};
    for (const auto& c : broken) {
        TempTree sysfs;
        addDisplay(sysfs, "a_broken", "raw", c.brightness, c.maximum);
        addDisplay(sysfs, "b_good", "raw", "30", "60");
        PZBrightnessControl control = sysfsControl(sysfs);
        testing::internal::CaptureStderr();
        EXPECT_FLOAT_EQ(control.getBrightness(), 0.5f) << c.name;
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_NE(errors.find("failed to get brightness of display 0x1 (error "), std::string::npos)
            << c.name;
        testing::internal::CaptureStderr();
        control.setBrightness(1.0f);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(brightnessFile(sysfs, "b_good"), "60") << c.name;
    }
}

TEST(PZBrightnessControlTest, backlightErrors_listOrWriteFails_loggedAndTheRestGoesOn) {
    LogCapture log;
    auto backlight = std::make_shared<FakeBacklight>();
    backlight->setDisplays({{1, 0.3f, 0, 13}, {2, 0.3f, 0, 0}});
    PZBrightnessControl control(backlight);
    testing::internal::CaptureStderr();
    control.setBrightness(0.8f);
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("Failed to set brightness of display 0x1 (error 13)"), std::string::npos);
    EXPECT_FLOAT_EQ(backlight->displays()[1].value, 0.8f);

    backlight->setListError(5);
    EXPECT_EQ(control.getBrightness(), -1.0f);
    control.setBrightness(0.1f);
    EXPECT_EQ(log.countContaining("cannot get list of displays (error 5)"), 2u);
    EXPECT_FLOAT_EQ(backlight->displays()[1].value, 0.8f);
}

} // namespace
