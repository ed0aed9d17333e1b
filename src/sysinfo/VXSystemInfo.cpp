#include "sysinfo/VXSystemInfo.h"

#include "VXHVersion.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXFile.h"
#include "protocol/VXProcess.h"
#include "transport/PZLogger.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

// Icons are rendered at most this large on a side, whatever a request asks.
constexpr double maximumIconSide = 1024;

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool isDirectory(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// A requested icon side as whole pixels; nothing for sizes that draw nothing (0, negative, NaN).
std::optional<int> iconSide(double value) {
    if (!(value >= 1.0)) {
        return std::nullopt;
    }
    return static_cast<int>(std::min(value, maximumIconSide));
}

// The value of a key of /etc/os-release, its quotes and escapes removed.
std::string osReleaseValue(const std::string& key) {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream file(path);
        std::string line;
        while (file && std::getline(file, line)) {
            if (!line.starts_with(key + "=")) {
                continue;
            }
            std::string value = line.substr(key.size() + 1);
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                value.back() == value.front()) {
                value = value.substr(1, value.size() - 2);
            }
            std::string unescaped;
            for (size_t i = 0; i < value.size(); ++i) {
                if (value[i] == '\\' && i + 1 < value.size()) {
                    ++i;
                }
                unescaped.push_back(value[i]);
            }
            return unescaped;
        }
        if (file.is_open() || !line.empty()) {
            break;
        }
    }
    return {};
}

std::string defaultOperatingSystemVersionString() {
    std::string name = osReleaseValue("PRETTY_NAME");
    if (name.empty()) {
        name = "Linux";
    }
    utsname system{};
    if (uname(&system) == 0) {
        name += ", kernel ";
        name += system.release;
    }
    return name;
}

// The last path component, trailing slashes ignored ("/" stays "/").
std::string displayName(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') {
        trimmed.pop_back();
    }
    const auto slash = trimmed.rfind('/');
    if (slash == std::string::npos || trimmed.size() == 1) {
        return trimmed;
    }
    return trimmed.substr(slash + 1);
}

} // namespace

VXSystemInfo::VXSystemInfo(VXSystemInfoBackEnds backEnds)
    : backEnds_(std::move(backEnds)), volumeControl_(backEnds_.audio),
      brightnessControl_(backEnds_.backlight), desktopEntries_(backEnds_.dataDirs),
      snapshot_([this] { return getUIElementProcesses(); }, [this] { return getVolume(); },
                [this] { return getBrightness(); }, backEnds_.snapshotInterval) {}

VXSystemInfo::~VXSystemInfo() = default;

std::string VXSystemInfo::operatingSystemVersionString() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    return backEnds_.operatingSystemVersionString ? backEnds_.operatingSystemVersionString()
                                                  : defaultOperatingSystemVersionString();
}

std::optional<std::string> VXSystemInfo::getSystemVersion() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    const std::string text = operatingSystemVersionString();
    size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find(' ', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string piece = text.substr(start, end - start);
        if (piece.find_first_not_of("0123456789.") == std::string::npos) {
            return piece;
        }
        start = end + 1;
    }
    return std::nullopt;
}

std::optional<std::string> VXSystemInfo::getVXHVersion() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    return std::string(VXH_VERSION_STRING);
}

float VXSystemInfo::getVolume() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    return volumeControl_.volume();
}

void VXSystemInfo::setVolume(float volume) {
    {
        std::lock_guard<std::recursive_mutex> lock(lock_);
        volumeControl_.setVolume(volume);
    }
    // Outside the lock: a snapshot read holds the snapshot's lock while it takes this one.
    snapshot_.invalidateVolume();
}

float VXSystemInfo::getBrightness() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    return brightnessControl_.getBrightness();
}

void VXSystemInfo::setBrightness(float brightness) {
    {
        std::lock_guard<std::recursive_mutex> lock(lock_);
        brightnessControl_.setBrightness(brightness);
    }
    snapshot_.invalidateBrightness();
}

