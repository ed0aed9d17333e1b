#pragma once

#include "input/ApplicationLauncher.h"

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
