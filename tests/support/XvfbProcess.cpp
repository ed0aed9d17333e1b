#include "support/XvfbProcess.h"

#include "support/TestPlatform.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

pid_t spawn(const std::vector<std::string>& args, int keepFd = -1, const std::string& display = {}) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        TestPlatform::endWithParent(parent);
        const int devnull = open("/dev/null", O_RDWR);
        dup2(devnull, STDIN_FILENO);
        dup2(devnull, STDOUT_FILENO);
        dup2(devnull, STDERR_FILENO);
        if (keepFd >= 0) {
            // The write end goes to descriptor 3 for -displayfd 3.
            dup2(keepFd, 3);
        }
        if (!display.empty()) {
            setenv("DISPLAY", display.c_str(), 1);
        }
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

void killAndWait(pid_t& pid) {
    if (pid > 0) {
        kill(pid, SIGTERM);
        int status = 0;
        for (int i = 0; i < 100; ++i) {
            if (waitpid(pid, &status, WNOHANG) == pid) {
                pid = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        pid = -1;
    }
}

} // namespace

XvfbProcess::~XvfbProcess() {
    stop();
}

bool XvfbProcess::start(int width, int height, int displayNumber) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    std::vector<std::string> args{"Xvfb"};
    if (displayNumber >= 0) {
        args.push_back(":" + std::to_string(displayNumber));
    }
    for (const char* arg : {"-displayfd", "3", "-screen", "0", screen.c_str(), "-nolisten", "tcp",
                            "+extension", "XTEST", "-noreset"}) {
        args.emplace_back(arg);
    }
    xvfb_ = spawn(args, fds[1]);
    close(fds[1]);
    std::string number;
    pollfd pfd{fds[0], POLLIN, 0};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (poll(&pfd, 1, 100) > 0) {
            char buffer[32];
            const ssize_t n = read(fds[0], buffer, sizeof buffer);
            if (n <= 0) {
                break;
            }
            number.append(buffer, static_cast<size_t>(n));
            if (number.find('\n') != std::string::npos) {
                break;
            }
        }
    }
    close(fds[0]);
    if (number.empty() || number.find('\n') == std::string::npos) {
        stop();
        return false;
    }
    number_ = std::atoi(number.c_str());
    return true;
}

bool XvfbProcess::startRestartable(int width, int height) {
    // Spread over the test processes running side by side; a number in use makes Xvfb exit at once.
    const int first = 600 + static_cast<int>(getpid() % 300);
    for (int number = first; number < first + 40; ++number) {
        if (access(("/tmp/.X" + std::to_string(number) + "-lock").c_str(), F_OK) != 0 &&
            start(width, height, number)) {
            return true;
        }
    }
    return false;
}

namespace {

bool clientListHas(Display* dpy, Window window) {
    Atom type = 0;
    int format = 0;
    unsigned long count = 0;
    unsigned long after = 0;
    unsigned char* data = nullptr;
    bool found = false;
    if (XGetWindowProperty(dpy, DefaultRootWindow(dpy), XInternAtom(dpy, "_NET_CLIENT_LIST", False), 0, 4096,
                           False, XA_WINDOW, &type, &format, &count, &after, &data) == Success &&
        data != nullptr) {
        const auto* windows = reinterpret_cast<const unsigned long*>(data);
        for (unsigned long i = 0; i < count; ++i) {
            found = found || windows[i] == window;
        }
        XFree(data);
    }
    return found;
}

} // namespace

bool XvfbProcess::startWindowManager() {
    windowManager_ = spawn({"openbox", "--sm-disable"}, -1, name());
    Display* dpy = XOpenDisplay(name().c_str());
    if (dpy == nullptr) {
        return false;
    }
    // openbox announces itself before it is ready to manage new windows: it is ready once a probe
    // window shows up in its client list (mapped again until it does).
    const Window probe = XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 0, 0, 10, 10, 0, 0, 0);
    bool managed = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!managed && std::chrono::steady_clock::now() < deadline) {
        XUnmapWindow(dpy, probe);
        XMapWindow(dpy, probe);
        XSync(dpy, False);
        for (int i = 0; i < 10 && !managed; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            managed = clientListHas(dpy, probe);
        }
    }
    XDestroyWindow(dpy, probe);
    XSync(dpy, False);
    // Wait until the probe has left the list again, so tests see only their own windows.
    for (int i = 0; i < 100 && clientListHas(dpy, probe); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    XCloseDisplay(dpy);
    return managed;
}

void XvfbProcess::stop() {
    killAndWait(windowManager_);
    killAndWait(xvfb_);
}
