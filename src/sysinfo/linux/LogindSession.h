#pragma once

#include <cstdint>
#include <string>

// The user's login session as logind (org.freedesktop.login1) offers it on the system bus.
class LogindSession {
public:
    // Session.SetBrightness("backlight", name, value) of the caller's own session; false when logind
    // does not answer or refuses.
    static bool setBacklightBrightness(const std::string& name, std::uint32_t value);
};
