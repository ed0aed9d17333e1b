#pragma once

#include <optional>
#include <string>
#include <vector>

// One application's desktop entry (a *.desktop file), the keys that matter here.
class VXDesktopEntry {
public:
    // Reads the file at `path`, naming it with `desktopId` ("org.gnome.Nautilus.desktop"). Name
    // and the other locale strings take the best match for `locale` ("de_CH.UTF-8"; empty: the
    // unlocalised value). Nothing when the file cannot be read or has no [Desktop Entry] group.
    static std::optional<VXDesktopEntry> load(const std::string& path, const std::string& desktopId,
                                              const std::string& locale);
    // Parses the text of a desktop entry (see load).
    static std::optional<VXDesktopEntry> parse(const std::string& text, const std::string& path,
                                               const std::string& desktopId, const std::string& locale);
    // The locale the entries are read in: LC_ALL, else LC_MESSAGES, else LANG (empty when unset or "C").
    static std::string currentLocale();

    // The file's path.
    const std::string& path() const { return path_; }
    // The desktop-file id (sub-folders joined with "-": "kde-okular.desktop").
    const std::string& desktopId() const { return desktopId_; }
    // Type= ("Application", "Link"...).
    const std::string& type() const { return type_; }
    // The localised Name=.
    const std::string& name() const { return name_; }
    // Icon=: a theme icon name or an absolute path; empty when none.
    const std::string& icon() const { return icon_; }
    // Exec=, unparsed.
    const std::string& exec() const { return exec_; }
    // StartupWMClass=, empty when none.
    const std::string& startupWMClass() const { return startupWMClass_; }
    // The base name of the program that Exec= (else TryExec=) starts ("gedit" for "/usr/bin/gedit %U").
    std::string executableName() const;
    // NoDisplay=true.
    bool noDisplay() const { return noDisplay_; }
    // Hidden=true.
    bool hidden() const { return hidden_; }
    // An application that belongs in a list: Type=Application, a Name, neither NoDisplay nor Hidden.
    bool isListedApplication() const;

private:
    std::string path_;
    std::string desktopId_;
    std::string type_;
    std::string name_;
    std::string icon_;
    std::string exec_;
    std::string tryExec_;
    std::string startupWMClass_;
    bool noDisplay_ = false;
    bool hidden_ = false;
};
