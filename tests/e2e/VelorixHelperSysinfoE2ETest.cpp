// The real velorixhelper on the test services' X server and PulseAudio, asked through velorixctl for
// the process list, icons, screenshots and the volume push: what a phone sees of this computer.

#include <QByteArray>
#include <QColor>
#include <QImage>

#include <fstream>
#include <iterator>
#include <regex>

#include "IconFixture.h"
#include "VelorixHelperE2ETest.h"
#include "X11TestDesktop.h"
#include "support/TestPlatform.h"

// Last: Xlib's macros (Status, None, Bool) would break Qt's headers.
#include <X11/Xlib.h>

namespace {

using namespace std::chrono_literals;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The bytes decoded as an image of format ("PNG", "JPEG"); a null image when they are none.
QImage decode(const std::string& bytes, const char* format) {
    return QImage::fromData(QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size())), format);
}

std::string size(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

std::string size(const QImage& image) {
    return size(image.width(), image.height());
}

QColor centre(const QImage& image) {
    return image.isNull() ? QColor() : image.pixelColor(image.width() / 2, image.height() / 2);
}

// The width and height of the root window of a display.
std::optional<std::pair<int, int>> rootSize(const std::string& displayName) {
    Display* display = XOpenDisplay(displayName.c_str());
    if (display == nullptr) {
        return std::nullopt;
    }
    const std::pair result{DisplayWidth(display, DefaultScreen(display)),
                           DisplayHeight(display, DefaultScreen(display))};
    XCloseDisplay(display);
    return result;
}

// `sleep` as a process of its own, so a test window can carry a pid that is not the test's.
std::unique_ptr<E2ESubprocess> sleeper() {
    return std::make_unique<E2ESubprocess>("/usr/bin/env", std::vector<std::string>{"sleep", "300"});
}

// Polls a process's standard output until `pattern` matches it; returns the match.
std::optional<std::smatch> waitForOutput(E2ESubprocess& process, const std::regex& pattern,
                                         std::chrono::seconds timeout, std::string& output) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do {
        output = process.output();
        std::smatch match;
        if (std::regex_search(output, match, pattern)) {
            return match;
        }
        std::this_thread::sleep_for(50ms);
    } while (std::chrono::steady_clock::now() < deadline && !process.wait(0ms));
    output = process.output();
    return std::nullopt;
}

class VelorixHelperSysinfoE2ETest : public VelorixHelperE2ETest {
protected:
    // The server on the test services' display and audio server, its desktop entries and icon themes
    // read from the icon fixture's folder.
    std::unique_ptr<E2ESubprocess> startOnTestServices() {
        return startServer({"--headless", "--port", "0"}, {{"DISPLAY", TestPlatform::display()},
                                                           {"PULSE_SERVER", TestPlatform::pulseServer()},
                                                           {"XDG_DATA_HOME", icons_.tree().path()}});
    }

    IconFixture icons_;
};

TEST_F(VelorixHelperSysinfoE2ETest, processlistAndIcons_windowsOfOtherProcesses_listedWithTheirIcons) {
    VXH_REQUIRE_PLATFORM(!TestPlatform::display().empty(), "no X server (VXH_TEST_DISPLAY unset)");
    // An application of the fixture: its window class names it, its icon is the fixture's grey one.
    icons_.tree().write("applications/vxh-e2e-probe.desktop",
                        "[Desktop Entry]\nType=Application\nName=Probe Viewer\nExec=vxh-e2e-probe\n"
                        "Icon=hicolor-app\nStartupWMClass=VxhE2EProbe\n");
    auto withIcon = sleeper();
    X11TestDesktop desktop(TestPlatform::display());
    ASSERT_TRUE(desktop.ok());
    const auto first =
        desktop.createWindow({static_cast<int>(withIcon->pid()), "vxh-e2e-probe", "VxhE2EProbe", "Probe one",
                              "", X11TestDesktop::redAndGreenIcon()});
    ASSERT_TRUE(desktop.waitUntilManaged(first));

    auto server = startOnTestServices();
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();

    // The executable's name and the pid; the window's application named by its desktop entry.
    const auto list = ctl(port, {"processlist"});
    ASSERT_EQ(list.status, 0) << list.errors;
    EXPECT_NE(list.output.find("{\"name\":\"sleep\",\"pid\":" + std::to_string(withIcon->pid()) +
                               ",\"mainWindowTitle\":\"Probe Viewer\"}"),
              std::string::npos)
        << list.output;

    // The window's own icon: its 32x32 green image scaled up.
    const auto ownIcon = (home_.path() / "own.png").string();
    const auto own =
        ctl(port, {"icon", "process", std::to_string(withIcon->pid()), ownIcon, "--size", "64;64"});
    ASSERT_EQ(own.status, 0) << own.output << own.errors;
    const auto ownBytes = readFile(ownIcon);
    EXPECT_EQ(size(decode(ownBytes, "PNG")), "64x64");
    EXPECT_EQ(centre(decode(ownBytes, "PNG")), QColor(Qt::green));
    EXPECT_NE(own.output.find("\"stream\":{\"bytes\":" + std::to_string(ownBytes.size()) + "}"),
              std::string::npos)
        << own.output;
    // An application by the name the applications list gives it (a phone asks for the list first): its
    // desktop entry's icon from the theme, at 32x32.
    const auto applications = ctl(port, {"applist"});
    ASSERT_EQ(applications.status, 0) << applications.errors;
    EXPECT_NE(applications.output.find("{\"name\":\"Probe Viewer\",\"pid\":0"), std::string::npos)
        << applications.output;
    const auto appIcon = (home_.path() / "app.png").string();
    const auto app = ctl(port, {"icon", "app", "Probe Viewer", appIcon, "--size", "32;32"});
    ASSERT_EQ(app.status, 0) << app.output << app.errors;
    const auto appImage = decode(readFile(appIcon), "PNG");
    EXPECT_EQ(size(appImage), "32x32");
    EXPECT_EQ(centre(appImage), QColor(Qt::gray));

    // A process whose window is gone has no icon.
    desktop.destroyWindow(first);
    const auto gonePid = withIcon->pid();
    withIcon.reset();
    const auto gone = ctl(port, {"icon", "process", std::to_string(gonePid), ownIcon});
    EXPECT_EQ(gone.status, 1) << gone.output;
    EXPECT_NE(gone.output.find("UNABLE_TO_SATISFY_REQUEST_ERROR"), std::string::npos) << gone.output;
}

