#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// Finds icon files by name in a freedesktop icon theme, its inherited themes and "hicolor": the
// theme's size directories (index.theme), the closest size when none matches, PNG, SVG and XPM
// files, and the unthemed pixmaps folder last. Thread-safe; answers are kept.
class VXIconThemeLookup {
public:
    // `themeName` empty: "Adwaita". `baseDirs` empty: ~/.icons, each $XDG_DATA_DIRS/icons (with
    // $XDG_DATA_HOME first), /usr/share/pixmaps, read when the lookup is made.
    explicit VXIconThemeLookup(std::string themeName = {}, std::vector<std::string> baseDirs = {});
    ~VXIconThemeLookup();

    // The file of the first of `iconNames` found, closest to `size` pixels; an absolute path among
    // the names is taken when the file exists. Nothing when none is found.
    std::optional<std::string> findIcon(const std::vector<std::string>& iconNames, int size);
    // The theme asked first.
    const std::string& themeName() const { return themeName_; }
    // The folders themes are searched in, in order.
    const std::vector<std::string>& baseDirectories() const { return baseDirs_; }

private:
    struct Theme;
    std::shared_ptr<const Theme> theme(const std::string& name);
    std::optional<std::string> findInTheme(const std::string& themeName, const std::string& iconName,
                                           int size, std::vector<std::string>& visited);
    std::optional<std::string> findUnthemed(const std::string& iconName) const;

    std::string themeName_;
    std::vector<std::string> baseDirs_;
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const Theme>> themes_;
    std::map<std::pair<std::string, int>, std::optional<std::string>> answers_;
};
