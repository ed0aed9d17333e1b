#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

// The preferences file: QSettings in INI format at $XDG_CONFIG_HOME/VelorixHelper/VelorixHelper.conf.
// There is no in-memory copy: every read syncs with the file first, so a change made by another process
// (velorixhelper config, an editor) is seen at the next read. Writes replace the file atomically (a
// temporary file renamed over it). Safe from any thread; each call opens its own QSettings under one
// process-wide lock.
class SettingsStore {
public:
    using TimePoint = std::chrono::system_clock::time_point;

    // $XDG_CONFIG_HOME when it is an absolute path, otherwise $HOME/.config (the home directory from
    // the password database when HOME is unset or empty). Read from the environment on every call.
    static std::string configHome();
    static std::string filePath();

    // Creates every missing directory of path with mode 0700; true when path is a directory afterwards.
    static bool makeDirectories(const std::string& path);

    // Held across several calls makes a read-modify-write atomic for the threads of this process.
    static std::unique_lock<std::recursive_mutex> lock();

    static bool contains(std::string_view key);
    // The stored text of a key; nothing when it is absent.
    static std::optional<std::string> getString(std::string_view key);
    // Typed reads: nothing when the key is absent or its text is not of that type.
    static std::optional<std::int64_t> getInteger(std::string_view key);
    static std::optional<bool> getBoolean(std::string_view key);
    static std::optional<TimePoint> getDate(std::string_view key);

    // Writes return false (and log) when the file could not be written.
    static bool setString(std::string_view key, std::string_view value);
    static bool setInteger(std::string_view key, std::int64_t value);
    static bool setBoolean(std::string_view key, bool value);
    static bool setDate(std::string_view key, TimePoint value);
    static bool remove(std::string_view key);

    // Text forms, independent of the process locale.
    // A whole decimal integer ("-12"; no spaces, no "+").
    static std::optional<std::int64_t> parseInteger(std::string_view text);
    // true/yes/1 and false/no/0, in any letter case.
    static std::optional<bool> parseBoolean(std::string_view text);
    // ISO 8601 date and time ("2024-05-01T10:00:00Z", "2024-05-01T12:00:00.250+02:00"); without an offset
    // the time is local.
    static std::optional<TimePoint> parseDate(std::string_view text);
    // UTC with milliseconds: "2024-05-01T10:00:00.000Z".
    static std::string formatDate(TimePoint time);
};
