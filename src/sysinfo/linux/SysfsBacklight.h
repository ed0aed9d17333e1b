#pragma once

#include "sysinfo/VXBacklight.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

// The backlights under /sys/class/backlight (a configurable root, so tests use a fake tree): in name
// order with the "firmware" and "platform" types before "raw"; brightness / max_brightness read from
// the files. Setting goes through a privileged writer first (logind's SetBrightness, which needs no
// root) and writes the brightness file itself when that writer does not answer.
class SysfsBacklight : public VXBacklight {
public:
    // Sets backlight `name` to the raw `value`; true when done.
    using PrivilegedWriter = std::function<bool(const std::string& name, std::uint32_t value)>;

    // `root` empty: /sys/class/backlight. `writer` null: logind over the system bus.
    explicit SysfsBacklight(std::string root = {}, PrivilegedWriter writer = {});

    int activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& displays) override;
    int getBrightness(std::uint32_t display, float& value) override;
    int setBrightness(std::uint32_t display, float value) override;

    // The backlight's folder name of a display id ("intel_backlight"); empty when unknown.
    std::string nameOfDisplay(std::uint32_t display);

private:
    int readNumber(const std::string& name, const char* file, long long& value) const;

    std::string root_;
    PrivilegedWriter writer_;
    std::mutex mutex_;
    std::map<std::string, std::uint32_t> ids_;
    std::uint32_t nextId_ = 1;
    std::atomic<bool> absenceLogged_{false};
};
