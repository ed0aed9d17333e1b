#include "session/VXClientOptions.h"

#include "input/VXCommandExecute.h"
#include "settings/SettingsManager.h"
#include "sysinfo/VXSystemInfo.h"

VXClientOptions VXClientOptions::withDefaults() const {
    VXClientOptions options = *this;
    if (!options.systemInfo) {
        options.systemInfo = VXSystemInfo::shared();
    }
    if (!options.commandExecute) {
        options.commandExecute = VXCommandExecute::sharedCommandExecute();
    }
    if (!options.connectionPassword) {
        options.connectionPassword = [] { return SettingsManager::getConnectionPassword(); };
    }
    return options;
}
