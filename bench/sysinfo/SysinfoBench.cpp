// Figures of the system information: a whole-screen screenshot (capture and JPEG in process, and the
// screenshot request to the real velorixhelper from the phone code) against ImageMagick's import on the
// same screen, the list of processes with 50 windows, the applications list over 300 desktop entries, and
// a 64x64 application icon. Runs its own X server; prints medians.
//   sysinfo_bench [repetitions]
#include "E2ESubprocess.h"
#include "phone/VXPhone.h"
#include "protocol/VXProcess.h"
#include "support/XvfbProcess.h"
#include "sysinfo/VXJPEGEncoder.h"
#include "sysinfo/VXSystemInfo.h"
#include "sysinfo/linux/QtImageRenderer.h"
#include "sysinfo/linux/QtMimeTypes.h"
#include "sysinfo/linux/X11ProcessSource.h"
#include "sysinfo/linux/X11ScreenGrabber.h"

#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// Processor time of this process (all threads), in milliseconds.
double processMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1000.0 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Processor time of the children waited for so far, in milliseconds.
double childrenMilliseconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto ms = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) * 1000.0 + static_cast<double>(t.tv_usec) / 1000.0;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

// The times of `repetitions` runs of work, in milliseconds, sorted.
std::vector<double> sortedMilliseconds(int repetitions, const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < repetitions; ++i) {
        const auto start = Clock::now();
        work();
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times;
}

// The p-th percentile (0 < p <= 100) of sorted times: the smallest time at least p percent of them reach.
double percentile(const std::vector<double>& sorted, double p) {
    const auto rank = static_cast<std::size_t>(std::ceil(p / 100.0 * static_cast<double>(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

// Processor time of another process of this user so far (user and system), in milliseconds.
double processMilliseconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The fields after the command name (in parentheses, which may hold spaces): state is the third
    // field, utime and stime the 14th and 15th.
    const auto close = text.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i >= 14) {
            ticks += std::stod(field);
        }
    }
    return ticks * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double medianMilliseconds(int repetitions, const std::function<void()>& work) {
    const auto times = sortedMilliseconds(repetitions, work);
    return times[times.size() / 2];
}

// Something like a desktop: a gradient wallpaper, windows with title bars, text, icons and shapes.
QImage desktopImage(int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient wallpaper(0, 0, width, height);
    wallpaper.setColorAt(0, QColor(0x1e, 0x3c, 0x72));
    wallpaper.setColorAt(0.5, QColor(0x6a, 0x30, 0x93));
    wallpaper.setColorAt(1, QColor(0xd0, 0x60, 0x40));
    painter.fillRect(image.rect(), wallpaper);
    painter.fillRect(0, 0, width, 32, QColor(0x20, 0x20, 0x20));
    QFont font(QStringLiteral("Sans"), 11);
    painter.setFont(font);
    for (int i = 0; i < 12; ++i) {
        QRadialGradient glow(120 + i * 150, 900 - (i % 4) * 120, 80);
        glow.setColorAt(0, QColor::fromHsv(i * 30, 200, 255, 200));
        glow.setColorAt(1, QColor(0, 0, 0, 0));
        painter.setBrush(glow);
        painter.setPen(Qt::NoPen);
        painter.drawEllipse(QPointF(120 + i * 150, 900 - (i % 4) * 120), 80, 80);
    }
    const QRect windows[] = {{80, 80, 900, 620}, {620, 260, 1000, 560}, {1300, 120, 520, 420}};
    for (int w = 0; w < 3; ++w) {
        const QRect frame = windows[w];
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0, 0, 0, 60));
        painter.drawRoundedRect(frame.translated(6, 8), 8, 8);
        painter.setBrush(QColor(0xf6, 0xf5, 0xf4));
        painter.drawRoundedRect(frame, 8, 8);
        painter.setBrush(QColor(0xde, 0xdd, 0xda));
        painter.drawRoundedRect(QRect(frame.x(), frame.y(), frame.width(), 36), 8, 8);
        painter.setPen(QColor(0x24, 0x1f, 0x31));
        painter.drawText(frame.x() + 16, frame.y() + 24, QStringLiteral("Document %1 — Editor").arg(w + 1));
        for (int line = 0; line < (frame.height() - 60) / 18; ++line) {
            painter.setPen(QColor::fromHsv((line * 40 + w * 90) % 360, line % 3 == 0 ? 180 : 0, 60));
            painter.drawText(frame.x() + 16, frame.y() + 60 + line * 18,
                             QStringLiteral("%1  int value_%2 = compute(%3, \"text %4\"); // comment")
                                 .arg(line + 1)
                                 .arg(line * 7)
                                 .arg(line * 13 % 97)
                                 .arg(w));
        }
    }
    for (int i = 0; i < 40; ++i) {
        painter.setBrush(QColor::fromHsv((i * 47) % 360, 160, 220));
        painter.setPen(Qt::NoPen);
        painter.drawRoundedRect(QRect(8 + (i % 20) * 40, 4 + (i / 20) * 14, 24, 10), 3, 3);
    }
    return image;
}

