#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

// Collects every line logged while it lives, from any thread.
class LogCapture {
public:
    enum class Echo { Kept, Silenced };

    // With Echo::Silenced, standard error and syslog hear nothing meanwhile.
    explicit LogCapture(Echo echo = Echo::Kept);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    // How many lines are exactly `line`.
    std::size_t count(std::string_view line) const;
    // How many lines contain `part`.
    std::size_t countContaining(std::string_view part) const;
    // Waits until some line contains `part`; false on timeout.
    bool waitFor(std::string_view part,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::size_t token_ = 0;
    Echo echo_;
};
