#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The one place through which the application reads and writes its persistent settings. Class operations
// only: every value lives in the preferences file (SettingsStore), except start at login, which is the
// autostart entry handled by PZLoginItemsUtility. Reads of missing values give 0, false or nothing.
class SettingsManager {
public:
    using TimePoint = std::chrono::system_clock::time_point;

    // The preference keys, part of the stored format.
    static constexpr std::string_view firstTimeKey = "first_time";
    static constexpr std::string_view appIdKey = "app_id";
    static constexpr std::string_view socketPortKey = "socket port";
    static constexpr std::string_view updateCheckKey = "update check";
    static constexpr std::string_view connectionPasswordKey = "connection_password";
    static constexpr std::string_view keyboardInputMethodKey = "keyboard_input_method";
    static constexpr std::string_view lastUpdatesCheckKey = "lastUpdatesCheck";
    static constexpr std::string_view commandKeyKey = "command_key";

    static constexpr int defaultSocketPort = 2846;
    static constexpr std::string_view appIdAlphabet =
        "QWERTYUIOPLKJHGFDSAZXCVBNMqwertyuioplkjhgfdsazxcvbnm0123456789";

    // On a first launch ("first_time" missing or true) writes the defaults: "first_time" false, port 2846,
    // start at login, automatic update checks. Repairs a keyboard method of 0. Returns the "first_time" flag
    // as it was read, so a real first launch (flag missing) returns false.
    static bool checkIsFirstTime();

    // The installation's random identifier, made once from the current time and stored.
    static std::string getAppId();
    // The same with the clock reading given (milliseconds since 1970) instead of the current time.
    static std::string getAppId(std::int64_t millisecondsSince1970);

    static void setSocketPort(int port);
    static int getSocketPort();

    static void setStartAtLogin(bool startAtLogin);
    static bool startAtLogin();

    static void setCheckUpdateAutomatically(bool check);
    static bool checkUpdateAutomatically();

    // Stored in clear text exactly as given; std::nullopt removes it.
    static void setConnectionPassword(const std::optional<std::string>& password);
    static std::optional<std::string> getConnectionPassword();

    // 1 = synthetic key events, 2 = the script runner. A stored 0 (or none) is repaired to 1.
    static int getKeyboardInputMethod();
    static void setKeyboardInputMethod(int method);

    // Time of the last automatic update check; std::nullopt removes it.
    static std::optional<TimePoint> getLastUpdatesCheck();
    static void setLastUpdatesCheck(const std::optional<TimePoint>& time);

    // The key that the command modifier presses: "control" (also for a missing or unknown value), "super"
    // or "alt". Setting anything else throws PZException.
    static std::string getCommandKey();
    static void setCommandKey(const std::string& key);
    static bool isCommandKey(std::string_view key);
};