std::shared_ptr<VXProcess>
VXSystemInfo::processFromRunning(const VXRunningProcess& running,
                                 const std::shared_ptr<const VXDesktopEntry>& entry) {
    if (running.executableName.empty()) {
        PZLog("Error: there is no name for process " +
              std::to_string(static_cast<std::uint32_t>(running.pid)));
        return nullptr;
    }
    auto process = VXProcess::processWithNamePid(running.executableName, running.pid);
    // The name the desktop shows for the application: its desktop entry's, else the window class.
    if (entry && !entry->name().empty()) {
        process->setMainWindowTitle(entry->name());
    } else if (!running.className.empty()) {
        process->setMainWindowTitle(running.className);
    } else if (!running.instanceName.empty()) {
        process->setMainWindowTitle(running.instanceName);
    } else {
        process->setMainWindowTitle(running.executableName);
    }
    return process;
}

VXSystemInfo::ProcessArray VXSystemInfo::getUIElementProcesses() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    ProcessArray processes;
    if (!backEnds_.processes) {
        return processes;
    }
    const std::vector<VXRunningProcess> running = backEnds_.processes->uiProcesses();
    // The desktop entries' folders are checked once for the whole list.
    const auto entries = desktopEntries_.findForPrograms(running);
    for (size_t i = 0; i < running.size(); ++i) {
        if (auto process = processFromRunning(running[i], entries[i])) {
            processes.push_back(std::move(process));
        }
    }
    return processes;
}

std::shared_ptr<VXProcess> VXSystemInfo::getProcessWithPSN(std::int64_t psn) {
    const auto lowWord = static_cast<std::uint32_t>(psn);
    if (lowWord == 0) {
        return nullptr;
    }
    if (lowWord == 0xFFFFFFFFu) {
        return VXProcess::processWithNamePid("Mac", computerPid);
    }
    if (!backEnds_.processes) {
        return nullptr;
    }
    const auto running = backEnds_.processes->processWithPid(static_cast<std::int32_t>(lowWord));
    if (!running) {
        return nullptr;
    }
    return processFromRunning(
        *running,
        desktopEntries_.findForProgram(running->className, running->instanceName, running->executableName));
}

std::optional<std::string> VXSystemInfo::processNameForPid(std::int64_t pid) {
    const auto process = getProcessWithPSN(pid);
    return process ? process->name() : std::nullopt;
}

namespace {

VXSystemInfo::ProcessArray processesOfEntries(const VXDesktopEntryIndex::Entries& entries) {
    VXSystemInfo::ProcessArray processes;
    processes.reserve(entries.size());
    for (const auto& entry : entries) {
        auto process = VXProcess::processWithNamePid(entry->name(), VXSystemInfo::applicationPid);
        process->setPath(entry->path());
        processes.push_back(std::move(process));
    }
    return processes;
}

} // namespace

VXSystemInfo::ProcessArray VXSystemInfo::getInstalledApplications() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    ProcessArray applications = processesOfEntries(desktopEntries_.applications());
    std::stable_sort(applications.begin(), applications.end(),
                     [](const auto& a, const auto& b) { return a->compareOnName(*b) < 0; });
    applications_ = applications;
    return applications;
}

VXSystemInfo::ProcessArray VXSystemInfo::getApplicationsAtPath(const std::string& path) {
    return processesOfEntries(VXDesktopEntryIndex::applicationsUnder(path));
}

std::optional<VXSystemInfo::ProcessArray> VXSystemInfo::getDockApplications() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (!backEnds_.desktop) {
        return std::nullopt;
    }
    const auto ids = backEnds_.desktop->favoriteDesktopIds();
    if (!ids) {
        return std::nullopt;
    }
    ProcessArray applications;
    for (const std::string& id : *ids) {
        const auto entry = desktopEntries_.findById(id);
        if (!entry || entry->name().empty()) {
            continue; // a favourite whose application is no longer installed
        }
        auto process = VXProcess::processWithNamePid(entry->name(), applicationPid);
        process->setPath(entry->path());
        applications.push_back(std::move(process));
    }
    return applications;
}

