#include "sysinfo/VXIconThemeLookup.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

namespace {

// The image kinds a theme may hold, in order of preference.
constexpr const char* extensions[] = {".png", ".svg", ".xpm"};
// How long a theme's file index is trusted before its folders are checked for changes.
constexpr auto revalidationInterval = std::chrono::seconds(5);
// Answers kept at most (sizes come from requests: a hostile phone must not grow this without end).
constexpr std::size_t maximumAnswers = 4096;
// index.theme files larger than this are not read.
constexpr std::size_t maximumIndexSize = 1 << 20;
// Themes inherited deeper than this are not followed.
constexpr std::size_t maximumInheritance = 16;

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string homeFolder() {
    if (std::string home = environment("HOME"); !home.empty()) {
        return home;
    }
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return "/";
}

bool isFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

long long modificationStamp(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return -1;
    }
    return static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
}

int number(const std::string& text, int fallback) {
    int value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() ? value : fallback;
}

std::vector<std::string> splitList(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find(separator, start);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string piece = text.substr(start, end - start);
        piece.erase(0, piece.find_first_not_of(" \t"));
        piece.erase(piece.find_last_not_of(" \t\r") + 1);
        if (!piece.empty()) {
            pieces.push_back(piece);
        }
        start = end + 1;
    }
    return pieces;
}

// The groups and keys of an index.theme file.
using IniGroups = std::unordered_map<std::string, std::unordered_map<std::string, std::string>>;

IniGroups readIni(const std::string& path) {
    IniGroups groups;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return groups;
    }
    std::string line;
    std::string group;
    std::size_t total = 0;
    while (std::getline(file, line)) {
        total += line.size() + 1;
        if (total > maximumIndexSize) {
            break;
        }
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[' && line.back() == ']') {
            group = line.substr(1, line.size() - 2);
            continue;
        }
        const auto equals = line.find('=');
        if (equals == std::string::npos || group.empty()) {
            continue;
        }
        std::string key = line.substr(0, equals);
        key.erase(key.find_last_not_of(" \t") + 1);
        std::string value = line.substr(equals + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        groups[group].emplace(std::move(key), std::move(value));
    }
    return groups;
}

} // namespace

struct VXIconThemeLookup::Theme {
    struct Directory {
        std::string name; // "48x48/apps"
        int size = 0;
        int minSize = 0;
        int maxSize = 0;
        int threshold = 2;
        int scale = 1;
        enum class Type { Fixed, Scalable, Threshold } type = Type::Threshold;

        bool matchesSize(int wanted) const {
            if (scale != 1) {
                return false;
            }
            switch (type) {
            case Type::Fixed:
                return size == wanted;
            case Type::Scalable:
                return minSize <= wanted && wanted <= maxSize;
            case Type::Threshold:
                return size - threshold <= wanted && wanted <= size + threshold;
            }
            return false;
        }
        int sizeDistance(int wanted) const {
            const int scaled = wanted; // the wanted scale is 1
            switch (type) {
            case Type::Fixed:
                return std::abs(size * scale - scaled);
            case Type::Scalable:
                if (scaled < minSize * scale) {
                    return minSize * scale - scaled;
                }
                return scaled > maxSize * scale ? scaled - maxSize * scale : 0;
            case Type::Threshold:
                if (scaled < (size - threshold) * scale) {
                    return (size - threshold) * scale - scaled;
                }
                return scaled > (size + threshold) * scale ? scaled - (size + threshold) * scale : 0;
            }
            return INT_MAX;
        }
    };
    // One file of an icon: in which directory (index into directories) and its path.
    struct File {
        std::size_t directory;
        int extension; // index into extensions
        std::string path;
    };

    std::string name;
    std::vector<std::string> parents;
    std::vector<Directory> directories;
    std::unordered_map<std::string, std::vector<File>> files;
    // The folders read, with their stamps, to see when the theme changed.
    std::vector<std::pair<std::string, long long>> folders;
    std::chrono::steady_clock::time_point checkedAt;
    bool exists = false;
};