// The rect variants and refusals are tried in process; here the whole screen and a clipped corner.
TEST_F(VelorixHelperSysinfoE2ETest, screenshot_wholeScreenAndClippedCorner_jpegOfTheCapturedPart) {
    VXH_REQUIRE_PLATFORM(!TestPlatform::display().empty(), "no X server (VXH_TEST_DISPLAY unset)");
    const auto screen = rootSize(TestPlatform::display());
    ASSERT_TRUE(screen);
    const auto [w, h] = *screen;
    X11TestDesktop desktop(TestPlatform::display());
    ASSERT_TRUE(desktop.ok());
    desktop.fillRoot(w - 120, h - 80, 120, 80, 0x20c040);
    auto server = startOnTestServices();
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    const auto file = (home_.path() / "shot.jpg").string();
    const auto corner = std::to_string(w - 120) + ";" + std::to_string(h - 80) + ";400;300";
    // The answer tells the rect as asked; the image holds the part on the screen.
    const std::pair<std::vector<std::string>, std::pair<std::string, std::string>> cases[] = {
        {{}, {"0,0," + std::to_string(w) + "," + std::to_string(h), size(w, h)}},
        {{"--rect", corner}, {std::to_string(w - 120) + "," + std::to_string(h - 80) + ",400,300", "120x80"}},
    };
    for (const auto& [rect, expected] : cases) {
        std::vector<std::string> words{"screenshot", file};
        words.insert(words.end(), rect.begin(), rect.end());
        const auto result = ctl(port, words);
        ASSERT_EQ(result.status, 0) << result.output << result.errors;
        EXPECT_NE(result.output.find("\"rect\":[" + expected.first + "]"), std::string::npos)
            << result.output;
        const auto bytes = readFile(file);
        EXPECT_NE(result.output.find("\"bytes\":" + std::to_string(bytes.size())), std::string::npos)
            << result.output;
        EXPECT_EQ(size(decode(bytes, "JPEG")), expected.second);
    }
    // The clipped image is the painted corner.
    const QColor pixel = decode(readFile(file), "JPEG").pixelColor(60, 40);
    EXPECT_NEAR(pixel.red(), 0x20, 24);
    EXPECT_NEAR(pixel.green(), 0xc0, 24);
    EXPECT_NEAR(pixel.blue(), 0x40, 24);
}

TEST_F(VelorixHelperSysinfoE2ETest, watch_volumeChangedWithPactl_newVolumePushedToThePhone) {
    VXH_REQUIRE_PLATFORM(!TestPlatform::pulseServer().empty(), "no PulseAudio (VXH_TEST_PULSE unset)");
    const auto pactl = [](const std::string& words) {
        return apptest::capture("PULSE_SERVER='" + TestPlatform::pulseServer() + "' pactl " + words +
                                " 2>&1; echo status=$?");
    };
    // A volume other than the one pushed later, set before the server reads any.
    ASSERT_NE(pactl("set-sink-volume @DEFAULT_SINK@ 60%").find("status=0"), std::string::npos);

    auto server = startOnTestServices();
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    std::vector<std::string> args{"--port", std::to_string(port), "watch", "60"};
    E2ESubprocess watcher(kCtl, args, environment());
    std::string output;
    // The answer to its process list request, then the volume as the session first sees it: from here
    // on only changes are pushed.
    ASSERT_TRUE(waitForOutput(watcher, std::regex("\"processList\""), 30s, output))
        << output << watcher.errors();
    ASSERT_TRUE(waitForOutput(watcher, std::regex(R"re("subject":"volume","information":"0\.(59|60))re"), 30s,
                              output))
        << output << watcher.errors();

    const std::string set = pactl("set-sink-volume @DEFAULT_SINK@ 37%");
    ASSERT_NE(set.find("status=0"), std::string::npos) << set;
    const std::regex pushed(R"re(\{"info":\{"subject":"volume","information":"(0\.3[0-9]*)")re");
    const auto match = waitForOutput(watcher, pushed, 30s, output);
    ASSERT_TRUE(match) << output << watcher.errors();
    EXPECT_NEAR(std::stod((*match)[1].str()), 0.37, 0.005) << output;

    // A read right after the push gives the same value.
    const auto read = ctl(port, {"info", "volume"});
    ASSERT_EQ(read.status, 0) << read.errors;
    EXPECT_NE(read.output.find("\"information\":\"" + (*match)[1].str() + "\""), std::string::npos)
        << read.output;
}

} // namespace
