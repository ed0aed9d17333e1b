#include "settings/SettingsStore.h"

#include "transport/PZLogger.h"

#include <QByteArray>
#include <QDateTime>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::recursive_mutex& storeMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

// QSettings keeps a parsed copy of each file for the whole process and parses the file again only when
// its size or its modification time (in milliseconds) differ from what it last read. Another process
// rewriting the file with a value of the same length within one tick of the file system clock goes
// unnoticed that way. The store therefore remembers the bytes it last saw; when the bytes differ but the
// size does not, it moves the file's modification time forward before QSettings looks, so that the file
// is parsed again.
struct FileSnapshot {
    bool exists = false;
    std::int64_t size = 0;
    timespec mtime{};
    std::string content;
};

struct SeenFile {
    std::string path;
    FileSnapshot snapshot;
};

std::optional<SeenFile>& lastSeen() {
    static std::optional<SeenFile> seen;
    return seen;
}

FileSnapshot takeSnapshot(const std::string& path) {
    FileSnapshot snapshot;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return snapshot;
    struct stat info {};
    if (::fstat(fd, &info) == 0) {
        snapshot.exists = true;
        snapshot.size = info.st_size;
        snapshot.mtime = info.st_mtim;
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n > 0) {
                snapshot.content.append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                break;
            }
        }
    }
    ::close(fd);
    return snapshot;
}

