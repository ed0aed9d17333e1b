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
    processes->setDefaultIcon(VXArgbImage{2, 2, {0xff0000ffu, 0xff00ff00u, 0xffff0000u, 0xffffffffu}});
    backlight->setLevel(0.75f);
    desktop->setIconTheme("hicolor");
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
