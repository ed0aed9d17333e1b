// Input benchmarks on a private Xvfb with openbox and the test window, the real velorixhelper serving
// it headless and a phone (the phone code of velorixctl) talking to that server over loopback:
//  1. a keyboard command, from its bytes being written to the server's socket to the key press seen by
//     the window (median, p99), against `xdotool key --delay 0 a` per key; beside it the floor (a bare
//     XTest key press) and the same command handed to an executor in this process;
//  2. correct characters per second typed into the window on the German layout by the phone, one
//     command per character as velorixctl sends them, every character checked;
//  3. a trackpad move command, from its bytes being written to the pointer motion seen by the window,
//     and from an executor call in this process.
// Run: build/input_bench [rounds]
#include "E2ESubprocess.h"
#include "TestWindow.h"
#include "input/PZMouse.h"
#include "input/VXCommandExecute.h"
#include "input/linux/X11InputConnection.h"
#include "input/linux/X11KeyboardLayout.h"
#include "input/linux/X11ProcessActivator.h"
#include "input/linux/XTestEventPoster.h"
#include "phone/VXPhone.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "protocol/VXTrackpadCommand.h"
#include "support/XvfbProcess.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
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

// The transport's share of the server figures: from a write on a loopback TCP connection (TCP_NODELAY,
// as both ends set it) to a thread blocked in read() on the other end having the bytes.
Figures loopbackLatency(int rounds) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::listen(listener, 1);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const int writer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::connect(writer, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    const int reader = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int one = 1;
    ::setsockopt(writer, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    ::setsockopt(reader, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));

    std::vector<long long> arrived(static_cast<std::size_t>(rounds + 50));
    std::thread readerThread([&] {
        char byte = 0;
        for (auto& at : arrived) {
            if (::read(reader, &byte, 1) != 1) {
                return;
            }
            at = nowNs();
            ::write(reader, &byte, 1); // lets the writer go on
        }
    });
    std::vector<double> micros;
    char byte = 'k';
    for (std::size_t i = 0; i < arrived.size(); ++i) {
        const long long sent = nowNs();
        if (::write(writer, &byte, 1) != 1 || ::read(writer, &byte, 1) != 1) {
            break;
        }
        if (i >= 50) {
            micros.push_back(static_cast<double>(arrived[i] - sent) / 1000.0);
        }
    }
    readerThread.join();
    ::close(reader);
    ::close(writer);
    ::close(listener);
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

// The real server, headless on `display` with a home of its own, and a phone that finished its handshake.
class Server {
public:
    explicit Server(const std::string& display) {
        char pattern[] = "/tmp/vxh-input-bench.XXXXXX";
        if (::mkdtemp(pattern) != nullptr) {
            home_ = pattern;
        }
        process_ = std::make_unique<E2ESubprocess>(
            VXH_VELORIXHELPER_PATH, std::vector<std::string>{"--headless", "--port", "0"},
            std::map<std::string, std::optional<std::string>>{
                {"DISPLAY", display}, {"HOME", home_}, {"XDG_CONFIG_HOME", home_ + "/config"}});
        const auto line =
            process_->waitForError("Waiting for connections on port ", std::chrono::seconds(30));
        if (line) {
            port_ = std::stoi(line->substr(line->rfind(' ') + 1));
        }
    }
    ~Server() {
        phone_.reset();
        process_.reset();
        if (!home_.empty()) {
            std::filesystem::remove_all(home_);
        }
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Connects and runs the handshake in JSON; null (with the reason printed) when that fails.
    VXPhone* phone() {
        if (phone_ == nullptr && port_ > 0) {
            try {
                phone_ = VXPhone::connect("127.0.0.1", port_);
                phone_->handshake(VXPhone::Identity{});
            } catch (const std::exception& e) {
                std::fprintf(stderr, "phone: %s\n%s", e.what(), process_->errors().c_str());
                phone_.reset();
            }
        }
        return phone_.get();
    }

private:
    std::string home_;
    std::unique_ptr<E2ESubprocess> process_;
    int port_ = 0;
    std::unique_ptr<VXPhone> phone_;
};

// From the bytes of one keyboard command being written to the server's socket (encoded beforehand) to
// the key press at the window.
Figures phoneKeyboardLatency(VXPhone& phone, TestWindow& window, int rounds) {
    std::vector<double> micros;
    const auto bytes = VXCommand("keyboard", VXProcess("vxh_test_window", window.pid()), "a").getJSONData();
    for (int i = 0; i < rounds + 50; ++i) {
        window.clear();
        const long long sent = nowNs();
        if (!phone.sendRaw(bytes)) {
            std::fprintf(stderr, "the server's connection failed\n");
            std::exit(1);
        }
        window.waitFor([&] { return window.keys().size() >= 2; });
        const auto keys = window.keys();
        if (i >= 50 && !keys.empty() && keys.front().press) { // the first rounds warm up
            micros.push_back(static_cast<double>(keys.front().ns - sent) / 1000.0);
        }
    }
    return summarise(micros);
}

// Types `text` through the phone, one keyboard command per character as velorixctl sends them ("space"
// for a space), then waits for all of it: the characters per second from the first command written to
// the last key event; `correct` tells whether the window decoded exactly `text` and no error came back.
double phoneCharactersPerSecond(VXPhone& phone, TestWindow& window, const std::string& text, bool& correct) {
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        const std::string piece = text.substr(i, length);
        keys.push_back(piece == " " ? "space" : piece);
        i += length;
    }
    window.clear();
    correct = true;
    const long long start = nowNs();
    for (const auto& key : keys) {
        correct = phone.sendCommand("keyboard", key, window.pid(), "vxh_test_window") && correct;
    }
    const std::string received = window.waitForText(text, std::chrono::seconds(120));
    const auto events = window.keys();
    const long long end = events.empty() ? nowNs() : events.back().ns;
    for (const auto& answer : phone.receiveFor(std::chrono::milliseconds(200))) {
        if (answer.isError()) { // the change push (volume, brightness) may speak meanwhile
            std::fprintf(stderr, "server answered: %s\n", answer.toJSON().c_str());
            correct = false;
        }
    }
    correct = correct && received == text;
    return static_cast<double>(keys.size()) / (static_cast<double>(end - start) / 1e9);
}

// From the bytes of one trackpad move (one finger, 3 points left or right) being written to the pointer
// motion at the window.
Figures phoneTrackpadLatency(VXPhone& phone, TestWindow& window, int rounds) {
    std::vector<double> micros;
    for (int i = 0; i < rounds + 50; ++i) {
        VXTrackpadCommand move;
        move.setTouchState(2);
        move.setFingers(1);
        move.setShift(VXPoint{i % 2 == 0 ? 3.0 : -3.0, 0});
        const auto bytes = move.getJSONData();
        window.clear();
        const long long sent = nowNs();
        phone.sendRaw(bytes);
        window.waitFor([&] { return !window.motions().empty(); });
        const auto motions = window.motions();
        if (i >= 50 && !motions.empty()) {
            micros.push_back(static_cast<double>(motions.front().ns - sent) / 1000.0);
        }
    }
    return summarise(micros);
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

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(100, std::atoi(argv[1])) : 2000;
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
    Server server(xvfb.name());
    VXPhone* phone = server.phone();
    if (phone == nullptr) {
        std::fprintf(stderr, "velorixhelper did not serve the phone\n");
        return 1;
    }
    auto executor = makeExecutor(xvfb.name());

    const Figures raw = rawXTestLatency(xvfb.name(), window, rounds);
    std::printf("bare XTest key press -> key press at the window: median %.1f us, p99 %.1f us\n", raw.median,
                raw.p99);
    const Figures loopback = loopbackLatency(rounds);
    std::printf("loopback TCP write -> bytes read by a waiting thread: median %.1f us, p99 %.1f us\n",
                loopback.median, loopback.p99);
    const Figures key = phoneKeyboardLatency(*phone, window, rounds);
    std::printf(
        "keyboard command written to the server -> key press at the window: median %.1f us, p99 %.1f us\n",
        key.median, key.p99);
    Figures inExecutor;
    const Figures local = keyboardLatency(*executor, window, rounds, inExecutor);
    std::printf("keyboard command to an executor in this process -> key press at the window: median %.1f us, "
                "p99 %.1f us (in the executor: median %.1f us, p99 %.1f us)\n",
                local.median, local.p99, inExecutor.median, inExecutor.p99);
    const Figures xdotool = xdotoolPerKey(xvfb.name(), window, 100);
    std::printf("xdotool key --delay 0 a, per key: median %.0f us, p99 %.0f us; ratio to the server %.0f\n",
                xdotool.median, xdotool.p99, xdotool.median / key.median);

    if (std::system(("setxkbmap -display " + xvfb.name() + " de").c_str()) != 0) {
        std::fprintf(stderr, "setxkbmap failed\n");
        return 1;
    }
    std::string text;
    while (text.size() < 20000) {
        text += "Grüße aus Köln, ß@€|{} Äpfel und Öl: 0123456789 Übermaß! ";
    }
    bool warmed = true;
    phoneCharactersPerSecond(*phone, window, text.substr(0, 300), warmed); // the new layout's first use
    for (int run = 0; run < 3; ++run) {
        bool correct = true;
        const double rate = phoneCharactersPerSecond(*phone, window, text, correct);
        std::printf("German text through the phone, %zu bytes, %s: %.0f characters per second\n", text.size(),
                    correct ? "every character correct" : "WRONG TEXT", rate);
    }

    executor->mouse().moveToPoint({640, 400});
    const Figures move = phoneTrackpadLatency(*phone, window, rounds);
    std::printf(
        "trackpad move written to the server -> pointer motion at the window: median %.1f us, p99 %.1f us\n",
        move.median, move.p99);
    const Figures localMove = trackpadLatency(*executor, window, rounds);
    std::printf(
        "trackpad move to an executor in this process -> pointer motion at the window: median %.1f us, "
        "p99 %.1f us\n",
        localMove.median, localMove.p99);
    return 0;
}
