#pragma once

#include "input/PowerActions.h"

#include <string>

// Suspend, reboot and power off through logind (org.freedesktop.login1.Manager on the system bus),
// interactive so that polkit may ask the user. Without logind each reports why.
class LogindPowerActions : public PowerActions {
public:
    // `busAddress` empty: the system bus; else the bus at that address (tests use a private bus).
    explicit LogindPowerActions(std::string busAddress = {});

    std::optional<std::string> suspend() override;
    std::optional<std::string> reboot() override;
    std::optional<std::string> powerOff() override;

private:
    std::optional<std::string> call(const char* method);

    std::string busAddress_;
};
