#include "input/SystemInfoControls.h"

#include "sysinfo/VXSystemInfo.h"

SystemInfoControls::SystemInfoControls(std::shared_ptr<VXSystemInfo> systemInfo)
    : systemInfo_(std::move(systemInfo)) {}

void SystemInfoControls::setVolume(float volume) {
    systemInfo_->setVolume(volume);
}

void SystemInfoControls::setBrightness(float brightness) {
    systemInfo_->setBrightness(brightness);
}
