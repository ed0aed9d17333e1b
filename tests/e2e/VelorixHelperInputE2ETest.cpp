// Typing through the whole chain: velorixctl's `type` and `key` commands against the real velorixhelper,
// run headless on the test X server, reach a test window that records what the toolkit decodes, on the
// us layout and after the layout was switched under the running server.

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "E2ESubprocess.h"
#include "TestWindow.h"
#include "VelorixHelperE2ETest.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned kShiftMask = 1;
constexpr unsigned kControlMask = 4;
constexpr unsigned long kKeypadEnter = 0xff8d;

// The program's file on PATH (the subprocess runs a file, not a name), empty when there is none.
std::string onPath(const std::string& program) {
    std::istringstream folders(TestPlatform::env("PATH"));
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        const auto file = std::filesystem::path(folder.empty() ? "." : folder) / program;
        if (::access(file.c_str(), X_OK) == 0) {
            return file.string();
        }
    }
    return "";
}

// The test window and the server share the test X server; every test needs the keyboard focus and may
// switch the layout, so they run one at a time (see the resource lock in CMakeLists.txt). The layout found at
// the start is put back at the end, also when a test fails.
class VelorixHelperInputE2ETest : public VelorixHelperE2ETest {
protected:
    void SetUp() override {
        display_ = TestPlatform::display();
        VXH_REQUIRE_PLATFORM(!display_.empty(), "no X server (VXH_TEST_DISPLAY unset)");
        setxkbmap_ = onPath("setxkbmap");
        VXH_REQUIRE_PLATFORM(!setxkbmap_.empty(), "setxkbmap is not installed");
        const auto query = E2ESubprocess::run(setxkbmap_, {"-display", display_, "-query"}, environment());
        VXH_REQUIRE_PLATFORM(query.status == 0, "setxkbmap does not answer on the test display");
        originalLayout_ = queryField(query.output, "layout:");
        originalVariant_ = queryField(query.output, "variant:");
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
            std::vector<std::string> args{"-display", display_, originalLayout_};
            if (!originalVariant_.empty()) {
                args.insert(args.end(), {"-variant", originalVariant_});
            }
            EXPECT_EQ(E2ESubprocess::run(setxkbmap_, args, environment()).status, 0);
        }
    }

    static std::string queryField(const std::string& output, const std::string& name) {
        std::istringstream lines(output);
        std::string line;
        while (std::getline(lines, line)) {
            if (line.rfind(name, 0) == 0) {
                const auto start = line.find_first_not_of(' ', name.size());
                return start == std::string::npos ? "" : line.substr(start);
            }
        }
        return "";
    }

    void setLayout(const std::string& layout) {
        const auto result = E2ESubprocess::run(setxkbmap_, {"-display", display_, layout}, environment());
        ASSERT_EQ(result.status, 0) << result.errors;
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

    // The first key press with `keysym` the window reports within a generous wait.
    std::optional<TestWindow::Key> pressOf(unsigned long keysym) {
        const auto find = [&]() -> std::optional<TestWindow::Key> {
            for (const auto& key : window_.keys()) {
                if (key.press && key.keysym == keysym) {
                    return key;
                }
            }
            return std::nullopt;
        };
        window_.waitFor([&] { return find().has_value(); }, 20s);
        return find();
    }

    std::string display_;
    std::string setxkbmap_;
    std::string originalLayout_;
    std::string originalVariant_;
    TestWindow window_;
    std::unique_ptr<E2ESubprocess> server_;
    int port_ = 0;
};

TEST_F(VelorixHelperInputE2ETest, usLayout_typeAndKeys_reachTheWindow) {
    EXPECT_EQ(typed("Hello, World! 123"), "Hello, World! 123");

    window_.clear();
    const auto control = ctlToWindow("key", "#2 c");
    EXPECT_EQ(control.status, 0) << control.errors;
    const auto c = pressOf('c');
    ASSERT_TRUE(c.has_value());
    EXPECT_EQ(c->state & (kShiftMask | kControlMask), kControlMask);

    window_.clear();
    const auto capital = ctlToWindow("key", "A");
    EXPECT_EQ(capital.status, 0) << capital.errors;
    const auto a = pressOf('A');
    ASSERT_TRUE(a.has_value());
    EXPECT_EQ(a->state & (kShiftMask | kControlMask), kShiftMask);
    EXPECT_EQ(a->text, "A");

    window_.clear();
    const auto enter = ctlToWindow("key", "numpadreturn");
    EXPECT_EQ(enter.status, 0) << enter.errors;
    EXPECT_TRUE(pressOf(kKeypadEnter).has_value());
}

// The server was started on us: the German layout is read when the X server announces it, and us again
// after the switch back.
TEST_F(VelorixHelperInputE2ETest, layoutSwitchedWhileServing_textArrivesExactlyOnEach) {
    setLayout("de");
    EXPECT_EQ(typed("Grüße, ß@€|{}"), "Grüße, ß@€|{}");
    EXPECT_EQ(typed("yz YZ"), "yz YZ"); // the keys that trade places between de and us

    setLayout("us");
    EXPECT_EQ(typed("yz@{"), "yz@{");
}

// What a phone sends over the network may name no key: the server answers with an error, or, for a
// modifier mark it does not know (a raise out of the executor), ends that phone's session. Either way
// nothing is typed and the server goes on serving the next phone.
TEST_F(VelorixHelperInputE2ETest, instructionsNamingNoKey_refusedNothingTyped_serverTypesOn) {
    constexpr int kErrorAnswered = 1;
    constexpr int kConnectionLost = 3;
    const struct {
        std::string instruction;
        int status;
    } cases[] = {
        {"nosuchkeyname", kErrorAnswered},
        {"#1 #1", kErrorAnswered},
        {std::string(5000, 'q'), kErrorAnswered},
        {"#5 a", kConnectionLost},
        {"#2 #9 x", kConnectionLost},
    };
    window_.clear();
    for (const auto& c : cases) {
        const auto shown = "'" + c.instruction.substr(0, 20) + "': ";
        const auto result = ctlToWindow("key", c.instruction);
        EXPECT_EQ(result.status, c.status) << shown << result.output << result.errors;
        if (c.status == kErrorAnswered) {
            EXPECT_NE(result.output.find("\"error\""), std::string::npos) << shown << result.output;
        }
    }
    EXPECT_TRUE(server_->waitForError("Comunication error", 10s).has_value()) << server_->errors();
    const auto ok = ctlToWindow("type", "ok");
    EXPECT_EQ(ok.status, 0) << ok.errors;
    EXPECT_EQ(window_.waitForText("ok", 20s), "ok") << "a refused instruction typed something";
}

} // namespace
