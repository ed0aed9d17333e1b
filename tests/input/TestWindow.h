#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

// The test window program (vxh_test_window) running on a test's X server, and what it reported.
class TestWindow {
public:
    struct Key {
        bool press = false;
        unsigned keycode = 0;
        unsigned state = 0;
        unsigned long keysym = 0;
        std::string text; // as the toolkit decoded it (presses only)
        long long ns = 0;
    };
    struct Button {
        bool press = false;
        unsigned button = 0;
        int x = 0;
        int y = 0;
        long long ns = 0;
    };
    struct Motion {
        int x = 0;
        int y = 0;
        long long ns = 0;
    };

    TestWindow() = default;
    ~TestWindow();
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;

    // Starts the program on `display` and waits until its window is mapped.
    bool start(const std::string& display, const std::string& title = "vxh test window",
               const std::string& geometry = "400x300+20+20");
    // Ends it (its standard input is closed) and waits for it.
    void stop();

    pid_t pid() const { return pid_; }
    unsigned long window() const { return window_.load(); }

    // Asks the window to take the input focus itself (servers without a window manager).
    void takeFocus();
    // Waits until the window reported the focus.
    bool waitForFocus(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // Waits until `predicate` holds (checked, without the window's lock, at each reported line).
    bool waitFor(const std::function<bool()>& predicate,
                 std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // The text of all key presses so far, in order.
    std::string text() const;
    // Waits until the text has at least as many bytes as `expected`; returns the text then.
    std::string waitForText(const std::string& expected,
                            std::chrono::milliseconds timeout = std::chrono::seconds(5));
    std::vector<Key> keys() const;
    std::vector<Button> buttons() const;
    std::vector<Motion> motions() const;
    // Forgets what was reported so far.
    void clear();

private:
    void readLoop(int fd);
    void handleLine(const std::string& line);

    pid_t pid_ = -1;
    int toChild_ = -1;
    std::atomic<unsigned long> window_{0};
    std::thread reader_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<bool> focused_{false};
    bool ended_ = false;
    std::vector<Key> keys_;
    std::vector<Button> buttons_;
    std::vector<Motion> motions_;
};
