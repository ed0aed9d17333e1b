#pragma once

#include "input/ProcessActivator.h"

#include <map>
#include <string>
#include <vector>

// Processes known by pid and name; records what was raised and waited for.
class FakeProcessActivator : public ProcessActivator {
public:
    bool activateProcess(std::int64_t pid) override {
        activated.push_back(pid);
        return processes.count(pid) != 0;
    }
    std::optional<std::int64_t> activateProcessNamed(const std::string& name) override {
        for (const auto& [pid, processName] : processes) {
            if (processName == name) {
                activated.push_back(pid);
                return pid;
            }
        }
        return std::nullopt;
    }
    bool waitForFocus(std::int64_t pid, std::chrono::milliseconds) override {
        waitedFor.push_back(pid);
        return true;
    }

    std::map<std::int64_t, std::string> processes;
    std::vector<std::int64_t> activated;
    std::vector<std::int64_t> waitedFor;
};
