#pragma once

#include <optional>
#include <string>
#include <vector>

// The desktop's own settings that the system information reads.
class VXDesktopSettings {
public:
    virtual ~VXDesktopSettings() = default;

    // The desktop-file ids of the favourite launchers in order ("org.gnome.Nautilus.desktop");
    // nothing when the desktop keeps no such setting.
    virtual std::optional<std::vector<std::string>> favoriteDesktopIds() = 0;
    // The icon theme the desktop uses; nothing when none is set.
    virtual std::optional<std::string> iconThemeName() = 0;
};
