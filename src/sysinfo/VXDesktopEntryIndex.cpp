#include "sysinfo/VXDesktopEntryIndex.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <pwd.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// Folders deeper than this below "applications" are not scanned (a link loop or a hostile tree).
constexpr int maximumDepth = 8;

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string withoutDesktopSuffix(const std::string& id) {
    return id.ends_with(".desktop") ? id.substr(0, id.size() - 8) : id;
}

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return home;
    }
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return "/";
}

std::vector<std::string> splitPaths(const std::string& text) {
    std::vector<std::string> paths;
    size_t start = 0;
    while (start <= text.size()) {
        const auto colon = text.find(':', start);
        const std::string piece =
            text.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        // Relative entries are invalid in these variables and are ignored.
        if (!piece.empty() && piece.front() == '/') {
            paths.push_back(piece);
        }
        if (colon == std::string::npos) {
            break;
        }
        start = colon + 1;
    }
    return paths;
}

// A folder's modification time, or -1 when it does not exist.
long long modificationStamp(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return -1;
    }
    return static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
}

// The desktop files under `root` with their desktop-file ids, each folder's entries in name order so
// that the result does not depend on the file system; every folder met is added to `folders` with
// its stamp.
std::vector<std::pair<std::string, std::string>>
desktopFilesUnder(const std::string& root, std::vector<std::pair<std::string, long long>>& folders) {
    std::error_code error;
    std::vector<std::pair<std::string, std::string>> files; // (path, id)
    std::vector<std::pair<std::string, int>> pending{{root, 0}};
    while (!pending.empty()) {
        const auto [folder, depth] = pending.back();
        pending.pop_back();
        std::vector<fs::directory_entry> children;
        for (fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, error), end;
             !error && it != end; it.increment(error)) {
            children.push_back(*it);
        }
        error.clear();
        std::sort(children.begin(), children.end(),
                  [](const auto& a, const auto& b) { return a.path().filename() < b.path().filename(); });
        std::vector<std::string> subfolders;
        for (const auto& child : children) {
            std::error_code statusError;
            const std::string name = child.path().filename().string();
            if (name.starts_with(".")) {
                continue;
            }
            if (child.is_directory(statusError) && !child.is_symlink(statusError)) {
                if (depth + 1 < maximumDepth) {
                    subfolders.push_back(child.path().string());
                }
            } else if (name.ends_with(".desktop") && name.size() > 8) {
                std::string relative = child.path().string().substr(root.size() + 1);
                std::replace(relative.begin(), relative.end(), '/', '-');
                files.emplace_back(child.path().string(), relative);
            }
        }
        // Depth first, in name order: a sub-folder's entries come before the next sibling's.
        for (auto it = subfolders.rbegin(); it != subfolders.rend(); ++it) {
            folders.emplace_back(*it, modificationStamp(*it));
            pending.emplace_back(*it, depth + 1);
        }
    }
    return files;
}

} // namespace

struct VXDesktopEntryIndex::Scan {
    std::vector<std::string> dataDirs;
    // Every folder looked at, with its stamp: a change in any means a new scan.
    std::vector<std::pair<std::string, long long>> folders;
    Entries all;
    Entries listed;
    std::map<std::string, std::shared_ptr<const VXDesktopEntry>> byId;
    std::map<std::string, std::shared_ptr<const VXDesktopEntry>> byWMClass; // lowercase StartupWMClass
    std::map<std::string, std::shared_ptr<const VXDesktopEntry>> byLowerId; // lowercase id without ".desktop"
    std::map<std::string, std::shared_ptr<const VXDesktopEntry>> byLastPart; // "gedit" of "org.gnome.gedit"
    std::map<std::string, std::shared_ptr<const VXDesktopEntry>> byProgram;  // Exec program base name

    bool upToDate(const std::vector<std::string>& wantedDirs) const {
        if (wantedDirs != dataDirs) {
            return false;
        }
        return std::all_of(folders.begin(), folders.end(), [](const auto& folder) {
            return modificationStamp(folder.first) == folder.second;
        });
    }
};

VXDesktopEntryIndex::VXDesktopEntryIndex(std::vector<std::string> dataDirs)
    : fixedDataDirs_(std::move(dataDirs)) {}

std::vector<std::string> VXDesktopEntryIndex::dataDirectories() const {
    if (!fixedDataDirs_.empty()) {
        return fixedDataDirs_;
    }
    std::vector<std::string> dirs;
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && *dataHome == '/') {
        dirs.push_back(dataHome);
    } else {
        dirs.push_back(homeFolder() + "/.local/share");
    }
    const char* dataDirs = std::getenv("XDG_DATA_DIRS");
    std::vector<std::string> system = splitPaths(dataDirs != nullptr ? dataDirs : "");
    if (system.empty()) {
        system = {"/usr/local/share", "/usr/share"};
    }
    for (auto& dir : system) {
        if (std::find(dirs.begin(), dirs.end(), dir) == dirs.end()) {
            dirs.push_back(std::move(dir));
        }
    }
    return dirs;
}

std::shared_ptr<const VXDesktopEntryIndex::Scan> VXDesktopEntryIndex::current() {
    const std::vector<std::string> dirs = dataDirectories();
    std::lock_guard<std::mutex> lock(mutex_);
    if (!scan_ || !scan_->upToDate(dirs)) {
        scan_ = scan(dirs);
    }
    return scan_;
}

