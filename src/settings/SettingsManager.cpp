#include "settings/SettingsManager.h"

#include "settings/PZLoginItemsUtility.h"
#include "settings/SettingsStore.h"
#include "transport/PZException.h"

#include <cstdlib>
#include <limits>

namespace {

int readInt(std::string_view key) {
    const std::optional<std::int64_t> value = SettingsStore::getInteger(key);
    if (!value || *value < std::numeric_limits<int>::min() || *value > std::numeric_limits<int>::max())
        return 0;
    return static_cast<int>(*value);
}

} // namespace

bool SettingsManager::checkIsFirstTime() {
    auto guard = SettingsStore::lock();
    const bool stored = SettingsStore::contains(firstTimeKey);
    const bool firstTime = SettingsStore::getBoolean(firstTimeKey).value_or(false);
    if (firstTime || !stored) {
        SettingsStore::setBoolean(firstTimeKey, false);
        setSocketPort(defaultSocketPort);
        setStartAtLogin(true);
        setCheckUpdateAutomatically(true);
    }
    // Reading the keyboard method stores 1 in place of 0.
    getKeyboardInputMethod();
    return firstTime;
}

std::string SettingsManager::getAppId() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return getAppId(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::string SettingsManager::getAppId(std::int64_t millisecondsSince1970) {
    auto guard = SettingsStore::lock();
    if (std::optional<std::string> stored = SettingsStore::getString(appIdKey))
        return *stored;
    std::srand(static_cast<unsigned>(millisecondsSince1970));
    std::string appId;
    for (int i = 0; i < 10; ++i)
        appId += appIdAlphabet[static_cast<std::size_t>(std::abs(std::rand() % 62))];
    SettingsStore::setString(appIdKey, appId);
    return appId;
}

void SettingsManager::setSocketPort(int port) {
    SettingsStore::setInteger(socketPortKey, port);
}

int SettingsManager::getSocketPort() {
    return readInt(socketPortKey);
}

void SettingsManager::setStartAtLogin(bool startAtLogin) {
    if (startAtLogin) {
        PZLoginItemsUtility::addToLoginItems();
    } else {
        PZLoginItemsUtility::removeFromLoginItems();
    }
}

bool SettingsManager::startAtLogin() {
    return PZLoginItemsUtility::isInLoginItems();
}

void SettingsManager::setCheckUpdateAutomatically(bool check) {
    SettingsStore::setBoolean(updateCheckKey, check);
}

bool SettingsManager::checkUpdateAutomatically() {
    return SettingsStore::getBoolean(updateCheckKey).value_or(false);
}

void SettingsManager::setConnectionPassword(const std::optional<std::string>& password) {
    if (password) {
        SettingsStore::setString(connectionPasswordKey, *password);
    } else {
        SettingsStore::remove(connectionPasswordKey);
    }
}

std::optional<std::string> SettingsManager::getConnectionPassword() {
    return SettingsStore::getString(connectionPasswordKey);
}

int SettingsManager::getKeyboardInputMethod() {
    auto guard = SettingsStore::lock();
    const int method = readInt(keyboardInputMethodKey);
    if (method == 0) {
        setKeyboardInputMethod(1);
        return 1;
    }
    return method;
}

void SettingsManager::setKeyboardInputMethod(int method) {
    SettingsStore::setInteger(keyboardInputMethodKey, method);
}

std::optional<SettingsManager::TimePoint> SettingsManager::getLastUpdatesCheck() {
    return SettingsStore::getDate(lastUpdatesCheckKey);
}

void SettingsManager::setLastUpdatesCheck(const std::optional<TimePoint>& time) {
    if (time) {
        SettingsStore::setDate(lastUpdatesCheckKey, *time);
    } else {
        SettingsStore::remove(lastUpdatesCheckKey);
    }
}

std::string SettingsManager::getCommandKey() {
    std::optional<std::string> key = SettingsStore::getString(commandKeyKey);
    return key && isCommandKey(*key) ? *key : std::string("control");
}

void SettingsManager::setCommandKey(const std::string& key) {
    if (!isCommandKey(key))
        throw PZException("SettingsManager setCommandKey:", "unknown command key \"" + key + "\"");
    SettingsStore::setString(commandKeyKey, key);
}

bool SettingsManager::isCommandKey(std::string_view key) {
    return key == "control" || key == "super" || key == "alt";
}