VXIconThemeLookup& VXSystemInfo::iconTheme() {
    std::call_once(iconThemeOnce_, [this] {
        std::optional<std::string> theme;
        if (backEnds_.desktop) {
            theme = backEnds_.desktop->iconThemeName();
        }
        std::vector<std::string> iconDirs = backEnds_.iconDirs;
        if (iconDirs.empty() && !backEnds_.dataDirs.empty()) {
            iconDirs.push_back(homeDirectory() + "/.icons");
            for (const auto& dir : backEnds_.dataDirs) {
                iconDirs.push_back(dir + "/icons");
            }
            iconDirs.push_back("/usr/share/pixmaps");
        }
        iconTheme_ = std::make_unique<VXIconThemeLookup>(theme.value_or(""), std::move(iconDirs));
    });
    return *iconTheme_;
}

std::optional<VXSystemInfo::Bytes> VXSystemInfo::renderThemeIcon(const std::vector<std::string>& names,
                                                                 int width, int height,
                                                                 VXImageFormat format) {
    if (!backEnds_.images) {
        return std::nullopt;
    }
    const auto path = iconTheme().findIcon(names, std::max(width, height));
    if (!path) {
        return std::nullopt;
    }
    return renderFile(*path, width, height, format);
}

std::optional<VXSystemInfo::Bytes> VXSystemInfo::renderFile(const std::string& path, int width, int height,
                                                            VXImageFormat format) {
    const auto key = VXRenderedImageCache::fileKey(path, width, height, static_cast<int>(format));
    if (!key) {
        return std::nullopt;
    }
    return renderedImages_.getOrRender(
        *key, [&] { return backEnds_.images->renderFile(path, width, height, format); });
}

std::optional<VXSystemInfo::Bytes> VXSystemInfo::renderResource(const std::string& name, int width,
                                                                int height, VXImageFormat format) {
    const std::string key = std::to_string(static_cast<int>(format)) + ":" + std::to_string(width) + "x" +
                            std::to_string(height) + ":resource:" + name;
    return renderedImages_.getOrRender(
        key, [&] { return backEnds_.images->renderResource(name, width, height, format); });
}

std::optional<VXSystemInfo::Bytes> VXSystemInfo::renderApplicationIcon(const std::string& path, int width,
                                                                       int height) {
    // An application is its desktop entry: its Icon names a theme icon or an image file.
    if (path.ends_with(".desktop")) {
        if (const auto entry =
                VXDesktopEntry::load(path, displayName(path), VXDesktopEntry::currentLocale())) {
            std::vector<std::string> names{entry->icon()};
            // "foo.png" in Icon= is a common mistake for the theme name "foo".
            if (const auto dot = entry->icon().rfind('.');
                dot != std::string::npos && entry->icon().front() != '/' && entry->icon().size() - dot <= 4) {
                names.push_back(entry->icon().substr(0, dot));
            }
            names.push_back("application-x-executable");
            return renderThemeIcon(names, width, height, VXImageFormat::PNG);
        }
    }
    if (isDirectory(path)) {
        return renderThemeIcon({"folder"}, width, height, VXImageFormat::PNG);
    }
    if (!backEnds_.mimeTypes) {
        return std::nullopt;
    }
    return renderThemeIcon(backEnds_.mimeTypes->iconNamesForFile(path), width, height, VXImageFormat::PNG);
}

