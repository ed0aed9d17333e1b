#pragma once

#include "sysinfo/VXDesktopSettings.h"

#include <atomic>
#include <string>

// The GNOME settings, read with the gsettings program: the Shell's favourite applications and the
// interface's icon theme (else the GTK settings file's).
class GSettingsDesktopSettings : public VXDesktopSettings {
public:
    // `program` is the gsettings program to run (tests give a stand-in).
    explicit GSettingsDesktopSettings(std::string program = "gsettings");

    std::optional<std::vector<std::string>> favoriteDesktopIds() override;
    std::optional<std::string> iconThemeName() override;

    // The strings of a printed GVariant string array ("['a.desktop', 'b']", "@as []"); nothing
    // when the text is not one.
    static std::optional<std::vector<std::string>> parseStringArray(const std::string& text);
    // The string of a printed GVariant string ("'Adwaita'"); nothing when the text is not one.
    static std::optional<std::string> parseString(const std::string& text);

private:
    std::optional<std::string> get(const char* schema, const char* key);

    std::string program_;
    std::atomic<bool> absenceLogged_{false};
};
