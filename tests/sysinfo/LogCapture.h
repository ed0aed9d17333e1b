#pragma once

#include "transport/PZLogger.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

// Collects the lines logged while it lives (the echo to standard error stays on).
class LogCapture {
public:
    LogCapture() {
        token_ = PZLogger::addObserver([this](std::string_view line) {
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~LogCapture() { PZLogger::removeObserver(token_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    // How many lines contain `text`.
    long count(const std::string& text) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::count_if(lines_.begin(), lines_.end(),
                             [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::size_t token_ = 0;
};
