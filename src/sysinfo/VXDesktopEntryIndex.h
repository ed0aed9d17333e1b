#pragma once

#include "sysinfo/VXDesktopEntry.h"
#include "sysinfo/VXRunningProcess.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// The applications' desktop entries found under the XDG data directories: each "applications"
// folder, sub-folders included, a desktop-file id found in an earlier directory hiding the same id
// in later ones. The scan is kept and made again when a folder changed. Thread-safe.
class VXDesktopEntryIndex {
public:
    using Entries = std::vector<std::shared_ptr<const VXDesktopEntry>>;

    // `dataDirs` empty: $XDG_DATA_HOME (default ~/.local/share) then $XDG_DATA_DIRS (default
    // /usr/local/share:/usr/share), read again at each scan.
    explicit VXDesktopEntryIndex(std::vector<std::string> dataDirs = {});

    // The XDG data directories in priority order.
    std::vector<std::string> dataDirectories() const;
    // Every entry that is an application to list (see VXDesktopEntry::isListedApplication), in
    // scan order.
    Entries applications();
    // Every entry read, listed or not (a hidden entry still names a running program).
    Entries allEntries();
    // The entry with this desktop-file id ("firefox-esr.desktop"), listed or not.
    std::shared_ptr<const VXDesktopEntry> findById(const std::string& desktopId);
    // The entry of a running program: StartupWMClass equal to the window class, else a desktop-file
    // id equal to the class or instance name (ignoring case, ".desktop" added), else an Exec
    // program equal to the executable name. Null when none matches.
    std::shared_ptr<const VXDesktopEntry> findForProgram(const std::string& className,
                                                         const std::string& instanceName,
                                                         const std::string& executableName);
    // The applications to list among the desktop files under `folder` (any folder, sub-folders
    // included), in name order; not kept.
    static Entries applicationsUnder(const std::string& folder);
    // The entry of each running program (see findForProgram), the folders checked once for all.
    Entries findForPrograms(const std::vector<VXRunningProcess>& programs);
    // Makes the next use scan again.
    void invalidate();

private:
    struct Scan;
    std::shared_ptr<const Scan> current();
    std::shared_ptr<const Scan> scan(const std::vector<std::string>& dataDirs) const;
    static std::shared_ptr<const VXDesktopEntry> findForProgramIn(const Scan& scan,
                                                                  const std::string& className,
                                                                  const std::string& instanceName,
                                                                  const std::string& executableName);

    std::vector<std::string> fixedDataDirs_;
    std::mutex mutex_;
    std::shared_ptr<const Scan> scan_;
};
