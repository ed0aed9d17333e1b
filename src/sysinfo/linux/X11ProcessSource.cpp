#include "sysinfo/linux/X11ProcessSource.h"

#include "platform/x11/X11Ewmh.h"

#include <algorithm>
#include <fstream>
#include <limits.h>
#include <unistd.h>
#include <unordered_set>

X11ProcessSource::X11ProcessSource(std::string displayName)
    : connection_("system information", std::move(displayName)) {}

std::string X11ProcessSource::executableName(std::int64_t pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    char target[PATH_MAX];
    const ssize_t length = ::readlink((folder + "/exe").c_str(), target, sizeof target - 1);
    if (length > 0) {
        std::string path(target, static_cast<size_t>(length));
        // An executable replaced since the process started (an update) is shown as "... (deleted)".
        constexpr std::string_view deleted = " (deleted)";
        if (path.ends_with(deleted)) {
            path.resize(path.size() - deleted.size());
        }
        const auto slash = path.rfind('/');
        std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
        if (!name.empty()) {
            return name;
        }
    }
    // Another user's process: the kernel's short name is still readable.
    std::ifstream comm(folder + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

std::vector<X11ProcessSource::Window> X11ProcessSource::firstWindows() {
    std::vector<Window> result;
    X11Display* display = connection_.get();
    if (display == nullptr) {
        return result;
    }
    X11Ewmh ewmh(*display);
    const auto infos = ewmh.describe(ewmh.clientList());
    std::unordered_set<int> seen;
    for (const X11WindowInfo& info : infos) {
        // Pids 0, -1 and -2 mark pseudo-processes in lists: a window without _NET_WM_PID is left out.
        if (!info.exists || info.pid <= 0 || !ewmh.isNormalOrDialog(info) || !seen.insert(info.pid).second) {
            continue;
        }
        VXRunningProcess process;
        process.pid = info.pid;
        process.executableName = executableName(info.pid);
        process.instanceName = info.instanceName;
        process.className = info.className;
        process.windowTitle = info.title;
        result.push_back(Window{info.window, std::move(process)});
    }
    return result;
}

std::vector<VXRunningProcess> X11ProcessSource::uiProcesses() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<VXRunningProcess> processes;
    for (auto& window : firstWindows()) {
        processes.push_back(std::move(window.process));
    }
    return processes;
}

std::optional<VXRunningProcess> X11ProcessSource::processWithPid(std::int64_t pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& window : firstWindows()) {
        if (window.process.pid == pid) {
            return std::move(window.process);
        }
    }
    return std::nullopt;
}

std::optional<VXArgbImage> X11ProcessSource::windowIcon(std::int64_t pid, int size) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& window : firstWindows()) {
        if (window.process.pid != pid) {
            continue;
        }
        X11Display* display = connection_.get();
        if (display == nullptr) {
            return std::nullopt;
        }
        auto icon = X11Ewmh(*display).windowIcon(window.window, size);
        if (!icon) {
            return std::nullopt;
        }
        return VXArgbImage{icon->width, icon->height, std::move(icon->argb)};
    }
    return std::nullopt;
}