VXIconThemeLookup::VXIconThemeLookup(std::string themeName, std::vector<std::string> baseDirs)
    : themeName_(themeName.empty() ? "Adwaita" : std::move(themeName)), baseDirs_(std::move(baseDirs)) {
    if (baseDirs_.empty()) {
        const std::string home = homeFolder();
        baseDirs_.push_back(home + "/.icons");
        const std::string dataHome = environment("XDG_DATA_HOME");
        baseDirs_.push_back(
            (!dataHome.empty() && dataHome.front() == '/' ? dataHome : home + "/.local/share") + "/icons");
        std::vector<std::string> dataDirs = splitList(environment("XDG_DATA_DIRS"), ':');
        if (dataDirs.empty()) {
            dataDirs = {"/usr/local/share", "/usr/share"};
        }
        for (const auto& dir : dataDirs) {
            if (dir.front() == '/') {
                baseDirs_.push_back(dir + "/icons");
            }
        }
        baseDirs_.push_back("/usr/share/pixmaps");
    }
}

VXIconThemeLookup::~VXIconThemeLookup() = default;

std::shared_ptr<const VXIconThemeLookup::Theme> VXIconThemeLookup::theme(const std::string& name) {
    const auto now = std::chrono::steady_clock::now();
    if (auto it = themes_.find(name); it != themes_.end()) {
        auto& known = it->second;
        if (now - known->checkedAt < revalidationInterval) {
            return known;
        }
        const bool unchanged =
            std::all_of(known->folders.begin(), known->folders.end(),
                        [](const auto& folder) { return modificationStamp(folder.first) == folder.second; });
        if (unchanged) {
            std::const_pointer_cast<Theme>(known)->checkedAt = now;
            return known;
        }
        answers_.clear();
    }
    auto theme = std::make_shared<Theme>();
    theme->name = name;
    theme->checkedAt = now;
    // A theme name (from the desktop's settings or an Inherits line) never leaves the icon folders.
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
        themes_[name] = theme;
        return theme;
    }
    // The theme's folder in each base directory; the first index.theme found describes it.
    std::vector<std::string> roots;
    IniGroups index;
    for (const auto& base : baseDirs_) {
        const std::string root = base + "/" + name;
        theme->folders.emplace_back(root, modificationStamp(root));
        if (theme->folders.back().second < 0) {
            continue;
        }
        roots.push_back(root);
        if (index.empty() && isFile(root + "/index.theme")) {
            index = readIni(root + "/index.theme");
        }
    }
    const auto main = index.find("Icon Theme");
    if (main != index.end()) {
        theme->exists = true;
        const auto& keys = main->second;
        if (auto it = keys.find("Inherits"); it != keys.end()) {
            theme->parents = splitList(it->second, ',');
        }
        std::vector<std::string> names;
        for (const char* key : {"Directories", "ScaledDirectories"}) {
            if (auto it = keys.find(key); it != keys.end()) {
                for (auto& directory : splitList(it->second, ',')) {
                    names.push_back(std::move(directory));
                }
            }
        }
        for (const auto& directoryName : names) {
            const auto group = index.find(directoryName);
            if (group == index.end() || directoryName.find("..") != std::string::npos) {
                continue;
            }
            const auto& values = group->second;
            const auto value = [&values](const char* key) {
                auto it = values.find(key);
                return it == values.end() ? std::string() : it->second;
            };
            Theme::Directory directory;
            directory.name = directoryName;
            directory.size = number(value("Size"), 0);
            if (directory.size <= 0) {
                continue;
            }
            directory.scale = std::max(1, number(value("Scale"), 1));
            directory.minSize = number(value("MinSize"), directory.size);
            directory.maxSize = number(value("MaxSize"), directory.size);
            directory.threshold = number(value("Threshold"), 2);
            const std::string type = value("Type");
            directory.type = type == "Fixed"      ? Theme::Directory::Type::Fixed
                             : type == "Scalable" ? Theme::Directory::Type::Scalable
                                                  : Theme::Directory::Type::Threshold;
            theme->directories.push_back(directory);
        }
        // One pass over every size folder: afterwards a lookup costs no file-system access.
        for (std::size_t d = 0; d < theme->directories.size(); ++d) {
            for (const auto& root : roots) {
                const std::string folder = root + "/" + theme->directories[d].name;
                const long long stamp = modificationStamp(folder);
                if (stamp < 0) {
                    continue;
                }
                theme->folders.emplace_back(folder, stamp);
                std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder.c_str()), closedir);
                if (!dir) {
                    continue;
                }
                while (const dirent* entry = readdir(dir.get())) {
                    const std::string file = entry->d_name;
                    for (int e = 0; e < 3; ++e) {
                        if (file.size() > 4 && file.ends_with(extensions[e])) {
                            theme->files[file.substr(0, file.size() - 4)].push_back(
                                Theme::File{d, e, folder + "/" + file});
                        }
                    }
                }
            }
        }
    }
    themes_[name] = theme;
    return theme;
}

