#include "TestWindow.h"
#include "input/PZKeyboard.h"
#include "input/VXCommandExecute.h"
#include "input/linux/X11InputConnection.h"
#include "input/linux/X11KeyboardLayout.h"
#include "input/linux/XTestEventPoster.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "support/TestPlatform.h"
#include "support/XvfbProcess.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

class X11TypingTest : public ::testing::Test {
protected:
    void SetUp() override {
        VXH_REQUIRE_PLATFORM(xvfb_.start(), "Xvfb could not be started");
        VXH_REQUIRE_PLATFORM(xvfb_.startWindowManager(), "openbox could not be started");
        auto connection = std::make_shared<X11InputConnection>(xvfb_.name());
        VXCommandExecute::Backends backends;
        backends.eventPoster = std::make_shared<XTestEventPoster>(connection);
        layout_ = std::make_shared<X11KeyboardLayout>(connection);
        backends.keyboardLayout = layout_;
        executor_ = VXCommandExecute::create(backends);
        ASSERT_TRUE(window_.start(xvfb_.name()));
        ASSERT_TRUE(window_.waitForFocus());
    }

    void setLayout(const std::string& layout) {
        const std::string command = "setxkbmap -display " + xvfb_.name() + " " + layout;
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    std::shared_ptr<VXError> type(const std::string& instruction) {
        VXCommand command("keyboard", VXProcess("", -1), instruction);
        return executor_->execute(command);
    }

    // Types each character of `text` as its own command ("space" for a space).
    void typeText(const std::string& text) {
        std::size_t i = 0;
        while (i < text.size()) {
            std::size_t length = 1;
            const auto lead = static_cast<unsigned char>(text[i]);
            length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
            const std::string piece = text.substr(i, length);
            EXPECT_EQ(type(piece == " " ? "space" : piece), nullptr) << piece;
            i += length;
        }
    }

    XvfbProcess xvfb_;
    TestWindow window_;
    std::shared_ptr<X11KeyboardLayout> layout_;
    std::shared_ptr<VXCommandExecute> executor_;
};

TEST_F(X11TypingTest, execute_usLayoutText_windowReceivesText) {
    typeText("Hello, World! 123");
    EXPECT_EQ(window_.waitForText("Hello, World! 123"), "Hello, World! 123");
}

TEST_F(X11TypingTest, execute_germanLayoutText_windowReceivesText) {
    setLayout("de");
    typeText("Grüße, ß@€|{}");
    EXPECT_EQ(window_.waitForText("Grüße, ß@€|{}"), "Grüße, ß@€|{}");
}

TEST_F(X11TypingTest, execute_frenchLayoutText_windowReceivesText) {
    setLayout("fr");
    typeText("àéèç azerty");
    EXPECT_EQ(window_.waitForText("àéèç azerty"), "àéèç azerty");
}

TEST_F(X11TypingTest, execute_characterOnNoKey_typedThroughTemporaryKey) {
    typeText("ő😀a");
    EXPECT_EQ(window_.waitForText("ő😀a"), "ő😀a");
}

} // namespace
