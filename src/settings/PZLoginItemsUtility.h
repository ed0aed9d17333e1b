#pragma once

#include <optional>
#include <string>
#include <string_view>

// Start at login through the XDG autostart entry $XDG_CONFIG_HOME/autostart/velorixhelper.desktop. The
// application is in the login items exactly when that entry exists and its Exec names the running
// executable; an entry left by the program at another path (moved since) is not found.
class PZLoginItemsUtility {
public:
    // Writes the entry for the running executable (atomically, replacing any other entry of that name);
    // false when it could not be written.
    static bool addToLoginItems();
    // Removes the entry when it names the running executable; otherwise does nothing.
    static void removeFromLoginItems();
    static bool isInLoginItems();
    // Linux has no registration database for applications: does nothing and reports success.
    static bool addToLaunchService();

    // The operations above for the program at the given absolute path.
    static bool addToLoginItems(const std::string& executable);
    static void removeFromLoginItems(const std::string& executable);
    static bool isInLoginItems(const std::string& executable);

    static std::string autostartEntryPath();
    // The running program's absolute path, from /proc/self/exe.
    static std::string runningExecutablePath();

    // The Exec value that starts the given program: quoted when the path holds a reserved character, with
    // "%" doubled and the escapes of a desktop entry string applied.
    static std::string execValue(std::string_view executable);
    // The program named by an Exec value as read from the file (the first argument, escapes undone);
    // nothing when the value is malformed.
    static std::optional<std::string> executableOfExecValue(std::string_view value);
};
