#include "support/FakeSystem.h"

#include "input/VXCommandExecute.h"
#include "sysinfo/VXSystemInfo.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

std::vector<std::uint8_t> bytesOf(const std::string& text) {
    return std::vector<std::uint8_t>(text.begin(), text.end());
}

std::string formatName(VXImageFormat format) {
    return format == VXImageFormat::PNG ? "PNG" : "TIFF";
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

} // namespace

void FakeSystem::Processes::setProcesses(std::vector<VXRunningProcess> processes) {
    std::lock_guard<std::mutex> lock(mutex_);
    processes_ = std::move(processes);
}

std::vector<VXRunningProcess> FakeSystem::Processes::uiProcesses() {
    std::lock_guard<std::mutex> lock(mutex_);
    return processes_;
}

std::optional<VXRunningProcess> FakeSystem::Processes::processWithPid(std::int64_t pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = std::find_if(processes_.begin(), processes_.end(),
                                    [pid](const VXRunningProcess& process) { return process.pid == pid; });
    if (found == processes_.end()) {
        return std::nullopt;
    }
    return *found;
}

std::optional<VXArgbImage> FakeSystem::Processes::windowIcon(std::int64_t pid, int) {
    if (!processWithPid(pid)) {
        return std::nullopt;
    }
    return VXArgbImage{2, 2, {0xff0000ffu, 0xff00ff00u, 0xffff0000u, 0xffffffffu}};
}

bool FakeSystem::Audio::setVolume(std::uint32_t, float volume) {
    volume_.store(volume);
    return true;
}

bool FakeSystem::Audio::setMute(std::uint32_t, bool muted) {
    muted_.store(muted);
    return true;
}

int FakeSystem::Backlight::activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& displays) {
    displays.clear();
    if (capacity > 0) {
        displays.push_back(1);
    }
    return 0;
}

int FakeSystem::Backlight::getBrightness(std::uint32_t, float& value) {
    value = brightness_.load();
    return 0;
}

int FakeSystem::Backlight::setBrightness(std::uint32_t, float value) {
    brightness_.store(value);
    return 0;
}

std::vector<VXPixelRect> FakeSystem::Screen::requested() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requested_;
}

std::optional<VXPixelRect> FakeSystem::Screen::captureRect(const VXPixelRect& rect, VXPixelBuffer& into) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        requested_.push_back(rect);
    }
    const int left = std::max(rect.x, frame.x);
    const int top = std::max(rect.y, frame.y);
    const int right = std::min(rect.x + rect.width, frame.x + frame.width);
    const int bottom = std::min(rect.y + rect.height, frame.y + frame.height);
    if (right <= left || bottom <= top) {
        return std::nullopt;
    }
    into.width = right - left;
    into.height = bottom - top;
    into.bytesPerRow = into.width * 4;
    into.pixels.assign(static_cast<std::size_t>(into.bytesPerRow) * into.height, 0x80);
    return VXPixelRect{left, top, into.width, into.height};
}

void FakeSystem::Desktop::setFavorites(std::optional<std::vector<std::string>> ids) {
    std::lock_guard<std::mutex> lock(mutex_);
    favorites_ = std::move(ids);
}

std::optional<std::vector<std::string>> FakeSystem::Desktop::favoriteDesktopIds() {
    std::lock_guard<std::mutex> lock(mutex_);
    return favorites_;
}

std::optional<std::vector<std::uint8_t>>
FakeSystem::Images::renderFile(const std::string& imagePath, int width, int height, VXImageFormat format) {
    return bytesOf("file " + imagePath + " " + sizeText(width, height) + " " + formatName(format));
}

std::optional<std::vector<std::uint8_t>>
FakeSystem::Images::renderResource(const std::string& name, int width, int height, VXImageFormat format) {
    return bytesOf("resource " + name + " " + sizeText(width, height) + " " + formatName(format));
}

std::optional<std::vector<std::uint8_t>> FakeSystem::Images::renderPixels(const VXArgbImage& image, int width,
                                                                          int height, VXImageFormat format) {
    return bytesOf("pixels " + sizeText(image.width, image.height) + " " + sizeText(width, height) + " " +
                   formatName(format));
}

std::vector<std::string> FakeSystem::MimeTypes::iconNamesForFileType(const std::string& extension) {
    return {iconDirectory_ + "/" + (extension.empty() ? std::string("unknown") : extension) + ".png"};
}

std::vector<std::string> FakeSystem::MimeTypes::iconNamesForFile(const std::string&) {
    return {iconDirectory_ + "/document.png"};
}

void FakeSystem::Controls::setVolume(float volume) {
    if (auto systemInfo = systemInfo_.lock()) {
        systemInfo->setVolume(volume);
    }
}

void FakeSystem::Controls::setBrightness(float brightness) {
    if (auto systemInfo = systemInfo_.lock()) {
        systemInfo->setBrightness(brightness);
    }
}

FakeSystem::FakeSystem(const std::string& homeDirectory, std::chrono::steady_clock::duration snapshotInterval)
    : home(homeDirectory), mimeTypes(std::make_shared<MimeTypes>(homeDirectory + "/icons")) {
    std::filesystem::create_directories(home + "/share/applications");
    std::filesystem::create_directories(home + "/icons");
    VXSystemInfoBackEnds backEnds;
    backEnds.processes = processes;
    backEnds.desktop = desktop;
    backEnds.images = images;
    backEnds.mimeTypes = mimeTypes;
    backEnds.screen = screen;
    backEnds.audio = audio;
    backEnds.backlight = backlight;
    backEnds.dataDirs = {home + "/share"};
    backEnds.iconDirs = {home + "/icons"};
    backEnds.homeDirectory = home;
    backEnds.operatingSystemVersionString = [] { return std::string("Testix 1.0, kernel 6.0-test"); };
    backEnds.snapshotInterval = snapshotInterval;
    systemInfo = std::make_shared<VXSystemInfo>(std::move(backEnds));

    VXCommandExecute::Backends commandBackEnds;
    commandBackEnds.systemControls = std::make_shared<Controls>(systemInfo);
    executor = VXCommandExecute::create(std::move(commandBackEnds));
}

FakeSystem::~FakeSystem() = default;

std::string FakeSystem::addApplication(const std::string& id, const std::string& name) {
    const std::string path = home + "/share/applications/" + id;
    const std::string icon = home + "/icons/" + id + ".png";
    std::ofstream(icon) << "icon";
    std::ofstream(path) << "[Desktop Entry]\nType=Application\nName=" << name << "\nExec=" << name
                        << "\nIcon=" << icon << "\n";
    return path;
}

void FakeSystem::addFileTypeIcon(const std::string& extension) {
    std::ofstream(home + "/icons/" + extension + ".png") << "icon";
}

VXRunningProcess FakeSystem::running(std::int64_t pid, const std::string& name) {
    VXRunningProcess process;
    process.pid = pid;
    process.executableName = name;
    process.className = name;
    process.instanceName = name;
    process.windowTitle = name;
    return process;
}