std::shared_ptr<const VXDesktopEntryIndex::Scan>
VXDesktopEntryIndex::scan(const std::vector<std::string>& dataDirs) const {
    auto result = std::make_shared<Scan>();
    result->dataDirs = dataDirs;
    const std::string locale = VXDesktopEntry::currentLocale();
    std::set<std::string> seenIds;

    for (const std::string& dataDir : dataDirs) {
        const std::string root = dataDir + "/applications";
        result->folders.emplace_back(root, modificationStamp(root));
        std::error_code error;
        if (!fs::is_directory(root, error)) {
            continue;
        }
        std::vector<std::pair<std::string, std::string>> files = desktopFilesUnder(root, result->folders);
        for (const auto& [path, id] : files) {
            // An id met in an earlier data directory hides the same id here, even a hidden one.
            if (!seenIds.insert(id).second) {
                continue;
            }
            auto loaded = VXDesktopEntry::load(path, id, locale);
            if (!loaded) {
                continue;
            }
            auto entry = std::make_shared<const VXDesktopEntry>(std::move(*loaded));
            result->all.push_back(entry);
            if (entry->isListedApplication()) {
                result->listed.push_back(entry);
            }
            result->byId.emplace(id, entry);
            if (entry->type() != "Application") {
                continue;
            }
            if (!entry->startupWMClass().empty()) {
                result->byWMClass.emplace(lowercase(entry->startupWMClass()), entry);
            }
            const std::string lowerId = lowercase(withoutDesktopSuffix(id));
            result->byLowerId.emplace(lowerId, entry);
            if (const auto dot = lowerId.rfind('.'); dot != std::string::npos && dot + 1 < lowerId.size()) {
                result->byLastPart.emplace(lowerId.substr(dot + 1), entry);
            }
            if (const std::string program = entry->executableName(); !program.empty()) {
                result->byProgram.emplace(program, entry);
            }
        }
    }
    return result;
}

VXDesktopEntryIndex::Entries VXDesktopEntryIndex::applications() {
    return current()->listed;
}

VXDesktopEntryIndex::Entries VXDesktopEntryIndex::allEntries() {
    return current()->all;
}

std::shared_ptr<const VXDesktopEntry> VXDesktopEntryIndex::findById(const std::string& desktopId) {
    const auto scan = current();
    const auto it = scan->byId.find(desktopId);
    return it == scan->byId.end() ? nullptr : it->second;
}

std::shared_ptr<const VXDesktopEntry> VXDesktopEntryIndex::findForProgram(const std::string& className,
                                                                          const std::string& instanceName,
                                                                          const std::string& executableName) {
    return findForProgramIn(*current(), className, instanceName, executableName);
}

VXDesktopEntryIndex::Entries
VXDesktopEntryIndex::findForPrograms(const std::vector<VXRunningProcess>& programs) {
    const auto scan = current();
    Entries entries;
    entries.reserve(programs.size());
    for (const auto& program : programs) {
        entries.push_back(
            findForProgramIn(*scan, program.className, program.instanceName, program.executableName));
    }
    return entries;
}

std::shared_ptr<const VXDesktopEntry>
VXDesktopEntryIndex::findForProgramIn(const Scan& scan, const std::string& className,
                                      const std::string& instanceName, const std::string& executableName) {
    const auto lookUp = [](const auto& map, const std::string& key) -> std::shared_ptr<const VXDesktopEntry> {
        if (key.empty()) {
            return nullptr;
        }
        const auto it = map.find(key);
        return it == map.end() ? nullptr : it->second;
    };
    const std::string lowerClass = lowercase(className);
    const std::string lowerInstance = lowercase(instanceName);
    for (const auto& candidate : {lookUp(scan.byWMClass, lowerClass), lookUp(scan.byWMClass, lowerInstance),
                                  lookUp(scan.byLowerId, lowerClass), lookUp(scan.byLowerId, lowerInstance),
                                  lookUp(scan.byLastPart, lowerClass), lookUp(scan.byLastPart, lowerInstance),
                                  lookUp(scan.byProgram, executableName)}) {
        if (candidate) {
            return candidate;
        }
    }
    return nullptr;
}

VXDesktopEntryIndex::Entries VXDesktopEntryIndex::applicationsUnder(const std::string& folder) {
    std::vector<std::pair<std::string, long long>> folders;
    std::string root = folder;
    while (root.size() > 1 && root.back() == '/') {
        root.pop_back();
    }
    std::error_code error;
    if (!fs::is_directory(root, error)) {
        return {};
    }
    const std::string locale = VXDesktopEntry::currentLocale();
    Entries entries;
    for (const auto& [path, id] : desktopFilesUnder(root, folders)) {
        auto loaded = VXDesktopEntry::load(path, id, locale);
        if (loaded && loaded->isListedApplication()) {
            entries.push_back(std::make_shared<const VXDesktopEntry>(std::move(*loaded)));
        }
    }
    return entries;
}

void VXDesktopEntryIndex::invalidate() {
    std::lock_guard<std::mutex> lock(mutex_);
    scan_.reset();
}
