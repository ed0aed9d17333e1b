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
        unsigned keycode = 0, state = 0;
        unsigned long keysym = 0;
        std::string text; // as the toolkit decoded it (presses only)
        long long ns = 0;
    };
    struct Button {
        bool press = false;
        unsigned button = 0;
        int x = 0, y = 0;
        long long ns = 0;
    };
    struct Motion {
        int x = 0, y = 0;
        long long ns = 0;
    };

    TestWindow() = default;
    ~TestWindow() { stop(); }
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;

    // Starts the program on `display` and waits until its window is mapped.
    bool start(const std::string& display, const std::string& title = "vxh test window",
               const std::string& geometry = "400x300+20+20");
    // Ends it (its standard input is closed) and waits for it.
    void stop();
    pid_t pid() const { return pid_; }

    // Waits until the window reported the focus.
    bool waitForFocus(std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        return waitFor([this] { return focused_.load(); }, timeout);
    }
    // Waits until `predicate` holds (checked, without the window's lock, at each reported line).
    bool waitFor(const std::function<bool()>& predicate,
                 std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // The text of all key presses so far, in order.
    std::string text() const;
    // Waits until the text has at least as many bytes as `expected`; returns the text then.
    std::string waitForText(const std::string& expected,
                            std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        waitFor([&] { return text().size() >= expected.size(); }, timeout);
        return text();
    }
    std::vector<Key> keys() const { return locked(keys_); }
    std::vector<Button> buttons() const { return locked(buttons_); }
    std::vector<Motion> motions() const { return locked(motions_); }
    // Forgets what was reported so far.
    void clear();

private:
    template <typename T> T locked(const T& value) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return value;
    }
    void readLoop(int fd);
    void handleLine(const std::string& line);

    pid_t pid_ = -1;
    int toChild_ = -1;
    std::thread reader_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<bool> ready_{false};
    std::atomic<bool> focused_{false};
    bool ended_ = false;
    std::vector<Key> keys_;
    std::vector<Button> buttons_;
    std::vector<Motion> motions_;
};
