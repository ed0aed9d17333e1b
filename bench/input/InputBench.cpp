// Input benchmarks on a private Xvfb with openbox and the test window:
//  1. a keyboard command, from the executor call to the key press seen by the window (median, p99),
//     against `xdotool key --delay 0 a` per key;
//  2. correct characters per second typed into the window on the German layout, every one checked;
//  3. a trackpad move command, from the executor call to the pointer motion seen by the window.
#include "TestWindow.h"
#include "input/PZMouse.h"
#include "input/VXCommandExecute.h"
#include "input/linux/X11InputConnection.h"
#include "input/linux/X11KeyboardLayout.h"
#include "input/linux/X11ProcessActivator.h"
#include "input/linux/XTestEventPoster.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "protocol/VXTrackpadCommand.h"
#include "support/XvfbProcess.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>
#include <xcb/xtest.h>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

long long nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

struct Figures {
    double median = 0;
    double p99 = 0;
};

Figures summarise(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return Figures{values[values.size() / 2], values[values.size() * 99 / 100]};
}

std::shared_ptr<VXCommandExecute> makeExecutor(const std::string& display) {
    auto connection = std::make_shared<X11InputConnection>(display);
    VXCommandExecute::Backends backends;
    backends.eventPoster = std::make_shared<XTestEventPoster>(connection);
    backends.keyboardLayout = std::make_shared<X11KeyboardLayout>(connection);
    backends.processActivator = std::make_shared<X11ProcessActivator>(display);
    return VXCommandExecute::create(backends);
}

// Key presses seen so far.
std::size_t pressCount(const TestWindow& window) {
    std::size_t count = 0;
    for (const auto& key : window.keys()) {
        count += key.press ? 1 : 0;
    }
    return count;
}

Figures keyboardLatency(VXCommandExecute& executor, TestWindow& window, int rounds, Figures& inExecutor) {
    std::vector<double> micros;
    std::vector<double> executing;
    const VXCommand command("keyboard", VXProcess("vxh_test_window", window.pid()), "a");
    for (int i = 0; i < rounds + 50; ++i) {
        window.clear();
        const long long sent = nowNs();
        if (executor.execute(command) != nullptr) {
            std::fprintf(stderr, "keyboard command failed\n");
            std::exit(1);
        }
        if (i >= 50) {
            executing.push_back(static_cast<double>(nowNs() - sent) / 1000.0);
        }
        window.waitFor([&] { return !window.keys().empty() && window.keys().size() >= 2; });
        const auto keys = window.keys();
        if (i >= 50 && !keys.empty() && keys.front().press) { // the first rounds warm up
            micros.push_back(static_cast<double>(keys.front().ns - sent) / 1000.0);
        }
    }
    inExecutor = summarise(executing);
    return summarise(micros);
}

// The floor under the figure above: one XTest key press on a bare connection to the window's key event.
Figures rawXTestLatency(const std::string& display, TestWindow& window, int rounds) {
    std::vector<double> micros;
    xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    for (int i = 0; i < rounds + 50; ++i) {
        window.clear();
        const long long sent = nowNs();
        xcb_test_fake_input(c, XCB_KEY_PRESS, 38, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(c);
        xcb_test_fake_input(c, XCB_KEY_RELEASE, 38, XCB_CURRENT_TIME, root, 0, 0, 0);
        xcb_flush(c);
        window.waitFor([&] { return window.keys().size() >= 2; });
        const auto keys = window.keys();
        if (i >= 50 && !keys.empty() && keys.front().press) {
            micros.push_back(static_cast<double>(keys.front().ns - sent) / 1000.0);
        }
    }
    xcb_disconnect(c);
    return summarise(micros);
}

// Wall time of one `xdotool key --delay 0 a` process, which types one key.
Figures xdotoolPerKey(const std::string& display, TestWindow& window, int rounds) {
    std::vector<double> micros;
    const std::string displayVariable = "DISPLAY=" + display;
    std::vector<std::string> environment;
    for (char** e = environ; *e != nullptr; ++e) {
        if (std::string(*e).rfind("DISPLAY=", 0) != 0) {
            environment.emplace_back(*e);
        }
    }
    environment.push_back(displayVariable);
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    char program[] = "xdotool";
    char key[] = "key";
    char delay[] = "--delay";
    char zero[] = "0";
    char a[] = "a";
    char* argv[] = {program, key, delay, zero, a, nullptr};
    for (int i = 0; i < rounds; ++i) {
        const std::size_t before = pressCount(window);
        const long long start = nowNs();
        pid_t pid = 0;
        if (posix_spawnp(&pid, "xdotool", nullptr, nullptr, argv, envp.data()) != 0) {
            return {};
        }
        int status = 0;
        waitpid(pid, &status, 0);
        const long long end = nowNs();
        window.waitFor([&] { return pressCount(window) > before; });
        micros.push_back(static_cast<double>(end - start) / 1000.0);
    }
    return summarise(micros);
}

// Types `text` one character per command (as phones send it), then waits for all of it.
double germanCharactersPerSecond(VXCommandExecute& executor, TestWindow& window, const std::string& text,
                                 bool& correct) {
    std::vector<VXCommand> commands;
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        const std::string piece = text.substr(i, length);
        commands.emplace_back("keyboard", VXProcess("vxh_test_window", window.pid()),
                              piece == " " ? "space" : piece);
        i += length;
        ++characters;
    }
    window.clear();
    const long long start = nowNs();
    for (const VXCommand& command : commands) {
        if (executor.execute(command) != nullptr) {
            correct = false;
        }
    }
    const std::string received = window.waitForText(text, std::chrono::seconds(60));
    const auto keys = window.keys();
    const long long end = keys.empty() ? nowNs() : keys.back().ns;
    correct = correct && received == text;
    return static_cast<double>(characters) / (static_cast<double>(end - start) / 1e9);
}

