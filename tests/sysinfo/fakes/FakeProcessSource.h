#pragma once

#include "sysinfo/VXProcessSource.h"

#include <map>
#include <mutex>

// Running processes that the test sets, with optional window icons. Thread-safe.
class FakeProcessSource : public VXProcessSource {
public:
    // Replaces the processes (in list order).
    void setProcesses(std::vector<VXRunningProcess> processes) {
        std::lock_guard<std::mutex> lock(mutex_);
        processes_ = std::move(processes);
    }
    // Gives the process `pid` a window icon.
    void setIcon(std::int64_t pid, VXArgbImage icon) {
        std::lock_guard<std::mutex> lock(mutex_);
        icons_[pid] = std::move(icon);
    }
    // How many times the list was asked for.
    int listReads() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return listReads_;
    }

    std::vector<VXRunningProcess> uiProcesses() override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++listReads_;
        return processes_;
    }
    std::optional<VXRunningProcess> processWithPid(std::int64_t pid) override {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& process : processes_) {
            if (process.pid == pid) {
                return process;
            }
        }
        return std::nullopt;
    }
    std::optional<VXArgbImage> windowIcon(std::int64_t pid, int) override {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto it = icons_.find(pid);
        return it == icons_.end() ? std::nullopt : std::optional<VXArgbImage>(it->second);
    }

private:
    mutable std::mutex mutex_;
    std::vector<VXRunningProcess> processes_;
    std::map<std::int64_t, VXArgbImage> icons_;
    int listReads_ = 0;
};
