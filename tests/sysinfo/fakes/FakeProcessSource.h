#pragma once

#include "sysinfo/VXProcessSource.h"

#include <map>
#include <mutex>
#include <optional>

// Running processes that the test sets, with optional window icons. Thread-safe.
class FakeProcessSource : public VXProcessSource {
public:
    void setProcesses(std::vector<VXRunningProcess> processes) {
        std::lock_guard<std::mutex> lock(mutex_);
        processes_ = std::move(processes);
    }
    // Gives the process `pid` a window icon.
    void setIcon(std::int64_t pid, VXArgbImage icon) {
        std::lock_guard<std::mutex> lock(mutex_);
        icons_[pid] = std::move(icon);
    }
    // Gives every listed process without an icon of its own this one.
    void setDefaultIcon(VXArgbImage icon) {
        std::lock_guard<std::mutex> lock(mutex_);
        defaultIcon_ = std::move(icon);
    }
    // How many times the list was asked for.
    int listReads() {
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
        return find(pid);
    }
    std::optional<VXArgbImage> windowIcon(std::int64_t pid, int) override {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto it = icons_.find(pid);
        return it != icons_.end() ? it->second : find(pid) ? defaultIcon_ : std::nullopt;
    }

private:
    std::optional<VXRunningProcess> find(std::int64_t pid) const {
        for (const auto& process : processes_) {
            if (process.pid == pid) {
                return process;
            }
        }
        return std::nullopt;
    }

    std::mutex mutex_;
    std::vector<VXRunningProcess> processes_;
    std::map<std::int64_t, VXArgbImage> icons_;
    std::optional<VXArgbImage> defaultIcon_;
    int listReads_ = 0;
};