// Puts an image on the root window of `display`.
bool paintRoot(const std::string& displayName, const QImage& image) {
    Display* dpy = XOpenDisplay(displayName.c_str());
    if (dpy == nullptr) {
        return false;
    }
    XImage* ximage = XCreateImage(dpy, DefaultVisual(dpy, DefaultScreen(dpy)), 24, ZPixmap, 0,
                                  const_cast<char*>(reinterpret_cast<const char*>(image.constBits())),
                                  static_cast<unsigned>(image.width()), static_cast<unsigned>(image.height()),
                                  32, static_cast<int>(image.bytesPerLine()));
    GC gc = XCreateGC(dpy, DefaultRootWindow(dpy), 0, nullptr);
    XPutImage(dpy, DefaultRootWindow(dpy), gc, ximage, 0, 0, 0, 0, static_cast<unsigned>(image.width()),
              static_cast<unsigned>(image.height()));
    XSync(dpy, False);
    ximage->data = nullptr;
    XDestroyImage(ximage);
    XFreeGC(dpy, gc);
    XCloseDisplay(dpy);
    return true;
}

int runCommand(std::vector<std::string> arguments, const std::string& display) {
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> environment;
    for (char** e = environ; *e != nullptr; ++e) {
        if (!std::string(*e).starts_with("DISPLAY=")) {
            environment.emplace_back(*e);
        }
    }
    environment.push_back("DISPLAY=" + display);
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), envp.data()) != 0) {
        return -1;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The whole-screen screenshot request to the real velorixhelper on `display`, from the request sent to
// the whole answer (with its JPEG) received and decoded by the phone code, over a loopback connection.
struct RequestFigures {
    std::vector<double> times;  // sorted, milliseconds
    double serverProcessor = 0; // the server's processor time per request, milliseconds
    double phoneProcessor = 0;  // this process's, milliseconds
    std::size_t jpegSize = 0;
    std::string failure;
};

RequestFigures benchScreenshotRequest(const std::string& display, int repetitions) {
    RequestFigures figures;
    char pattern[] = "/tmp/vxh-bench-home-XXXXXX";
    const std::string home = mkdtemp(pattern);
    {
        E2ESubprocess server(VXH_VELORIXHELPER_PATH, {"--headless", "--port", "0"},
                             {{"DISPLAY", display}, {"HOME", home}, {"XDG_CONFIG_HOME", home + "/config"}});
        const auto line = server.waitForError("Waiting for connections on port ", std::chrono::seconds(30));
        if (!line) {
            figures.failure = "the server did not start: " + server.errors();
            std::filesystem::remove_all(home);
            return figures;
        }
        const int port = std::stoi(line->substr(line->rfind(' ') + 1));
        try {
            auto phone = VXPhone::connect("127.0.0.1", port);
            phone->handshake(VXPhone::Identity{});
            const auto shot = [&] {
                phone->sendRequest("screenshot");
                const auto answer = phone->receiveMatching(
                    [](const VXPhoneMessage& m) { return m.kind == "screenshot" || m.isError(); },
                    std::chrono::seconds(10));
                if (!answer || answer->kind != "screenshot" || answer->stream.empty()) {
                    throw std::runtime_error(answer ? answer->toJSON() : "no answer");
                }
                figures.jpegSize = answer->stream.size();
            };
            // The first request connects the server's capture and makes its buffers.
            for (int i = 0; i < 5; ++i) {
                shot();
            }
            const double serverBefore = processMilliseconds(server.pid());
            const double phoneBefore = processMilliseconds();
            figures.times = sortedMilliseconds(repetitions, shot);
            figures.serverProcessor = (processMilliseconds(server.pid()) - serverBefore) / repetitions;
            figures.phoneProcessor = (processMilliseconds() - phoneBefore) / repetitions;
        } catch (const std::exception& error) {
            figures.failure = error.what();
        }
        server.signal(SIGTERM);
        server.wait(std::chrono::seconds(10));
    }
    std::filesystem::remove_all(home);
    return figures;
}

void benchScreenshot(int repetitions) {
    XvfbProcess xvfb;
    if (!xvfb.start(1920, 1080) || !paintRoot(xvfb.name(), desktopImage(1920, 1080))) {
        std::printf("screenshot: no X server, skipped\n");
        return;
    }
    X11ScreenGrabber grabber(xvfb.name());
    VXJPEGEncoder encoder;
    VXPixelBuffer image;
    std::size_t jpegSize = 0;
    const auto shot = [&] {
        grabber.captureRect({0, 0, 1920, 1080}, image);
        jpegSize = encoder.encode(image, VXJPEGEncoder::screenshotQuality).size();
    };
    const double ours = medianMilliseconds(repetitions, shot);
    const double captureOnly = medianMilliseconds(repetitions, [&] {
        grabber.captureRect({0, 0, 1920, 1080}, image);
    });
    // Processor time says more than wall-clock time on a busy machine.
    const double processorBefore = processMilliseconds();
    for (int i = 0; i < repetitions; ++i) {
        shot();
    }
    const double oursProcessor = (processMilliseconds() - processorBefore) / repetitions;

    const std::string output =
        std::filesystem::temp_directory_path() / ("vxh-bench-" + std::to_string(getpid()) + ".jpg");
    int importStatus = 0;
    const int importRuns = std::max(3, repetitions / 5);
    const double childrenBefore = childrenMilliseconds();
    const double import = medianMilliseconds(importRuns, [&] {
        importStatus = runCommand({"import", "-window", "root", "-quality", "10", output}, xvfb.name());
    });
    const double importProcessor = (childrenMilliseconds() - childrenBefore) / importRuns;
    std::error_code error;
    const auto importSize = std::filesystem::file_size(output, error);
    std::filesystem::remove(output, error);
    // The request through the server, as many times again as the in-process figures (at least 200, for
    // the 99th percentile), on the same screen.
    const auto request = benchScreenshotRequest(xvfb.name(), std::max(200, repetitions * 10));
    std::printf(
        "screenshot 1920x1080 capture+JPEG q10: median %.2f ms (capture alone %.2f ms), processor %.2f ms, "
        "%zu bytes, shm %s\n",
        ours, captureOnly, oursProcessor, jpegSize, grabber.lastCaptureUsedSharedMemory() ? "yes" : "no");
    double requestMedian = 0;
    if (request.failure.empty()) {
        requestMedian = percentile(request.times, 50);
        std::printf(
            "screenshot request to velorixhelper, request sent to answer received (%zu requests): median "
            "%.2f ms, p99 %.2f ms, min %.2f ms; processor per request: server %.2f ms, phone %.2f ms; "
            "%zu bytes (goal median <= 12 ms)\n",
            request.times.size(), requestMedian, percentile(request.times, 99), request.times.front(),
            request.serverProcessor, request.phoneProcessor, request.jpegSize);
    } else {
        std::printf("screenshot request to velorixhelper: failed: %s\n", request.failure.c_str());
    }
    if (importStatus == 0) {
        std::printf(
            "import -window root -quality 10: median %.1f ms, processor %.1f ms, %llu bytes; ratio %.1fx "
            "wall-clock, %.1fx processor (capture+JPEG); to the request: %.1fx wall-clock (medians), %.1fx "
            "processor (server and phone) (goal >= 8x)\n",
            import, importProcessor, static_cast<unsigned long long>(importSize), import / ours,
            importProcessor / oursProcessor, requestMedian > 0 ? import / requestMedian : 0.0,
            requestMedian > 0 ? importProcessor / (request.serverProcessor + request.phoneProcessor) : 0.0);
    } else {
        std::printf("import: not available (status %d)\n", importStatus);
    }
}

class Children {
public:
    ~Children() {
        for (pid_t pid : pids_) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    pid_t sleeper() {
        char program[] = "sleep";
        char seconds[] = "600";
        char* argv[] = {program, seconds, nullptr};
        pid_t pid = -1;
        if (posix_spawnp(&pid, "sleep", nullptr, nullptr, argv, environ) == 0) {
            pids_.push_back(pid);
        }
        return pid;
    }

private:
    std::vector<pid_t> pids_;
};

void benchProcessList(int repetitions) {
    XvfbProcess xvfb;
    if (!xvfb.start(1920, 1080) || !xvfb.startWindowManager()) {
        std::printf("processList: no X server or window manager, skipped\n");
        return;
    }
    Children children;
    Display* dpy = XOpenDisplay(xvfb.name().c_str());
    for (int i = 0; i < 50; ++i) {
        const Window window =
            XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 10 + i * 5, 10 + i * 5, 300, 200, 0, 0, 0);
        const std::string name = "app" + std::to_string(i);
        XStoreName(dpy, window, ("Window " + std::to_string(i)).c_str());
        XClassHint hint{const_cast<char*>(name.c_str()), const_cast<char*>(name.c_str())};
        XSetClassHint(dpy, window, &hint);
        const long pid = children.sleeper();
        XChangeProperty(dpy, window, XInternAtom(dpy, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(&pid), 1);
        XMapWindow(dpy, window);
    }
    XSync(dpy, False);

    VXSystemInfoBackEnds backEnds;
    backEnds.processes = std::make_shared<X11ProcessSource>(xvfb.name());
    VXSystemInfo info(std::move(backEnds));
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (info.getUIElementProcesses().size() < 50 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::size_t count = 0;
    const double median =
        medianMilliseconds(repetitions, [&] { count = info.getUIElementProcesses().size(); });
    const double processorBefore = processMilliseconds();
    for (int i = 0; i < repetitions; ++i) {
        info.getUIElementProcesses();
    }
    const double processor = (processMilliseconds() - processorBefore) / repetitions;
    X11ProcessSource windows(xvfb.name());
    const double windowList = medianMilliseconds(repetitions, [&] { windows.uiProcesses(); });
    std::printf("processList UIElement with 50 windows: median %.3f ms (the X11 window list alone %.3f ms), "
                "processor %.3f ms, %zu processes (goal <= 2 ms)\n",
                median, windowList, processor, count);
    XCloseDisplay(dpy);
}

void benchApplications(int repetitions) {
    char pattern[] = "/tmp/vxh-bench-apps-XXXXXX";
    const std::string root = mkdtemp(pattern);
    for (int i = 0; i < 300; ++i) {
        const std::string folder = root + (i % 3 == 0 ? "/applications/sub" : "/applications");
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/app" + std::to_string(i) + ".desktop")
            << "[Desktop Entry]\nType=Application\nName=Application " << (i * 7919 % 300)
            << "\nName[de]=Anwendung " << i << "\nName[fr]=Application " << i
            << "\nComment=Does thing number " << i << "\nExec=/usr/bin/app" << i << " %U\nIcon=app" << i
            << "\nCategories=Utility;\n"
            << "Keywords=one;two;three;\n\n[Desktop Action new]\nName=New\nExec=app" << i << " --new\n";
    }
    VXSystemInfoBackEnds backEnds;
    backEnds.dataDirs = {root};
    VXSystemInfo info(std::move(backEnds));
    const auto start = Clock::now();
    const std::size_t first = info.getInstalledApplications().size();
    const double cold = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    const double warm = medianMilliseconds(repetitions, [&] { info.getInstalledApplications(); });
    std::printf("appList over 300 desktop entries: first scan %.2f ms, then median %.3f ms, %zu applications "
                "(goal <= 20 ms)\n",
                cold, warm, first);
    std::filesystem::remove_all(root);
}

void benchIcon(int repetitions) {
    char pattern[] = "/tmp/vxh-bench-icon-XXXXXX";
    const std::string root = mkdtemp(pattern);
    const struct {
        const char* icon;
        const char* what;
    } icons[] = {{"utilities-terminal", "installed theme"}, {"computer", "installed theme"}};
    for (const auto& icon : icons) {
        const std::string entry = root + "/applications/" + icon.icon + ".desktop";
        std::filesystem::create_directories(root + "/applications");
        std::ofstream(entry) << "[Desktop Entry]\nType=Application\nName=" << icon.icon
                             << "\nIcon=" << icon.icon << "\n";
        VXSystemInfoBackEnds backEnds;
        backEnds.images = std::make_shared<QtImageRenderer>();
        backEnds.mimeTypes = std::make_shared<QtMimeTypes>();
        VXSystemInfo info(std::move(backEnds));
        VXProcess process(std::string(icon.icon), 0);
        process.setPath(entry);
        const auto start = Clock::now();
        const auto png = info.getDataOfIconForProcessSize(process, 64, 64);
        const double first = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        const double median =
            medianMilliseconds(repetitions, [&] { info.getDataOfIconForProcessSize(process, 64, 64); });
        // A size not asked before each time: the theme lookup is kept, the image is rendered anew.
        int side = 40;
        const double rendered = medianMilliseconds(repetitions, [&] {
            info.getDataOfIconForProcessSize(process, side, side);
            ++side;
        });
        std::printf("application icon 64x64 \"%s\" (%s): first %.2f ms (theme indexed), then median %.3f ms "
                    "(kept), rendered anew %.3f ms, %zu bytes (goal <= 5 ms)\n",
                    icon.icon, icon.what, first, median, rendered, png ? png->size() : 0);
    }
    std::filesystem::remove_all(root);
}

} // namespace

int main(int argc, char** argv) {
    const int repetitions = argc > 1 ? std::max(3, std::atoi(argv[1])) : 30;
    // Text on the painted desktop needs Qt's fonts, which need an application object.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QGuiApplication application(argc, argv);
    benchScreenshot(repetitions);
    benchProcessList(repetitions);
    benchApplications(repetitions);
    benchIcon(repetitions);
    return 0;
}
