#include "session/VXLogRateLimiter.h"

#include "transport/PZLogger.h"

#include <algorithm>
#include <utility>

VXLogRateLimiter::VXLogRateLimiter(Writer writer, std::size_t perLine, std::size_t perWindow,
                                   Clock::duration window)
    : writer_(std::move(writer)), perLine_(perLine), perWindow_(perWindow), window_(window) {
    if (!writer_) {
        writer_ = [](std::string_view line) { PZLog(line); };
    }
}

VXLogRateLimiter::~VXLogRateLimiter() {
    flushAll();
}

bool VXLogRateLimiter::admit(std::string_view line, Clock::time_point now) {
    if (now >= totalWindowStart_ + window_) {
        flush(now);
        totalWindowStart_ = now;
        totalWritten_ = 0;
    }
    auto found = entries_.find(std::string(line));
    if (found == entries_.end()) {
        if (totalWritten_ >= perWindow_) {
            ++totalLeftOut_;
            return false;
        }
        ++totalWritten_;
        entries_.emplace(std::string(line), Entry{now, 1, 0});
        return true;
    }
    Entry& entry = found->second;
    if (now >= entry.windowStart + window_) {
        if (entry.leftOut > 0) {
            writeCount(found->first, entry.leftOut);
        }
        entry = Entry{now, 0, 0};
    }
    if (entry.written >= perLine_) {
        ++entry.leftOut;
        return false;
    }
    if (totalWritten_ >= perWindow_) {
        ++totalLeftOut_;
        return false;
    }
    ++entry.written;
    ++totalWritten_;
    return true;
}

void VXLogRateLimiter::flush(Clock::time_point now) {
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (now >= it->second.windowStart + window_) {
            if (it->second.leftOut > 0) {
                writeCount(it->first, it->second.leftOut);
            }
            it = entries_.erase(it);
        } else {
            ++it;
        }
    }
    if (totalLeftOut_ > 0 && now >= totalWindowStart_ + window_) {
        writeTotalCount();
    }
}

void VXLogRateLimiter::flushAll() {
    for (const auto& [line, entry] : entries_) {
        if (entry.leftOut > 0) {
            writeCount(line, entry.leftOut);
        }
    }
    entries_.clear();
    if (totalLeftOut_ > 0) {
        writeTotalCount();
    }
}

std::optional<VXLogRateLimiter::Clock::time_point> VXLogRateLimiter::nextFlush() const {
    std::optional<Clock::time_point> due;
    if (totalLeftOut_ > 0) {
        due = totalWindowStart_ + window_;
    }
    for (const auto& [line, entry] : entries_) {
        if (entry.leftOut > 0) {
            const auto end = entry.windowStart + window_;
            due = due ? std::min(*due, end) : end;
        }
    }
    return due;
}

void VXLogRateLimiter::writeCount(const std::string& line, std::uint64_t leftOut) {
    writer_(line + " [left out " + std::to_string(leftOut) + " more times]");
}

void VXLogRateLimiter::writeTotalCount() {
    writer_("[left out " + std::to_string(totalLeftOut_) + " more lines]");
    totalLeftOut_ = 0;
}
