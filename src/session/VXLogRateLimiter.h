#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

// Keeps one session's log from flooding: the same line is let through at most `perLine` times a
// window, and at most `perWindow` lines of any text; the rest are counted, and once the window is
// over one line tells how many were left out. Used from one thread.
class VXLogRateLimiter {
public:
    using Clock = std::chrono::steady_clock;
    using Writer = std::function<void(std::string_view line)>;

    // Lines of one text a window.
    static constexpr std::size_t kDefaultPerLine = 10;
    // Lines of all texts together a window.
    static constexpr std::size_t kDefaultPerWindow = 100;

    // A limiter writing its count lines with writer (PZLog when empty).
    explicit VXLogRateLimiter(Writer writer = {}, std::size_t perLine = kDefaultPerLine,
                              std::size_t perWindow = kDefaultPerWindow,
                              Clock::duration window = std::chrono::seconds(1));
    // Writes the count lines still due.
    ~VXLogRateLimiter();
    VXLogRateLimiter(const VXLogRateLimiter&) = delete;
    VXLogRateLimiter& operator=(const VXLogRateLimiter&) = delete;

    // Whether line may be written now; when not, it is counted as left out.
    bool admit(std::string_view line, Clock::time_point now = Clock::now());
    // Writes the count lines of the windows that ended by now.
    void flush(Clock::time_point now = Clock::now());
    // Writes every count line at once.
    void flushAll();
    // When the next count line is due; nothing while no line is left out.
    std::optional<Clock::time_point> nextFlush() const;

private:
    struct Entry {
        Clock::time_point windowStart;
        std::size_t written = 0;
        std::uint64_t leftOut = 0;
    };

    void writeCount(const std::string& line, std::uint64_t leftOut);
    void writeTotalCount();

    Writer writer_;
    const std::size_t perLine_;
    const std::size_t perWindow_;
    const Clock::duration window_;
    std::unordered_map<std::string, Entry> entries_;
    Clock::time_point totalWindowStart_{};
    std::size_t totalWritten_ = 0;
    std::uint64_t totalLeftOut_ = 0; // lines left out by the limit of all texts
};
