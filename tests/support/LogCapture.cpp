#include "support/LogCapture.h"

#include "transport/PZLogger.h"

#include <algorithm>
#include <thread>

LogCapture::LogCapture(Echo echo) : echo_(echo) {
    if (echo_ == Echo::Silenced) {
        PZLogger::setEchoEnabled(false);
    }
    token_ = PZLogger::addObserver([this](std::string_view line) {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    });
}

LogCapture::~LogCapture() {
    PZLogger::removeObserver(token_);
    if (echo_ == Echo::Silenced) {
        PZLogger::setEchoEnabled(true);
    }
}

std::vector<std::string> LogCapture::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

std::size_t LogCapture::count(std::string_view line) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count(lines_.begin(), lines_.end(), line));
}

std::size_t LogCapture::countContaining(std::string_view part) const {
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), [&](const std::string& line) {
        return line.find(part) != std::string::npos;
    }));
}

bool LogCapture::waitFor(std::string_view part, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (countContaining(part) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

void LogCapture::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}
