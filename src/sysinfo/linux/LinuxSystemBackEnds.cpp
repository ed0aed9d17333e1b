#include "sysinfo/linux/LinuxSystemBackEnds.h"

#include "sysinfo/VXSystemInfo.h"
#include "sysinfo/linux/GSettingsDesktopSettings.h"
#include "sysinfo/linux/PulseAudioOutput.h"
#include "sysinfo/linux/QtImageRenderer.h"
#include "sysinfo/linux/QtMimeTypes.h"
#include "sysinfo/linux/SysfsBacklight.h"
#include "sysinfo/linux/X11ProcessSource.h"
#include "sysinfo/linux/X11ScreenGrabber.h"
#include "transport/PZLogger.h"

#include <cstdlib>
#include <mutex>

VXSystemInfoBackEnds LinuxSystemBackEnds::probe() {
    VXSystemInfoBackEnds backEnds;
    // Each back end connects on first use and again after its service went away, so all are made
    // even where a service is absent right now: the program picks it up when it appears.
    backEnds.processes = std::make_shared<X11ProcessSource>();
    backEnds.screen = std::make_shared<X11ScreenGrabber>();
    backEnds.desktop = std::make_shared<GSettingsDesktopSettings>();
    backEnds.images = std::make_shared<QtImageRenderer>();
    backEnds.mimeTypes = std::make_shared<QtMimeTypes>();
    backEnds.audio = std::make_shared<PulseAudioOutput>();
    backEnds.backlight = std::make_shared<SysfsBacklight>();

    const char* display = std::getenv("DISPLAY");
    PZLog(std::string("System information: processes and screen from X11 (") +
          (display != nullptr && *display != '\0' ? std::string("DISPLAY ") + display
                                                  : std::string("no DISPLAY yet")) +
          "), volume from PulseAudio, brightness from /sys/class/backlight");
    return backEnds;
}

std::shared_ptr<VXSystemInfo> VXSystemInfo::shared() {
    static std::once_flag once;
    static std::shared_ptr<VXSystemInfo> instance;
    std::call_once(once, [] { instance = std::make_shared<VXSystemInfo>(LinuxSystemBackEnds::probe()); });
    return instance;
}
