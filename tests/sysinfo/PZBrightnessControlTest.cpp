#include "sysinfo/PZBrightnessControl.h"

#include "support/LogCapture.h"
#include "sysinfo/fakes/FakeBacklight.h"
#include "sysinfo/linux/SysfsBacklight.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

namespace fs = std::filesystem;

namespace {

// A fake /sys/class/backlight: one folder per display with its files.
class FakeSysfs {
public:
    FakeSysfs() {
        root_ = fs::temp_directory_path() /
                ("vxh-backlight-" + std::to_string(::getpid()) + "-" + std::to_string(counter_++));
        fs::create_directories(root_);
    }
    ~FakeSysfs() { fs::remove_all(root_); }

    void addDisplay(const std::string& name, const std::string& type, const std::string& brightness,
                    const std::string& maximum) {
        fs::create_directories(root_ / name);
        write(name, "type", type + "\n");
        write(name, "brightness", brightness + "\n");
        write(name, "actual_brightness", brightness + "\n");
        write(name, "max_brightness", maximum + "\n");
    }
    void write(const std::string& name, const std::string& file, const std::string& text) {
        std::ofstream(root_ / name / file, std::ios::trunc) << text;
    }
    std::string read(const std::string& name, const std::string& file) const {
        std::ifstream in(root_ / name / file);
        std::string text;
        std::getline(in, text);
        return text;
    }
    std::string root() const { return root_.string(); }

private:
    static inline int counter_ = 0;
    fs::path root_;
};

// A logind stand-in that is never there, so the files are written.
bool noLogind(const std::string&, std::uint32_t) {
    return false;
}

TEST(PZBrightnessControlTest, getBrightness_twoDisplays_returnsFirstInTypeThenNameOrder) {
    FakeSysfs sysfs;
    sysfs.addDisplay("acpi_video0", "raw", "50", "100");
    sysfs.addDisplay("intel_backlight", "platform", "300", "1200");
    sysfs.addDisplay("zz_firmware", "firmware", "3", "4");
    PZBrightnessControl control(std::make_shared<SysfsBacklight>(sysfs.root(), noLogind));
    EXPECT_FLOAT_EQ(control.getBrightness(), 0.75f);
}

TEST(PZBrightnessControlTest, setBrightness_twoDisplays_setsBoth) {
    FakeSysfs sysfs;
    sysfs.addDisplay("a_panel", "raw", "10", "100");
    sysfs.addDisplay("b_panel", "raw", "100", "937");
    PZBrightnessControl control(std::make_shared<SysfsBacklight>(sysfs.root(), noLogind));
    control.setBrightness(0.5f);
    EXPECT_EQ(sysfs.read("a_panel", "brightness"), "50");
    EXPECT_EQ(sysfs.read("b_panel", "brightness"), "469");
    EXPECT_FLOAT_EQ(control.getBrightness(), 0.5f);
}

TEST(PZBrightnessControlTest, setBrightness_logindAnswers_leavesFilesToIt) {
    FakeSysfs sysfs;
    sysfs.addDisplay("panel", "raw", "10", "200");
    std::map<std::string, std::uint32_t> asked;
    auto backlight = std::make_shared<SysfsBacklight>(sysfs.root(),
                                                      [&asked](const std::string& name, std::uint32_t value) {
                                                          asked[name] = value;
                                                          return true;
                                                      });
    PZBrightnessControl(backlight).setBrightness(0.25f);
    EXPECT_EQ(asked, (std::map<std::string, std::uint32_t>{{"panel", 50}}));
    EXPECT_EQ(sysfs.read("panel", "brightness"), "10");
}

TEST(PZBrightnessControlTest, getBrightness_noBacklight_returnsMinusOneAndLogsOnce) {
    LogCapture log;
    PZBrightnessControl missingRoot(std::make_shared<SysfsBacklight>("/nonexistent/backlight", noLogind));
    FakeSysfs empty;
    PZBrightnessControl emptyRoot(std::make_shared<SysfsBacklight>(empty.root(), noLogind));
    PZBrightnessControl none(nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(missingRoot.getBrightness(), -1.0f);
        EXPECT_EQ(emptyRoot.getBrightness(), -1.0f);
        EXPECT_EQ(none.getBrightness(), -1.0f);
        missingRoot.setBrightness(0.5f);
    }
    EXPECT_EQ(log.countContaining("Brightness: no backlight under /nonexistent/backlight"), 1u);
}

TEST(PZBrightnessControlTest, getBrightness_brokenFiles_skipsToTheNextDisplay) {
    const struct {
        const char* name;
        const char* brightness;
        const char* maximum;
    } broken[] = {{"letters", "abc", "100"},     {"zero max", "5", "0"},
                  {"negative", "-5", "100"},     {"empty", "", "100"},
                  {"trailing junk", "5x", "10"}, {"huge", "99999999999999999999", "10"},
                  {"max letters", "5", "ten"}};
    for (const auto& c : broken) {
        FakeSysfs sysfs;
        sysfs.addDisplay("a_broken", "raw", c.brightness, c.maximum);
        sysfs.addDisplay("b_good", "raw", "30", "60");
        PZBrightnessControl control(std::make_shared<SysfsBacklight>(sysfs.root(), noLogind));
        testing::internal::CaptureStderr();
        EXPECT_FLOAT_EQ(control.getBrightness(), 0.5f) << c.name;
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_NE(errors.find("failed to get brightness of display 0x1 (error "), std::string::npos)
            << c.name;

        // The broken display is skipped when setting as well; the good one is set.
        testing::internal::CaptureStderr();
        control.setBrightness(1.0f);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(sysfs.read("b_good", "brightness"), "60") << c.name;
    }
}

TEST(PZBrightnessControlTest, setBrightness_valueOutsideScale_writesTheNearestLevel) {
    FakeSysfs sysfs;
    sysfs.addDisplay("panel", "raw", "10", "255");
    PZBrightnessControl control(std::make_shared<SysfsBacklight>(sysfs.root(), noLogind));
    control.setBrightness(7.0f);
    EXPECT_EQ(sysfs.read("panel", "brightness"), "255");
    control.setBrightness(-3.0f);
    EXPECT_EQ(sysfs.read("panel", "brightness"), "0");
}

TEST(PZBrightnessControlTest, displayList_fails_logsErrorAndReturnsMinusOne) {
    LogCapture log;
    auto backlight = std::make_shared<FakeBacklight>();
    backlight->setDisplays({{1, 0.3f, 0, 0}});
    backlight->setListError(5);
    PZBrightnessControl control(backlight);
    EXPECT_EQ(control.getBrightness(), -1.0f);
    control.setBrightness(0.9f);
    EXPECT_EQ(log.countContaining("cannot get list of displays (error 5)"), 2u);
    EXPECT_FLOAT_EQ(backlight->displays()[0].value, 0.3f);
}

TEST(PZBrightnessControlTest, setBrightness_writeRefused_reportsAndGoesOn) {
    auto backlight = std::make_shared<FakeBacklight>();
    backlight->setDisplays({{1, 0.3f, 0, 13}, {2, 0.3f, 0, 0}});
    PZBrightnessControl control(backlight);
    testing::internal::CaptureStderr();
    control.setBrightness(0.8f);
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("Failed to set brightness of display 0x1 (error 13)"), std::string::npos);
    EXPECT_FLOAT_EQ(backlight->displays()[1].value, 0.8f);
}

} // namespace

namespace {

TEST(PZBrightnessControlTest, setBrightness_defaultWriterWhereLogindIsAbsent_writesTheFile) {
    // This machine runs no logind (a system bus may run or not): the sysfs file is written instead.
    if (std::system("busctl --system status org.freedesktop.login1 >/dev/null 2>&1") == 0) {
        GTEST_SKIP() << "logind runs here: it would be asked to change a real backlight";
    }
    FakeSysfs sysfs;
    sysfs.addDisplay("panel", "raw", "10", "100");
    PZBrightnessControl control(std::make_shared<SysfsBacklight>(sysfs.root()));
    control.setBrightness(0.3f);
    EXPECT_EQ(sysfs.read("panel", "brightness"), "30");
}

} // namespace
