#pragma once

#include <optional>
#include <string>

// Puts the computer to sleep, restarts it or shuts it down (logind on Linux). Each returns nothing
// when the request was accepted, else the reason it was not. Tests use a fake: they never suspend,
// reboot or power off the machine.
class PowerActions {
public:
    virtual ~PowerActions() = default;

    virtual std::optional<std::string> suspend() = 0;
    virtual std::optional<std::string> reboot() = 0;
    virtual std::optional<std::string> powerOff() = 0;
};
