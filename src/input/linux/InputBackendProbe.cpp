#include "input/linux/InputBackendProbe.h"

#include "input/NullEventPoster.h"
#include "input/SystemInfoControls.h"
#include "input/linux/DesktopLauncher.h"
#include "input/linux/LogindPowerActions.h"
#include "input/linux/UinputEventPoster.h"
#include "input/linux/X11InputConnection.h"
#include "input/linux/X11KeyboardLayout.h"
#include "input/linux/X11ProcessActivator.h"
#include "input/linux/XTestEventPoster.h"
#include "input/linux/XkbKeymapLayout.h"
#include "settings/SettingsManager.h"
#include "sysinfo/VXSystemInfo.h"
#include "transport/PZLogger.h"

#include <mutex>

const VXCommandExecute::Backends& InputBackendProbe::shared() {
    static const VXCommandExecute::Backends backends = probe();
    return backends;
}

VXCommandExecute::Backends InputBackendProbe::probe(const std::string& displayName) {
    VXCommandExecute::Backends backends;
    auto connection = std::make_shared<X11InputConnection>(displayName);
    auto xtest = std::make_shared<XTestEventPoster>(connection);
    if (xtest->available()) {
        backends.eventPoster = xtest;
        backends.keyboardLayout = std::make_shared<X11KeyboardLayout>(connection);
        backends.processActivator = std::make_shared<X11ProcessActivator>(displayName);
        PZLog("Input: synthetic events through XTest on the X server");
    } else if (auto uinput = UinputEventPoster::create()) {
        backends.eventPoster = uinput;
        backends.keyboardLayout = XkbKeymapLayout::fromSystemSettings();
        PZLog("Input: synthetic events through uinput virtual devices");
    } else {
        backends.eventPoster = std::make_shared<NullEventPoster>();
        backends.keyboardLayout = XkbKeymapLayout::fromSystemSettings();
        PZLog("Input: no X server with XTEST and no writable /dev/uinput; synthetic events are dropped");
    }
    backends.powerActions = std::make_shared<LogindPowerActions>();
    backends.launcher = std::make_shared<DesktopLauncher>();
    backends.systemControls = std::make_shared<SystemInfoControls>(VXSystemInfo::shared());
    backends.commandKey = [] { return SettingsManager::getCommandKey(); };
    return backends;
}