std::optional<std::string> VXIconThemeLookup::findInTheme(const std::string& themeName,
                                                          const std::string& iconName, int size,
                                                          std::vector<std::string>& visited) {
    if (visited.size() >= maximumInheritance ||
        std::find(visited.begin(), visited.end(), themeName) != visited.end()) {
        return std::nullopt;
    }
    visited.push_back(themeName);
    const auto theme = this->theme(themeName);
    if (const auto found = theme->files.find(iconName); found != theme->files.end()) {
        // A directory of the right size first (in the theme's order, PNG before SVG before XPM),
        // else the closest size.
        const Theme::File* best = nullptr;
        for (const auto& file : found->second) {
            if (!theme->directories[file.directory].matchesSize(size)) {
                continue;
            }
            if (best == nullptr || file.directory < best->directory ||
                (file.directory == best->directory && file.extension < best->extension)) {
                best = &file;
            }
        }
        if (best == nullptr) {
            int bestDistance = INT_MAX;
            for (const auto& file : found->second) {
                const int distance = theme->directories[file.directory].sizeDistance(size);
                if (distance < bestDistance ||
                    (distance == bestDistance && best != nullptr && file.directory == best->directory &&
                     file.extension < best->extension)) {
                    best = &file;
                    bestDistance = distance;
                }
            }
        }
        if (best != nullptr) {
            return best->path;
        }
    }
    for (const auto& parent : theme->parents) {
        if (auto path = findInTheme(parent, iconName, size, visited)) {
            return path;
        }
    }
    return std::nullopt;
}

std::optional<std::string> VXIconThemeLookup::findUnthemed(const std::string& iconName) const {
    for (const auto& base : baseDirs_) {
        for (const char* extension : extensions) {
            const std::string path = base + "/" + iconName + extension;
            if (isFile(path)) {
                return path;
            }
        }
    }
    return std::nullopt;
}

std::optional<std::string> VXIconThemeLookup::findIcon(const std::vector<std::string>& iconNames, int size) {
    size = std::clamp(size, 1, 4096);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& iconName : iconNames) {
        if (iconName.empty()) {
            continue;
        }
        if (iconName.front() == '/') {
            if (isFile(iconName)) {
                return iconName;
            }
            continue;
        }
        // A name is never a path: "../x" must not leave the theme folders.
        if (iconName.find('/') != std::string::npos) {
            continue;
        }
        const auto key = std::make_pair(iconName, size);
        // Revalidate the main theme (and drop answers when it changed) before trusting an answer.
        theme(themeName_);
        if (auto it = answers_.find(key); it != answers_.end()) {
            if (it->second) {
                return it->second;
            }
            continue;
        }
        std::vector<std::string> visited;
        std::optional<std::string> path = findInTheme(themeName_, iconName, size, visited);
        if (!path) {
            path = findInTheme("hicolor", iconName, size, visited);
        }
        if (!path) {
            path = findUnthemed(iconName);
        }
        if (answers_.size() >= maximumAnswers) {
            answers_.clear();
        }
        answers_.emplace(key, path);
        if (path) {
            return path;
        }
    }
    return std::nullopt;
}