std::int64_t toNanoseconds(const timespec& t) {
    return std::int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

void noteFile(const std::string& path) {
    lastSeen() = SeenFile{path, takeSnapshot(path)};
}

// Call with the store's lock held, before a QSettings object for path is made.
void makeChangesVisible(const std::string& path) {
    FileSnapshot now = takeSnapshot(path);
    const std::optional<SeenFile>& seen = lastSeen();
    if (seen && seen->path == path && seen->snapshot.exists && now.exists &&
        now.size == seen->snapshot.size && now.content != seen->snapshot.content) {
        // One millisecond past both times: different from any time QSettings may have recorded.
        const std::int64_t latest = std::max(toNanoseconds(now.mtime), toNanoseconds(seen->snapshot.mtime));
        const std::int64_t moved = (latest / 1'000'000 + 1) * 1'000'000;
        timespec times[2]{};
        times[0].tv_nsec = UTIME_OMIT;
        times[1].tv_sec = static_cast<time_t>(moved / 1'000'000'000);
        times[1].tv_nsec = static_cast<long>(moved % 1'000'000'000);
        if (::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0)
            now.mtime = times[1];
    }
    lastSeen() = SeenFile{path, std::move(now)};
}

// QSettings serialises writers with the lock file "<file>.lock": the writer's process id inside, a flock held
// on it. A stale lock is removed under "<file>.lock.rmlock", itself removed under "<file>.lock.rmlock.rmlock"
// when stale, and so on. A writer killed after creating one of these files but before writing its process id
// leaves an empty file, which QLockFile takes for abandoned only when it is 30 seconds old; every writer
// waits until then. A live writer fills the file within microseconds and holds the flock, so an empty file of
// that family that nobody holds and that is older than a moment is removed here.
bool isLockFileName(std::string_view name, std::string_view settingsName) {
    if (!name.starts_with(settingsName))
        return false;
    name.remove_prefix(settingsName.size());
    if (!name.starts_with(".lock"))
        return false;
    name.remove_prefix(5);
    while (name.starts_with(".rmlock"))
        name.remove_prefix(7);
    return name.empty();
}

void removeIfAbandoned(const std::string& lock) {
    using namespace std::chrono;
    for (int attempt = 0; attempt < 20; ++attempt) {
        const int fd = ::open(lock.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        struct stat info {};
        const bool emptyAndFree =
            ::fstat(fd, &info) == 0 && info.st_size == 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        const auto modified =
            system_clock::time_point(seconds(info.st_mtim.tv_sec) + nanoseconds(info.st_mtim.tv_nsec));
        if (emptyAndFree && system_clock::now() - modified >= milliseconds(100)) {
            struct stat current {};
            if (::stat(lock.c_str(), &current) == 0 && current.st_ino == info.st_ino &&
                current.st_dev == info.st_dev)
                ::unlink(lock.c_str());
        }
        ::close(fd);
        if (!emptyAndFree || system_clock::now() - modified >= milliseconds(100))
            return;
        // Young: give a live writer the moment it needs to fill the file.
        std::this_thread::sleep_for(milliseconds(10));
    }
}

void removeAbandonedLocks(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = path.substr(0, slash);
    const std::string settingsName = path.substr(slash + 1);
    std::vector<std::string> locks;
    if (DIR* dir = ::opendir(folder.c_str())) {
        while (const dirent* entry = ::readdir(dir)) {
            if (isLockFileName(entry->d_name, settingsName))
                locks.push_back(folder + "/" + entry->d_name);
        }
        ::closedir(dir);
    }
    for (const std::string& lock : locks)
        removeIfAbandoned(lock);
}

std::unique_ptr<QSettings> openSettings(const std::string& path) {
    makeChangesVisible(path);
    auto settings = std::make_unique<QSettings>(QString::fromStdString(path), QSettings::IniFormat);
    settings->setAtomicSyncRequired(true);
    settings->sync();
    return settings;
}

QString toQString(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

std::string toStdString(const QString& text) {
    return text.toStdString();
}

std::optional<QVariant> readValue(std::string_view key) {
    auto guard = SettingsStore::lock();
    const std::unique_ptr<QSettings> settings = openSettings(SettingsStore::filePath());
    QVariant value = settings->value(toQString(key));
    if (!value.isValid())
        return std::nullopt;
    return value;
}

bool writeValue(std::string_view key, const std::optional<QString>& value) {
    auto guard = SettingsStore::lock();
    const std::string path = SettingsStore::filePath();
    SettingsStore::makeDirectories(path.substr(0, path.rfind('/')));
    bool written = false;
    {
        removeAbandonedLocks(path);
        const std::unique_ptr<QSettings> settings = openSettings(path);
        if (value) {
            settings->setValue(toQString(key), *value);
        } else {
            settings->remove(toQString(key));
        }
        settings->sync();
        written = settings->status() != QSettings::AccessError;
    }
    noteFile(path);
    if (!written)
        PZLog("SettingsStore: could not write " + path);
    return written;
}

std::string_view trimmed(std::string_view text) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string homeDirectory() {
    const char* home = std::getenv("HOME");
    if (home && *home)
        return home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return "/";
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

} // namespace

std::string SettingsStore::configHome() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && xdg[0] == '/')
        return withoutTrailingSlashes(xdg);
    std::string home = withoutTrailingSlashes(homeDirectory());
    return (home == "/" ? "" : home) + "/.config";
}

std::string SettingsStore::filePath() {
    return configHome() + "/VelorixHelper/VelorixHelper.conf";
}

bool SettingsStore::makeDirectories(const std::string& path) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string prefix = path.substr(0, end);
        if (!prefix.empty() && ::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
        if (end == std::string::npos)
            break;
    }
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::unique_lock<std::recursive_mutex> SettingsStore::lock() {
    return std::unique_lock(storeMutex());
}

bool SettingsStore::contains(std::string_view key) {
    return readValue(key).has_value();
}

std::optional<std::string> SettingsStore::getString(std::string_view key) {
    const std::optional<QVariant> value = readValue(key);
    if (!value)
        return std::nullopt;
    switch (value->typeId()) {
    case QMetaType::QString:
        return toStdString(value->toString());
    case QMetaType::QStringList:
        // An unquoted value with commas, written by hand.
        return toStdString(value->toStringList().join(QStringLiteral(", ")));
    case QMetaType::QByteArray: {
        const QByteArray bytes = value->toByteArray();
        return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }
    case QMetaType::QDateTime:
        return formatDate(TimePoint(std::chrono::milliseconds(value->toDateTime().toMSecsSinceEpoch())));
    default:
        if (value->canConvert<QString>())
            return toStdString(value->toString());
        return std::nullopt;
    }
}

std::optional<std::int64_t> SettingsStore::getInteger(std::string_view key) {
    const std::optional<std::string> text = getString(key);
    return text ? parseInteger(trimmed(*text)) : std::nullopt;
}

std::optional<bool> SettingsStore::getBoolean(std::string_view key) {
    const std::optional<std::string> text = getString(key);
    return text ? parseBoolean(trimmed(*text)) : std::nullopt;
}

std::optional<SettingsStore::TimePoint> SettingsStore::getDate(std::string_view key) {
    const std::optional<std::string> text = getString(key);
    return text ? parseDate(trimmed(*text)) : std::nullopt;
}

bool SettingsStore::setString(std::string_view key, std::string_view value) {
    return writeValue(key, toQString(value));
}

bool SettingsStore::setInteger(std::string_view key, std::int64_t value) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return setString(key, std::string_view(buffer, static_cast<std::size_t>(result.ptr - buffer)));
}

bool SettingsStore::setBoolean(std::string_view key, bool value) {
    return setString(key, value ? "true" : "false");
}

bool SettingsStore::setDate(std::string_view key, TimePoint value) {
    return setString(key, formatDate(value));
}

bool SettingsStore::remove(std::string_view key) {
    return writeValue(key, std::nullopt);
}

std::optional<std::int64_t> SettingsStore::parseInteger(std::string_view text) {
    std::int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (text.empty() || result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return value;
}

std::optional<bool> SettingsStore::parseBoolean(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "true" || lower == "yes" || lower == "1")
        return true;
    if (lower == "false" || lower == "no" || lower == "0")
        return false;
    return std::nullopt;
}

std::optional<SettingsStore::TimePoint> SettingsStore::parseDate(std::string_view text) {
    const QDateTime date = QDateTime::fromString(toQString(text), Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return TimePoint(std::chrono::milliseconds(date.toMSecsSinceEpoch()));
}

std::string SettingsStore::formatDate(TimePoint time) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
    return toStdString(QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC).toString(Qt::ISODateWithMs));
}
