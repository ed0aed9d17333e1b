#pragma once

#include "protocol/VXProcessNameLookup.h"
#include "sysinfo/HMVolumeControl.h"
#include "sysinfo/PZBrightnessControl.h"
#include "sysinfo/VXDesktopEntryIndex.h"
#include "sysinfo/VXIconThemeLookup.h"
#include "sysinfo/VXRenderedImageCache.h"
#include "sysinfo/VXSystemInfoBackEnds.h"
#include "sysinfo/VXSystemSnapshot.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class VXProcess;
class VXDirectory;

// The one place that asks the computer about itself: processes with a user interface, installed
// and favourite applications, icons, directory listings, versions, volume and brightness. One
// instance serves every session's thread; the system queries run under its recursive lock.
class VXSystemInfo : public VXProcessNameLookup {
public:
    using ProcessArray = std::vector<std::shared_ptr<VXProcess>>;
    using Bytes = std::vector<std::uint8_t>;

    // The pseudo-process ids of process lists.
    static constexpr std::int64_t applicationPid = 0;
    static constexpr std::int64_t computerPid = -1;
    static constexpr std::int64_t launcherPid = -2;

    // The process-wide instance over the platform's back ends, probed when first asked.
    static std::shared_ptr<VXSystemInfo> shared();

    // An instance over the given back ends (tests and embedding programs).
    explicit VXSystemInfo(VXSystemInfoBackEnds backEnds);
    ~VXSystemInfo() override;
    VXSystemInfo(const VXSystemInfo&) = delete;
    VXSystemInfo& operator=(const VXSystemInfo&) = delete;

    // The operating system's human-readable version ("Debian GNU/Linux 12 (bookworm),
    // kernel 6.1.0-18-amd64").
    std::string operatingSystemVersionString();
    // The first all-digit (and dot) word of that text ("12"); nothing when there is none.
    std::optional<std::string> getSystemVersion();
    // The server's own version ("3.0.0").
    std::optional<std::string> getVXHVersion();

    // The default output's volume 0.0..1.0 (0.0 without audio).
    float getVolume();
    // Sets the volume (below 0.001 mutes); the snapshot's volume is read fresh next.
    void setVolume(float volume);
    // The first display's brightness 0.0..1.0; -1.0 without a backlight.
    float getBrightness();
    // Sets every display's brightness; the snapshot's brightness is read fresh next.
    void setBrightness(float brightness);

    // The running processes with a user interface, in window-list order.
    ProcessArray getUIElementProcesses();
    // The installed applications (desktop entries), sorted by name; remembered for icon lookups.
    ProcessArray getInstalledApplications();
    // The favourite launchers of the desktop, or nothing when it keeps none.
    std::optional<ProcessArray> getDockApplications();
    // The applications whose desktop entries lie under `path` (sub-folders included).
    ProcessArray getApplicationsAtPath(const std::string& path);
    // The icon of a process, application or pseudo-process as PNG at width x height; nothing when none.
    std::optional<Bytes> getDataOfIconForProcessSize(const VXProcess& process, double width, double height);
    // The listing of a folder (relative paths start at the home folder); null when it cannot be listed.
    std::shared_ptr<VXDirectory> getDirectoryAtPath(const std::string& path);
    // The process with this serial number's low word: 0 nothing, 0xFFFFFFFF the computer, else
    // the running process with that pid when it has a user interface.
    std::shared_ptr<VXProcess> getProcessWithPSN(std::int64_t psn);

    // The name of the running process with this pid (for commands that name only a pid).
    std::optional<std::string> processNameForPid(std::int64_t pid) override;

    // The icon of a file type as LZW TIFF at width x height: "DIR" the folder image; else by the
    // extension of the path's last component, else by the file itself. Nothing when there is none.
    std::optional<Bytes> getDataOfFileIconSize(const std::string& text, double width, double height);

    // The screen, for screenshots (the direct rectangle capture and the screen reader).
    const std::shared_ptr<VXScreenGrabber>& screen() const { return backEnds_.screen; }
    // The values the change push compares, shared by all sessions.
    VXSystemSnapshot& snapshot() { return snapshot_; }
    // The user's home directory.
    std::string homeDirectory() const;

private:
    std::optional<Bytes> renderThemeIcon(const std::vector<std::string>& names, int width, int height,
                                         VXImageFormat format);
    std::optional<Bytes> renderApplicationIcon(const std::string& path, int width, int height);
    std::optional<Bytes> renderFile(const std::string& path, int width, int height, VXImageFormat format);
    std::optional<Bytes> renderResource(const std::string& name, int width, int height, VXImageFormat format);
    std::shared_ptr<VXProcess> processFromRunning(const VXRunningProcess& running,
                                                  const std::shared_ptr<const VXDesktopEntry>& entry);
    VXIconThemeLookup& iconTheme();

    VXSystemInfoBackEnds backEnds_;
    std::recursive_mutex lock_;
    HMVolumeControl volumeControl_;
    PZBrightnessControl brightnessControl_;
    VXDesktopEntryIndex desktopEntries_;
    std::once_flag iconThemeOnce_;
    std::unique_ptr<VXIconThemeLookup> iconTheme_;
    ProcessArray applications_;
    VXRenderedImageCache renderedImages_;
    VXSystemSnapshot snapshot_;
};
