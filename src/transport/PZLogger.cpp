#include "transport/PZLogger.h"

#include <atomic>
#include <cstdio>
#include <map>
#include <mutex>
#include <syslog.h>
#include <utility>

namespace {

struct LoggerState {
    std::mutex mutex;
    std::map<std::size_t, PZLogger::Observer> observers;
    std::size_t nextToken = 1;
    bool syslogOpened = false;
};

LoggerState& state() {
    static LoggerState s;
    return s;
}

std::atomic<bool> echoEnabled{true};

thread_local PZLogger::ThreadFilter threadFilter;
thread_local bool insideThreadFilter = false;

} // namespace

void PZLogger::write(std::string_view text) {
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    if (threadFilter && !insideThreadFilter) {
        insideThreadFilter = true;
        const bool pass = threadFilter(text);
        insideThreadFilter = false;
        if (!pass) {
            return;
        }
    }
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (echoEnabled.load(std::memory_order_relaxed)) {
        if (!s.syslogOpened) {
            openlog("velorixhelper", LOG_PID, LOG_USER);
            s.syslogOpened = true;
        }
        std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
        syslog(LOG_NOTICE, "%.*s", static_cast<int>(text.size()), text.data());
    }
    for (auto& [token, observer] : s.observers) {
        observer(text);
    }
}

std::size_t PZLogger::addObserver(Observer observer) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    const std::size_t token = s.nextToken++;
    s.observers.emplace(token, std::move(observer));
    return token;
}

void PZLogger::removeObserver(std::size_t token) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.observers.erase(token);
}

void PZLogger::setEchoEnabled(bool enabled) {
    echoEnabled.store(enabled, std::memory_order_relaxed);
}

void PZLogger::setThreadFilter(ThreadFilter filter) {
    threadFilter = std::move(filter);
}
