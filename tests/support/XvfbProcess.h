#pragma once

#include <string>
#include <sys/types.h>

// A private X server for one test (a test that kills or changes its X server must not disturb
// the others): Xvfb with XTEST on a free display number, optionally with openbox managing it.
class XvfbProcess {
public:
    XvfbProcess() = default;
    ~XvfbProcess();
    XvfbProcess(const XvfbProcess&) = delete;
    XvfbProcess& operator=(const XvfbProcess&) = delete;

    // Starts Xvfb (width x height x 24); with `displayNumber` >= 0 on that number, else on a free
    // one. Returns false when Xvfb is not installed or does not come up within 10 s.
    bool start(int width = 1280, int height = 800, int displayNumber = -1);
    // Starts Xvfb on a display number far above those that servers started on a free number take
    // (they count up from 0), so that no other test's server takes the number while this one is
    // stopped and started again with start(width, height, number()).
    bool startRestartable(int width = 1280, int height = 800);
    // Starts openbox on it and waits until it manages the screen.
    bool startWindowManager();
    // Kills the window manager and the server and waits for them.
    void stop();

    // ":N"
    std::string name() const { return ":" + std::to_string(number_); }
    int number() const { return number_; }
    bool running() const { return xvfb_ > 0; }

private:
    pid_t xvfb_ = -1;
    pid_t windowManager_ = -1;
    int number_ = -1;
};
