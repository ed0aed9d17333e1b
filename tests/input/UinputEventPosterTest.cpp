#include "input/linux/UinputEventPoster.h"
#include "input/VXCommandExecute.h"
#include "input/linux/UinputDevice.h"
#include "input/linux/XkbKeymapLayout.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"

#include <gtest/gtest.h>

namespace {

// Records each report as "type:code:value" texts; refuses writes when `refuse` is set.
class FakeDeviceWriter : public UinputDeviceWriter {
public:
    explicit FakeDeviceWriter(std::vector<std::string>& log) : log_(log) {}
    bool write(const std::vector<input_event>& events) override {
        if (refuse) {
            return false;
        }
        std::string report;
        for (const input_event& event : events) {
            report += (report.empty() ? "" : " ") + std::to_string(event.type) + ":" +
                      std::to_string(event.code) + ":" + std::to_string(event.value);
        }
        log_.push_back(report);
        return true;
    }
    bool refuse = false;

private:
    std::vector<std::string>& log_;
};

class UinputEventPosterTest : public ::testing::Test {
protected:
    UinputEventPosterTest() {
        auto pointer = std::make_unique<FakeDeviceWriter>(pointerLog_);
        pointer_ = pointer.get();
        poster_ = std::make_shared<UinputEventPoster>(std::make_unique<FakeDeviceWriter>(keyboardLog_),
                                                      std::move(pointer), VXSize{1024, 768});
    }

    std::vector<std::string> keyboardLog_;
    std::vector<std::string> pointerLog_;
    FakeDeviceWriter* pointer_ = nullptr;
    std::shared_ptr<UinputEventPoster> poster_;
};

using Reports = std::vector<std::string>;

TEST_F(UinputEventPosterTest, postKeyButtonScroll_reportsOnKeyboardDevice) {
    EXPECT_EQ(poster_->postKey(30, true), 0);
    EXPECT_EQ(poster_->postKey(30, false), 0);
    poster_->postButton(EventPoster::Button::left, true);
    poster_->postButton(EventPoster::Button::right, false);
    poster_->postScroll(1, 0);
    poster_->postScroll(-1, 1);
    poster_->postScroll(0, -1);
    poster_->postScroll(0, 0);
    EXPECT_EQ(keyboardLog_, (Reports{"1:30:1 0:0:0", "1:30:0 0:0:0", "1:272:1 0:0:0", "1:273:0 0:0:0",
                                     "2:8:1 0:0:0", "2:8:-1 2:6:-1 0:0:0", "2:6:1 0:0:0"}));
    EXPECT_TRUE(pointerLog_.empty());
}

TEST_F(UinputEventPosterTest, placePointer_absoluteWithinScreenAndTracked) {
    EXPECT_EQ(poster_->pointerLocation(), std::nullopt);
    EXPECT_EQ(poster_->placePointer(100, 50), 0);
    EXPECT_EQ(poster_->pointerLocation(), (VXPoint{100, 50}));
    EXPECT_EQ(poster_->postPointerMotion(5000, -20), 0);
    EXPECT_EQ(poster_->pointerLocation(), (VXPoint{1023, 0}));
    EXPECT_EQ(pointerLog_, (Reports{"3:0:100 3:1:50 0:0:0", "3:0:1023 3:1:0 0:0:0"}));
    pointer_->refuse = true;
    EXPECT_EQ(poster_->placePointer(1, 1), UinputEventPoster::writeFailedStatus);
    EXPECT_EQ(poster_->pointerLocation(), (VXPoint{1023, 0}));
    EXPECT_EQ(poster_->mainScreenSize(), (VXSize{1024, 768}));
}

TEST_F(UinputEventPosterTest, execute_germanLayoutWithoutX_keysOfTheConfiguredLayout) {
    VXCommandExecute::Backends backends;
    backends.eventPoster = poster_;
    backends.keyboardLayout = XkbKeymapLayout::fromNames("de");
    auto executor = VXCommandExecute::create(backends);
    keyboardLog_.clear();
    EXPECT_EQ(executor->execute(VXCommand("keyboard", VXProcess("", -1), "@")), nullptr);
    EXPECT_EQ(executor->execute(VXCommand("keyboard", VXProcess("", -1), "z")), nullptr);
    // AltGr (right Alt) with Q, then the key at the position of Y.
    EXPECT_EQ(keyboardLog_, (Reports{"1:100:1 0:0:0", "1:16:1 0:0:0", "1:16:0 0:0:0", "1:100:0 0:0:0",
                                     "1:21:1 0:0:0", "1:21:0 0:0:0"}));
    // No X server: a character on no key cannot be typed.
    EXPECT_NE(executor->execute(VXCommand("keyboard", VXProcess("", -1), "ő")), nullptr);
}

TEST(UinputDeviceTest, create_withoutUinput_nothing) {
    EXPECT_FALSE(UinputDevice::isAvailable("/nonexistent/uinput"));
    EXPECT_EQ(UinputDevice::create(UinputDevice::Kind::keyboardAndMouse, 0, 0, "/nonexistent/uinput"),
              nullptr);
}

} // namespace
