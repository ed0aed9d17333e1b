#pragma once

#include "input/ApplicationLauncher.h"
#include "input/PowerActions.h"
#include "input/ProcessActivator.h"
#include "input/SystemControls.h"

#include <map>
#include <string>
#include <vector>

// Records launches ("app NAME", "open PATH"); `succeed` decides the result.
class FakeApplicationLauncher : public ApplicationLauncher {
public:
    bool launchApplication(const std::string& name) override {
        calls.push_back("app " + name);
        return succeed;
    }
    bool openPath(const std::string& path) override {
        calls.push_back("open " + path);
        return succeed;
    }

    std::vector<std::string> calls;
    bool succeed = true;
};

// Records the power requests instead of making them; `refusal` makes each one fail.
class FakePowerActions : public PowerActions {
public:
    std::optional<std::string> suspend() override { return record("suspend"); }
    std::optional<std::string> reboot() override { return record("reboot"); }
    std::optional<std::string> powerOff() override { return record("powerOff"); }
    std::optional<std::string> record(const char* call) {
        calls.emplace_back(call);
        return refusal;
    }

    std::vector<std::string> calls;
    std::optional<std::string> refusal;
};

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

// Records the values set.
class FakeSystemControls : public SystemControls {
public:
    void setVolume(float volume) override { volumes.push_back(volume); }
    void setBrightness(float brightness) override { brightnesses.push_back(brightness); }

    std::vector<float> volumes;
    std::vector<float> brightnesses;
};
