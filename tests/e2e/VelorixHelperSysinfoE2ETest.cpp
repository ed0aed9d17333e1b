// The real velorixhelper on the test services' X server and PulseAudio, asked through velorixctl for
// the process list, icons, screenshots and the volume push: what a phone sees of this computer.

#include <gtest/gtest.h>

#include <turbojpeg.h>

#include <QByteArray>
#include <QColor>
#include <QImage>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

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

struct Size {
    int width = 0;
    int height = 0;
    bool operator==(const Size&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Size& size) {
    return out << size.width << "x" << size.height;
}

// The size an IHDR chunk states, or nothing when the bytes do not start as a PNG file does.
std::optional<Size> pngSize(const std::string& bytes) {
    if (bytes.size() < 24 || bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 ||
        bytes.compare(12, 4, "IHDR") != 0) {
        return std::nullopt;
    }
    const auto bigEndian = [&](size_t at) {
        int value = 0;
        for (size_t i = 0; i < 4; ++i) {
            value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
        }
        return value;
    };
    return Size{bigEndian(16), bigEndian(20)};
}

// The colour at the centre of a PNG image.
QColor pngCentre(const std::string& bytes) {
    const QImage image =
        QImage::fromData(QByteArray(bytes.data(), static_cast<qsizetype>(bytes.size())), "PNG");
    return image.isNull() ? QColor() : image.pixelColor(image.width() / 2, image.height() / 2);
}

// A JPEG decoded to RGB rows, empty when the bytes are no JPEG.
struct Jpeg {
    Size size;
    std::vector<unsigned char> rgb;

