#include "sysinfo/linux/SysfsBacklight.h"

#include "sysinfo/linux/LogindSession.h"
#include "transport/PZLogger.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {

// Reads a small sysfs file (a number and a newline); an errno value on failure.
int readSmallFile(const std::string& path, std::string& text) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    char buffer[64];
    const ssize_t count = ::read(fd, buffer, sizeof buffer - 1);
    const int error = errno;
    ::close(fd);
    if (count < 0) {
        return error;
    }
    text.assign(buffer, static_cast<std::size_t>(count));
    return 0;
}

int typeRank(const std::string& type) {
    if (type == "firmware") {
        return 0;
    }
    if (type == "platform") {
        return 1;
    }
    return type == "raw" ? 2 : 3;
}

bool safeName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

} // namespace

SysfsBacklight::SysfsBacklight(std::string root, PrivilegedWriter writer)
    : root_(root.empty() ? "/sys/class/backlight" : std::move(root)),
      writer_(writer ? std::move(writer) : PrivilegedWriter(&LogindSession::setBacklightBrightness)) {}

int SysfsBacklight::readNumber(const std::string& name, const char* file, long long& value) const {
    std::string text;
    if (const int error = readSmallFile(root_ + "/" + name + "/" + file, text); error != 0) {
        return error;
    }
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value < 0) {
        return EINVAL;
    }
    return 0;
}

int SysfsBacklight::activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& displays) {
    displays.clear();
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(root_.c_str()), closedir);
    std::vector<std::pair<int, std::string>> found;
    if (dir) {
        while (const dirent* entry = readdir(dir.get())) {
            const std::string name = entry->d_name;
            if (!safeName(name) || name.front() == '.') {
                continue;
            }
            std::string type;
            readSmallFile(root_ + "/" + name + "/type", type);
            while (!type.empty() && (type.back() == '\n' || type.back() == ' ')) {
                type.pop_back();
            }
            found.emplace_back(typeRank(type), name);
        }
    }
    // By type (firmware, platform, raw, others), each in name order.
    std::sort(found.begin(), found.end());
    if (found.empty()) {
        if (!absenceLogged_.exchange(true)) {
            PZLog("Brightness: no backlight under " + root_);
        }
        return 0;
    }
    absenceLogged_.store(false);
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [rank, name] : found) {
        if (displays.size() >= capacity) {
            break;
        }
        auto [it, inserted] = ids_.emplace(name, nextId_);
        if (inserted) {
            ++nextId_;
        }
        displays.push_back(it->second);
    }
    return 0;
}

std::string SysfsBacklight::nameOfDisplay(std::uint32_t display) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [name, id] : ids_) {
        if (id == display) {
            return name;
        }
    }
    return {};
}

int SysfsBacklight::getBrightness(std::uint32_t display, float& value) {
    const std::string name = nameOfDisplay(display);
    if (name.empty()) {
        return ENODEV;
    }
    long long current = 0;
    long long maximum = 0;
    if (const int error = readNumber(name, "max_brightness", maximum); error != 0) {
        return error;
    }
    if (maximum <= 0) {
        return EINVAL;
    }
    if (const int error = readNumber(name, "brightness", current); error != 0) {
        return error;
    }
    value = static_cast<float>(std::min(current, maximum)) / static_cast<float>(maximum);
    return 0;
}

int SysfsBacklight::setBrightness(std::uint32_t display, float value) {
    const std::string name = nameOfDisplay(display);
    if (name.empty()) {
        return ENODEV;
    }
    if (!std::isfinite(value)) {
        return EINVAL;
    }
    long long maximum = 0;
    if (const int error = readNumber(name, "max_brightness", maximum); error != 0) {
        return error;
    }
    if (maximum <= 0 || maximum > 0xFFFFFFFFLL) {
        return EINVAL;
    }
    const auto raw = static_cast<std::uint32_t>(
        std::llround(std::clamp(static_cast<double>(value), 0.0, 1.0) * static_cast<double>(maximum)));
    if (writer_(name, raw)) {
        return 0;
    }
    const int fd = ::open((root_ + "/" + name + "/brightness").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    char text[16];
    const auto end = std::to_chars(text, text + sizeof text, raw).ptr;
    const ssize_t written = ::write(fd, text, static_cast<std::size_t>(end - text));
    const int error = errno;
    ::close(fd);
    return written == end - text ? 0 : (written < 0 ? error : EIO);
}
