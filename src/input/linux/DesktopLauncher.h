#pragma once

#include "input/ApplicationLauncher.h"

#include <memory>
#include <string>
#include <vector>

class VXDesktopEntryIndex;
class VXDesktopEntry;

// Starts applications from their desktop entries and opens paths with the desktop's default
// handler, without any shell: the application whose Name, desktop file id or Exec program matches
// (exactly first, then without regard to case) is started with its Exec arguments, field codes
// dropped; a path goes to the opener program (xdg-open). Every program runs detached.
class DesktopLauncher : public ApplicationLauncher {
public:
    // `dataDirs` empty: the XDG data directories; `opener`: the program that opens paths and URLs.
    explicit DesktopLauncher(std::vector<std::string> dataDirs = {}, std::string opener = "xdg-open");
    ~DesktopLauncher() override;

    bool launchApplication(const std::string& name) override;
    bool openPath(const std::string& path) override;

    // The entry that `name` designates, null when none does (a path to a .desktop file designates its entry).
    std::shared_ptr<const VXDesktopEntry> findApplication(const std::string& name);

private:
    std::unique_ptr<VXDesktopEntryIndex> index_;
    std::string opener_;
};