    std::uint32_t pixel(int x, int y) const {
        const auto* p =
            &rgb[(static_cast<size_t>(y) * static_cast<size_t>(size.width) + static_cast<size_t>(x)) * 3];
        return (std::uint32_t{p[0]} << 16) | (std::uint32_t{p[1]} << 8) | p[2];
    }
};

std::optional<Jpeg> decodeJpeg(const std::string& bytes) {
    tjhandle handle = tjInitDecompress();
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    Jpeg jpeg;
    int subsampling = 0;
    int colourspace = 0;
    bool ok = handle != nullptr && tjDecompressHeader3(handle, data, bytes.size(), &jpeg.size.width,
                                                       &jpeg.size.height, &subsampling, &colourspace) == 0;
    if (ok) {
        jpeg.rgb.resize(static_cast<size_t>(jpeg.size.width) * static_cast<size_t>(jpeg.size.height) * 3);
        ok = tjDecompress2(handle, data, bytes.size(), jpeg.rgb.data(), jpeg.size.width, 0, jpeg.size.height,
                           TJPF_RGB, 0) == 0;
    }
    if (handle != nullptr) {
        tjDestroy(handle);
    }
    return ok ? std::optional<Jpeg>(std::move(jpeg)) : std::nullopt;
}

bool closeColour(std::uint32_t actual, std::uint32_t expected, int tolerance) {
    for (int shift : {0, 8, 16}) {
        if (std::abs(static_cast<int>((actual >> shift) & 0xff) -
                     static_cast<int>((expected >> shift) & 0xff)) > tolerance) {
            return false;
        }
    }
    return true;
}

// The size of the root window of a display.
std::optional<Size> rootSize(const std::string& displayName) {
    Display* display = XOpenDisplay(displayName.c_str());
    if (display == nullptr) {
        return std::nullopt;
    }
    const Size size{DisplayWidth(display, DefaultScreen(display)),
                    DisplayHeight(display, DefaultScreen(display))};
    XCloseDisplay(display);
    return size;
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
    auto withoutIcon = sleeper();
    X11TestDesktop desktop(TestPlatform::display());
    ASSERT_TRUE(desktop.ok());
    const auto first =
        desktop.createWindow({static_cast<int>(withIcon->pid()), "vxh-e2e-probe", "VxhE2EProbe", "Probe one",
                              "", X11TestDesktop::redAndGreenIcon()});
    const auto second = desktop.createWindow(
        {static_cast<int>(withoutIcon->pid()), "vxh-e2e-probe", "VxhE2EProbe", "Probe two", "", {}});
    ASSERT_TRUE(desktop.waitUntilManaged(first));
    ASSERT_TRUE(desktop.waitUntilManaged(second));

    auto server = startOnTestServices();
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();

    // The executable's name and the pid; the window's application named by its desktop entry.
    const auto list = ctl(port, {"processlist"});
    ASSERT_EQ(list.status, 0) << list.errors;
    for (const auto* process : {withIcon.get(), withoutIcon.get()}) {
        EXPECT_NE(list.output.find("{\"name\":\"sleep\",\"pid\":" + std::to_string(process->pid()) +
                                   ",\"mainWindowTitle\":\"Probe Viewer\"}"),
                  std::string::npos)
            << process->pid() << " in " << list.output;
    }

    // The window's own icon: its 32x32 green image scaled up.
    const auto ownIcon = (home_.path() / "own.png").string();
    const auto own =
        ctl(port, {"icon", "process", std::to_string(withIcon->pid()), ownIcon, "--size", "64;64"});
    ASSERT_EQ(own.status, 0) << own.output << own.errors;
    const auto ownBytes = readFile(ownIcon);
    EXPECT_EQ(pngSize(ownBytes), (Size{64, 64}));
    EXPECT_EQ(pngCentre(ownBytes), QColor(Qt::green));
    EXPECT_NE(own.output.find("\"stream\":{\"bytes\":" + std::to_string(ownBytes.size()) + "}"),
              std::string::npos)
        << own.output;
    // A window without an icon of its own: openbox gives it its default icon, which wins over the desktop
    // entry's; at the size asked all the same.
    const auto otherIcon = (home_.path() / "other.png").string();
    const auto other =
        ctl(port, {"icon", "process", std::to_string(withoutIcon->pid()), otherIcon, "--size", "48;48"});
    ASSERT_EQ(other.status, 0) << other.output << other.errors;
    EXPECT_EQ(pngSize(readFile(otherIcon)), (Size{48, 48}));

    // An application by the name the applications list gives it (a phone asks for the list first): its
    // desktop entry's icon from the theme, at 32x32.
    const auto applications = ctl(port, {"applist"});
    ASSERT_EQ(applications.status, 0) << applications.errors;
    EXPECT_NE(applications.output.find("{\"name\":\"Probe Viewer\",\"pid\":0"), std::string::npos)
        << applications.output;
    const auto appIcon = (home_.path() / "app.png").string();
    const auto app = ctl(port, {"icon", "app", "Probe Viewer", appIcon, "--size", "32;32"});
    ASSERT_EQ(app.status, 0) << app.output << app.errors;
    const auto appBytes = readFile(appIcon);
    EXPECT_EQ(pngSize(appBytes), (Size{32, 32}));
    EXPECT_EQ(pngCentre(appBytes), QColor(Qt::gray));

    // Neither a process whose window is gone nor an application nobody installed has an icon.
    desktop.destroyWindow(second);
    const auto gonePid = withoutIcon->pid();
    withoutIcon.reset();
    const auto gone = ctl(port, {"icon", "process", std::to_string(gonePid), otherIcon});
    EXPECT_EQ(gone.status, 1) << gone.output;
    EXPECT_NE(gone.output.find("UNABLE_TO_SATISFY_REQUEST_ERROR"), std::string::npos) << gone.output;
    const auto unknown = ctl(port, {"icon", "app", "No Such Application", appIcon});
    EXPECT_EQ(unknown.status, 1) << unknown.output;
    EXPECT_NE(unknown.output.find("UNABLE_TO_SATISFY_REQUEST_ERROR"), std::string::npos) << unknown.output;
}

TEST_F(VelorixHelperSysinfoE2ETest, screenshot_wholeScreenRestAndClippedRects_jpegOfTheCapturedPart) {
    VXH_REQUIRE_PLATFORM(!TestPlatform::display().empty(), "no X server (VXH_TEST_DISPLAY unset)");
    const auto screen = rootSize(TestPlatform::display());
    ASSERT_TRUE(screen);
    auto server = startOnTestServices();
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    const auto file = (home_.path() / "shot.jpg").string();
    const auto shoot = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"screenshot", file});
        const auto result = ctl(port, words);
        return std::make_pair(result, result.status == 0 ? decodeJpeg(readFile(file)) : std::nullopt);
    };
    const auto rectText = [](int x, int y, int width, int height) {
        return "\"rect\":[" + std::to_string(x) + "," + std::to_string(y) + "," + std::to_string(width) +
               "," + std::to_string(height) + "]";
    };
    const int w = screen->width;
    const int h = screen->height;

    struct Case {
        std::string what;
        std::vector<std::string> words;
        std::string answeredRect;
        Size jpeg;
    };
    const std::vector<Case> cases = {
        {"no rect: the whole screen", {}, rectText(0, 0, w, h), {w, h}},
        {"width and height 0: the rest of the screen",
         {"--rect", "100;60;0;0"},
         rectText(100, 60, w - 100, h - 60),
         {w - 100, h - 60}},
        // The size only matters to the screen reader, which rectangle capture never takes.
        {"a rect with a size",
         {"--rect", "10;20;320;200", "--size", "100;50"},
         rectText(10, 20, 320, 200),
         {320, 200}},
        // The answer tells the rect as asked; the image holds the part on the screen.
        {"a rect over the bottom-right corner",
         {"--rect", std::to_string(w - 120) + ";" + std::to_string(h - 80) + ";400;300"},
         rectText(w - 120, h - 80, 400, 300),
         {120, 80}},
        {"a rect over the top-left corner",
         {"--rect", "-50;-30;150;100"},
         rectText(-50, -30, 150, 100),
         {100, 70}},
    };
    for (const auto& c : cases) {
        const auto [result, jpeg] = shoot(c.words);
        ASSERT_EQ(result.status, 0) << c.what << ": " << result.output << result.errors;
        EXPECT_NE(result.output.find(c.answeredRect), std::string::npos) << c.what << ": " << result.output;
        ASSERT_TRUE(jpeg) << c.what;
        EXPECT_EQ(jpeg->size, c.jpeg) << c.what;
    }

    // The clipped image is the screen's corner: paint it and look.
    X11TestDesktop desktop(TestPlatform::display());
    ASSERT_TRUE(desktop.ok());
    desktop.fillRoot(w - 120, h - 80, 120, 80, 0x20c040);
    const auto [corner, cornerJpeg] =
        shoot({"--rect", std::to_string(w - 120) + ";" + std::to_string(h - 80) + ";400;300"});
    ASSERT_TRUE(cornerJpeg) << corner.output << corner.errors;
    EXPECT_TRUE(closeColour(cornerJpeg->pixel(60, 40), 0x20c040, 24))
        << std::hex << cornerJpeg->pixel(60, 40);

    // A rect wholly beyond the screen, or without area, captures nothing: the error answer.
    for (const auto& rect : {std::to_string(w) + ";0;100;100", "0;" + std::to_string(h + 10) + ";50;50",
                             std::string("-300;-300;200;200"), std::string("10;10;0;40")}) {
        const auto [result, jpeg] = shoot({"--rect", rect});
        EXPECT_EQ(result.status, 1) << rect << ": " << result.output;
        EXPECT_NE(result.output.find("UNABLE_TO_SATISFY_REQUEST_ERROR"), std::string::npos)
            << rect << ": " << result.output;
    }
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