std::optional<VXSystemInfo::Bytes> VXSystemInfo::getDataOfIconForProcessSize(const VXProcess& process,
                                                                             double width, double height) {
    const auto w = iconSide(width);
    const auto h = iconSide(height);
    if (!w || !h || !backEnds_.images) {
        return std::nullopt;
    }
    const std::string name = process.name().value_or("");
    switch (process.pid()) {
    case launcherPid: {
        const std::string lower = lowercase(name);
        const char* image = lower == "applications" ? "ApplicationFolder.png"
                            : lower == "dock"       ? "DockFolder.png"
                                                    : "Folder.png";
        return renderResource(image, *w, *h, VXImageFormat::PNG);
    }
    case computerPid:
        return renderThemeIcon({"computer", "computer-symbolic", "user-desktop"}, *w, *h, VXImageFormat::PNG);
    case applicationPid: {
        if (process.path() && !process.path()->empty()) {
            return renderApplicationIcon(*process.path(), *w, *h);
        }
        ProcessArray applications;
        {
            std::lock_guard<std::recursive_mutex> lock(lock_);
            applications = applications_;
        }
        const auto found =
            std::find_if(applications.begin(), applications.end(), [&](const auto& application) {
                return process.name() && application->name() == process.name();
            });
        if (found == applications.end() || !(*found)->path()) {
            return std::nullopt;
        }
        return renderApplicationIcon(*(*found)->path(), *w, *h);
    }
    default:
        break;
    }
    if (!backEnds_.processes) {
        return std::nullopt;
    }
    // A running process: its window's own icon, else its application's.
    if (const auto icon = backEnds_.processes->windowIcon(process.pid(), std::max(*w, *h))) {
        if (auto data = backEnds_.images->renderPixels(*icon, *w, *h, VXImageFormat::PNG)) {
            return data;
        }
    }
    const auto running = backEnds_.processes->processWithPid(process.pid());
    if (!running) {
        return std::nullopt;
    }
    const auto entry =
        desktopEntries_.findForProgram(running->className, running->instanceName, running->executableName);
    if (!entry || entry->icon().empty()) {
        return std::nullopt;
    }
    return renderThemeIcon({entry->icon()}, *w, *h, VXImageFormat::PNG);
}

std::optional<VXSystemInfo::Bytes> VXSystemInfo::getDataOfFileIconSize(const std::string& text, double width,
                                                                       double height) {
    const auto w = iconSide(width);
    const auto h = iconSide(height);
    if (!w || !h || !backEnds_.images) {
        return std::nullopt;
    }
    if (text == "DIR") {
        return renderResource("Folder.png", *w, *h, VXImageFormat::TIFF);
    }
    const auto slash = text.rfind('/');
    const std::string last = slash == std::string::npos ? text : text.substr(slash + 1);
    const auto dot = last.rfind('.');
    const std::string extension = dot == std::string::npos ? std::string() : last.substr(dot + 1);
    if (!backEnds_.mimeTypes) {
        return std::nullopt;
    }
    if (auto data = renderThemeIcon(backEnds_.mimeTypes->iconNamesForFileType(extension), *w, *h,
                                    VXImageFormat::TIFF)) {
        return data;
    }
    return renderThemeIcon(backEnds_.mimeTypes->iconNamesForFile(text), *w, *h, VXImageFormat::TIFF);
}

std::string VXSystemInfo::homeDirectory() const {
    if (!backEnds_.homeDirectory.empty()) {
        return backEnds_.homeDirectory;
    }
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return home;
    }
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
        return entry->pw_dir;
    }
    return "/";
}

std::shared_ptr<VXDirectory> VXSystemInfo::getDirectoryAtPath(const std::string& path) {
    const std::string full = !path.empty() && path.front() == '/' ? path : homeDirectory() + "/" + path;
    if (full.find('\0') != std::string::npos || !isDirectory(full)) {
        return nullptr;
    }
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(full.c_str()), closedir);
    if (!dir) {
        return nullptr;
    }
    std::vector<std::string> names;
    while (const dirent* entry = readdir(dir.get())) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    auto directory = VXDirectory::directoryWithName(displayName(full));
    directory->setPath(full);
    const std::string prefix = full.ends_with("/") ? full : full + "/";
    for (const std::string& name : names) {
        struct stat info {};
        if (::stat((prefix + name).c_str(), &info) != 0) {
            continue; // a dangling link
        }
        if (S_ISDIR(info.st_mode)) {
            directory->addElement(
                std::static_pointer_cast<VXTranslationProtocol>(VXDirectory::directoryWithName(name)));
        } else {
            auto file = std::make_shared<VXFile>();
            file->setName(name);
            directory->addElement(std::static_pointer_cast<VXTranslationProtocol>(file));
        }
    }
    return directory;
}
