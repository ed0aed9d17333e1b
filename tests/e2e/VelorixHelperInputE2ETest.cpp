// Typing through the whole chain: velorixctl's `type` and `key` commands against the real velorixhelper,
// run headless on the test X server, reach a test window that records what the toolkit decodes, on the
// us layout and after the layout was switched under the running server.

#include <sstream>

#include "TestWindow.h"
#include "VelorixHelperE2ETest.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned kShiftMask = 1;
constexpr unsigned kControlMask = 4;
constexpr unsigned long kKeypadEnter = 0xff8d;

// The test window and the server share the test X server; every test needs the keyboard focus and may
// switch the layout, so they run one at a time (see the resource lock in CMakeLists.txt). The layout found at
// the start is put back at the end, also when a test fails.
class VelorixHelperInputE2ETest : public VelorixHelperE2ETest {
protected:
    void SetUp() override {
        display_ = TestPlatform::display();
        VXH_REQUIRE_PLATFORM(!display_.empty(), "no X server (VXH_TEST_DISPLAY unset)");
        const auto query = setxkbmap("-query");
        VXH_REQUIRE_PLATFORM(query.ends_with("status=0\n"),
                             "setxkbmap is missing or does not answer: " + query);
        std::istringstream lines(query);
        for (std::string line; std::getline(lines, line);) {
            for (auto [name, into] :
                 {std::pair{"layout:", &originalLayout_}, {"variant:", &originalVariant_}}) {
                if (line.rfind(name, 0) == 0) {
                    *into = line.substr(line.find_first_not_of(' ', std::string(name).size()));
                }
            }
        }
        setLayout("us");

        ASSERT_TRUE(window_.start(display_, "vxh e2e input window", "600x300+40+40"));
        ASSERT_TRUE(window_.waitForFocus(10s)) << "the window manager never focused the test window";

        server_ = startServer({"--headless", "--port", "0"}, {{"DISPLAY", display_}});
        port_ = waitForPort(*server_);
        ASSERT_GT(port_, 0) << server_->errors();
    }

    void TearDown() override {
        window_.stop();
        if (!originalLayout_.empty()) {
            setLayout(originalLayout_ + (originalVariant_.empty() ? "" : " -variant " + originalVariant_));
        }
    }

    // setxkbmap's output on the test display, then "status=N".
    std::string setxkbmap(const std::string& words) {
        return apptest::capture("setxkbmap -display '" + display_ + "' " + words + " 2>&1; echo status=$?");
    }

    void setLayout(const std::string& layout) {
        const auto result = setxkbmap(layout);
        ASSERT_TRUE(result.ends_with("status=0\n")) << result;
    }

    // velorixctl aimed at the test window's process (the server moves the focus there first).
    E2ESubprocess::Result ctlToWindow(const std::string& command, const std::string& argument) {
        return ctl(port_, {"--pid", std::to_string(window_.pid()), command, argument});
    }

    // Types `text` and returns what the window decoded once it has as many bytes.
    std::string typed(const std::string& text) {
        window_.clear();
        const auto result = ctlToWindow("type", text);
        EXPECT_EQ(result.status, 0) << result.output << result.errors;
        return window_.waitForText(text, 20s);
    }

    std::string display_;
    std::string originalLayout_;
    std::string originalVariant_;
    TestWindow window_;
    std::unique_ptr<E2ESubprocess> server_;
    int port_ = 0;
};

TEST_F(VelorixHelperInputE2ETest, usLayout_typeAndKeys_reachTheWindow) {
    EXPECT_EQ(typed("Hello, World! 123"), "Hello, World! 123");
    // An instruction, the key press the window sees, its shift and control state, its text when told.
    const std::tuple<std::string, unsigned long, unsigned, std::string> presses[] = {
        {"#2 c", 'c', kControlMask, ""}, {"A", 'A', kShiftMask, "A"}, {"numpadreturn", kKeypadEnter, 0, ""}};
    for (const auto& [instruction, keysym, modifiers, text] : presses) {
        window_.clear();
        const auto result = ctlToWindow("key", instruction);
        EXPECT_EQ(result.status, 0) << instruction << ": " << result.errors;
        std::optional<TestWindow::Key> press;
        window_.waitFor(
            [&, keysym = keysym] {
                for (const auto& key : window_.keys()) {
                    if (key.press && key.keysym == keysym) {
                        press = key;
                        return true;
                    }
                }
                return false;
            },
            20s);
        ASSERT_TRUE(press.has_value()) << instruction;
        EXPECT_EQ(press->state & (kShiftMask | kControlMask), modifiers) << instruction;
        EXPECT_TRUE(text.empty() || press->text == text) << instruction << ": " << press->text;
    }
}

// The server was started on us: the German layout is read when the X server announces it, and us again
// after the switch back.
TEST_F(VelorixHelperInputE2ETest, layoutSwitchedWhileServing_textArrivesExactlyOnEach) {
    setLayout("de");
    EXPECT_EQ(typed("Grüße, ß@€|{} yz YZ"), "Grüße, ß@€|{} yz YZ"); // y and z trade places on de
    setLayout("us");
    EXPECT_EQ(typed("yz@{"), "yz@{");
}

// An unknown key is answered with an error; an unknown modifier mark (a raise out of the executor) ends that
// phone's session. Nothing is typed either way and the server serves the next phone.
TEST_F(VelorixHelperInputE2ETest, instructionsNamingNoKey_refusedNothingTyped_serverTypesOn) {
    window_.clear();
    const auto unknown = ctlToWindow("key", "nosuchkeyname");
    EXPECT_EQ(unknown.status, 1) << unknown.output << unknown.errors;
    EXPECT_NE(unknown.output.find("\"error\""), std::string::npos) << unknown.output;
    const auto mark = ctlToWindow("key", "#5 a");
    EXPECT_EQ(mark.status, 3) << mark.output << mark.errors; // connection lost
    EXPECT_TRUE(server_->waitForError("Comunication error", 10s).has_value()) << server_->errors();
    const auto ok = ctlToWindow("type", "ok");
    EXPECT_EQ(ok.status, 0) << ok.errors;
    EXPECT_EQ(window_.waitForText("ok", 20s), "ok") << "a refused instruction typed something";
}

} // namespace
