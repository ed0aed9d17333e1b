#pragma once

#include "sysinfo/VXAudioOutput.h"
#include "sysinfo/VXBacklight.h"
#include "sysinfo/VXDesktopSettings.h"
#include "sysinfo/VXImageRenderer.h"
#include "sysinfo/VXMimeTypes.h"
#include "sysinfo/VXProcessSource.h"
#include "sysinfo/VXScreenGrabber.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// What a VXSystemInfo is built from. A null member means the piece is absent: its operations give
// their neutral results (empty lists, nothing, 0.0, -1.0).
struct VXSystemInfoBackEnds {
    // The processes with a user interface.
    std::shared_ptr<VXProcessSource> processes;
    // The favourite launchers and the icon theme's name.
    std::shared_ptr<VXDesktopSettings> desktop;
    // Image decoding, scaling and encoding for icons.
    std::shared_ptr<VXImageRenderer> images;
    // The icons of file types.
    std::shared_ptr<VXMimeTypes> mimeTypes;
    // Screen capture.
    std::shared_ptr<VXScreenGrabber> screen;
    // The default audio output's mixer.
    std::shared_ptr<VXAudioOutput> audio;
    // The displays' backlights.
    std::shared_ptr<VXBacklight> backlight;

    // The XDG data directories for desktop entries and icons; empty: from the environment.
    std::vector<std::string> dataDirs;
    // The folders icon themes are searched in; empty: the usual ones (see VXIconThemeLookup).
    std::vector<std::string> iconDirs;
    // The user's home directory; empty: $HOME, else the password database.
    std::string homeDirectory;
    // The operating system's human-readable version string; null: from /etc/os-release and uname.
    std::function<std::string()> operatingSystemVersionString;
    // How old the shared snapshot's values may be.
    std::chrono::steady_clock::duration snapshotInterval = std::chrono::seconds(1);
};
