#pragma once

#include "input/SystemControls.h"

#include <memory>

class VXSystemInfo;

// Volume and brightness through the system information (its audio and backlight back ends).
class SystemInfoControls : public SystemControls {
public:
    explicit SystemInfoControls(std::shared_ptr<VXSystemInfo> systemInfo);

    void setVolume(float volume) override;
    void setBrightness(float brightness) override;

private:
    std::shared_ptr<VXSystemInfo> systemInfo_;
};