Figures trackpadLatency(VXCommandExecute& executor, TestWindow& window, int rounds) {
    std::vector<double> micros;
    for (int i = 0; i < rounds + 50; ++i) {
        VXTrackpadCommand move;
        move.setTouchState(2);
        move.setFingers(1);
        move.setShift(VXPoint{i % 2 == 0 ? 3.0 : -3.0, 0});
        window.clear();
        const long long sent = nowNs();
        executor.execute(move);
        window.waitFor([&] { return !window.motions().empty(); });
        const auto motions = window.motions();
        if (i >= 50 && !motions.empty()) {
            micros.push_back(static_cast<double>(motions.front().ns - sent) / 1000.0);
        }
    }
    return summarise(micros);
}

} // namespace

int main() {
    XvfbProcess xvfb;
    if (!xvfb.start(1280, 800) || !xvfb.startWindowManager()) {
        std::fprintf(stderr, "Xvfb with openbox could not be started\n");
        return 1;
    }
    TestWindow window;
    if (!window.start(xvfb.name(), "bench window", "1280x800+0+0") || !window.waitForFocus()) {
        std::fprintf(stderr, "the test window did not come up\n");
        return 1;
    }
    auto executor = makeExecutor(xvfb.name());

    const Figures raw = rawXTestLatency(xvfb.name(), window, 2000);
    std::printf("bare XTest key press -> key press at the window: median %.1f us, p99 %.1f us\n", raw.median,
                raw.p99);
    Figures inExecutor;
    const Figures key = keyboardLatency(*executor, window, 2000, inExecutor);
    std::printf("keyboard command -> key press at the window: median %.1f us, p99 %.1f us\n", key.median,
                key.p99);
    std::printf("keyboard command, time in the executor: median %.1f us, p99 %.1f us\n", inExecutor.median,
                inExecutor.p99);
    const Figures xdotool = xdotoolPerKey(xvfb.name(), window, 100);
    std::printf("xdotool key --delay 0 a, per key: median %.0f us, p99 %.0f us; ratio %.0f\n", xdotool.median,
                xdotool.p99, xdotool.median / key.median);

    if (std::system(("setxkbmap -display " + xvfb.name() + " de").c_str()) != 0) {
        std::fprintf(stderr, "setxkbmap failed\n");
        return 1;
    }
    std::string text;
    while (text.size() < 20000) {
        text += "Grüße aus Köln, ß@€|{} Äpfel und Öl: 0123456789 Übermaß! ";
    }
    bool warmed = true;
    germanCharactersPerSecond(*executor, window, text.substr(0, 300), warmed); // the new layout's first use
    for (int run = 0; run < 3; ++run) {
        bool correct = true;
        const double rate = germanCharactersPerSecond(*executor, window, text, correct);
        std::printf("German text, %s: %.0f characters per second\n",
                    correct ? "every character correct" : "WRONG TEXT", rate);
    }

    executor->mouse().moveToPoint({640, 400});
    const Figures move = trackpadLatency(*executor, window, 2000);
    std::printf("trackpad move -> pointer motion at the window: median %.1f us, p99 %.1f us\n", move.median,
                move.p99);
    return 0;
}
