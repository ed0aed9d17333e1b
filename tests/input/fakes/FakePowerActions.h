#pragma once

#include "input/PowerActions.h"

#include <string>
#include <vector>

// Records the power requests instead of making them; `refusal` makes each one fail.
class FakePowerActions : public PowerActions {
public:
    std::optional<std::string> suspend() override { return record("suspend"); }
    std::optional<std::string> reboot() override { return record("reboot"); }
    std::optional<std::string> powerOff() override { return record("powerOff"); }

    std::vector<std::string> calls;
    std::optional<std::string> refusal;

private:
    std::optional<std::string> record(const char* call) {
        calls.emplace_back(call);
        return refusal;
    }
};
