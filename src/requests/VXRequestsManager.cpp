#include "requests/VXRequestsManager.h"

#include "VXHVersion.h"
#include "protocol/PZDictionary.h"
#include "protocol/PZNumberText.h"
#include "protocol/PZValue.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXError.h"
#include "protocol/VXFile.h"
#include "protocol/VXGeometry.h"
#include "protocol/VXInfo.h"
#include "protocol/VXProcess.h"
#include "protocol/VXProcessList.h"
#include "protocol/VXRequest.h"
#include "protocol/VXRequestFactory.h"
#include "protocol/VXScreenshot.h"
#include "requests/VXRequestsClient.h"
#include "sysinfo/VXJPEGEncoder.h"
#include "sysinfo/VXPixelBuffer.h"
#include "sysinfo/VXScreenGrabber.h"
#include "sysinfo/VXSystemInfo.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <pwd.h>
#include <string_view>
#include <unistd.h>

namespace {

using Bytes = VXRequestsManager::Bytes;

constexpr double kDefaultIconSide = 64;
constexpr VXSize kDefaultScreenshotSize{480, 320};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

// The pieces of a ";"-joined argument read as numbers; nothing when the argument is absent or not text.
std::optional<std::vector<double>> numberArgument(const VXRequest& request, std::string_view key) {
    if (!request.arguments()) {
        return std::nullopt;
    }
    const std::string* text = request.arguments()->findString(key);
    if (!text) {
        return std::nullopt;
    }
    std::vector<double> numbers;
    for (const auto piece : split(*text, ';')) {
        numbers.push_back(PZNumberText::doubleValue(piece));
    }
    return numbers;
}

// An icon's size: 64 by 64 unless given; a missing height alone is 64.
VXSize iconSize(const VXRequest& request) {
    VXSize size{kDefaultIconSide, kDefaultIconSide};
    if (const auto numbers = numberArgument(request, "size")) {
        size.width = (*numbers)[0];
        if (numbers->size() > 1) {
            size.height = (*numbers)[1];
        }
    }
    return size;
}

const std::string* stringArgument(const VXRequest& request, std::string_view key) {
    return request.arguments() ? request.arguments()->findString(key) : nullptr;
}

const passwd* userEntry(passwd& entry, std::vector<char>& buffer) {
    passwd* found = nullptr;
    buffer.resize(16384);
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0) {
        return nullptr;
    }
    return found;
}

std::string userName() {
    passwd entry{};
    std::vector<char> buffer;
    if (const passwd* found = userEntry(entry, buffer); found && found->pw_name) {
        return found->pw_name;
    }
    const char* user = std::getenv("USER");
    return user ? user : "";
}

std::string fullUserName() {
    passwd entry{};
    std::vector<char> buffer;
    if (const passwd* found = userEntry(entry, buffer); found && found->pw_gecos) {
        const std::string_view gecos = found->pw_gecos;
        const std::string_view full = gecos.substr(0, gecos.find(','));
        if (!full.empty()) {
            return std::string(full);
        }
    }
    return userName();
}

} // namespace

VXRequestsManager::VXRequestsManager(std::shared_ptr<VXSystemInfo> systemInfo)
    : systemInfo_(std::move(systemInfo)) {}

VXRequestsManager::~VXRequestsManager() = default;

void VXRequestsManager::appendEncoded(Bytes& answer, const VXTranslationProtocol& message) const {
    if (protocol_ == kProtocolJSON) {
        const auto data = message.getJSONData();
        answer.insert(answer.end(), data.begin(), data.end());
    } else if (const auto data = message.getXMLData()) {
        answer.insert(answer.end(), data->begin(), data->end());
    }
}

std::optional<std::string> VXRequestsManager::clientVersion() const {
    return client_ ? client_->getVersion() : std::nullopt;
}

Bytes VXRequestsManager::manageRequest(const VXRequest& request) {
    Bytes answer;
    const std::string& type = request.type();
    if (type == VXRequestFactory::kInfo) {
        answerInfo(request, answer);
    } else if (type == VXRequestFactory::kProcessList) {
        answerProcessList(request, answer);
    } else if (type == VXRequestFactory::kAppIcon || type == VXRequestFactory::kProcessIcon) {
        answerIcon(request, answer);
    } else if (type == VXRequestFactory::kAppList) {
        answerApplicationList(answer);
    } else if (type == VXRequestFactory::kFileIcon) {
        answerFileIcon(request, answer);
    } else if (type == VXRequestFactory::kDirectory) {
        answerDirectory(request, answer);
    } else if (type == VXRequestFactory::kScreenshot) {
        answerScreenshot(request, answer);
    } else {
        appendEncoded(answer, *VXError::unableToRecognizeRequestError());
    }
    return answer;
}

void VXRequestsManager::answerInfo(const VXRequest& request, Bytes& answer) {
    const std::optional<std::string>& subject = request.text();
    std::optional<std::string> information;
    if (subject == "volume") {
        volume_ = systemInfo_->getVolume();
        information = PZNumberText::formatFixed(volume_);
    } else if (subject == "brightness") {
        brightness_ = systemInfo_->getBrightness();
        information = PZNumberText::formatFixed(brightness_);
    } else if (subject == "os") {
        information = "Mac " + systemInfo_->operatingSystemVersionString();
    } else if (subject == "vx") {
        information = VXH_VERSION_STRING;
    } else if (subject == "device") {
        return; // deliberately no answer and no error
    } else if (subject == "protocol") {
        information = "json";
    } else if (subject == "userName") {
        information = userName();
    } else if (subject == "homeDirectory") {
        information = systemInfo_->homeDirectory();
    } else if (subject == "fullUserName") {
        information = fullUserName();
    } else {
        appendEncoded(answer, *VXError::unableToRecognizeRequestError());
        return;
    }
    if (const auto info = VXInfo::infoWithSubjectInformation(subject, information)) {
        appendEncoded(answer, *info);
    }
}

void VXRequestsManager::answerProcessList(const VXRequest& request, Bytes& answer) {
    if (!request.text()) {
        return;
    }
    const std::string& selector = *request.text();
    if (equalsIgnoringCase(selector, "UIElement")) {
        processes_ = systemInfo_->getUIElementProcesses();
        if (const auto data = dataFromUIElementProcesses(*processes_)) {
            answer.insert(answer.end(), data->begin(), data->end());
        }
    } else if (equalsIgnoringCase(selector, "Applications")) {
        answerApplicationList(answer);
    } else if (equalsIgnoringCase(selector, "Dock")) {
        VXProcessList list(selector);
        if (const auto dock = systemInfo_->getDockApplications()) {
            for (const auto& process : *dock) {
                if (process) {
                    list.addElement(std::static_pointer_cast<VXTranslationProtocol>(process));
                }
            }
        }
        const auto data = list.getJSONData(); // always JSON, whatever the session's encoding
        answer.insert(answer.end(), data.begin(), data.end());
    }
}

void VXRequestsManager::answerApplicationList(Bytes& answer) {
    if (const auto data = dataFromApplications(systemInfo_->getInstalledApplications())) {
        answer.insert(answer.end(), data->begin(), data->end());
    }
}

void VXRequestsManager::answerIcon(const VXRequest& request, Bytes& answer) {
    const bool isAppIcon = request.type() == VXRequestFactory::kAppIcon;
    std::optional<std::string> name;
    std::int64_t pid = 0;
    if (isAppIcon) {
        name = request.text();
    } else {
        if (const std::string* argument = stringArgument(request, "name")) {
            name = *argument;
        }
        pid = request.text() ? PZNumberText::intValue(*request.text()) : 0;
    }
    VXProcess process(name, pid);
    if (const std::string* path = stringArgument(request, "path")) {
        process.setPath(*path);
    }
    const VXSize size = iconSize(request);
    const std::string fileName = name ? *name + ".png" : std::to_string(pid) + ".png";

    const auto icon = systemInfo_->getDataOfIconForProcessSize(process, size.width, size.height);
    if (!icon || icon->empty()) {
        appendEncoded(answer, *VXError::unableToSatisfyRequestError());
        return;
    }
    const auto file = VXFile::fileWithDataPath(*icon, fileName);
    if (!file) {
        appendEncoded(answer, *VXError::unableToSatisfyRequestError());
        return;
    }
    PZDictionary attributes;
    if (isAppIcon) {
        if (name) {
            attributes.set("application", *name);
        }
    } else {
        attributes.set("process", std::to_string(pid));
        if (name) {
            attributes.set("processName", *name);
        }
    }
    file->setAttributes(std::move(attributes));
    appendEncoded(answer, *file);
}

void VXRequestsManager::answerFileIcon(const VXRequest& request, Bytes& answer) {
    const VXSize size = iconSize(request);
    const std::string text = request.text().value_or("");
    std::string extension;
    if (text == "DIR") {
        extension = "DIR";
    } else {
        const auto components = split(text, '/');
        const auto pieces = split(components.back(), '.');
        extension = pieces.size() == 1 ? " " : std::string(pieces.back());
    }
    const auto tiff = systemInfo_->getDataOfFileIconSize(text, size.width, size.height);
    if (!tiff || tiff->empty()) {
        return; // no image: nothing is answered
    }
    VXFile file(*tiff, text);
    PZDictionary attributes;
    attributes.set("extensionIcon", extension);
    file.setAttributes(std::move(attributes));
    const auto data = file.getJSONData(); // always JSON, whatever the session's encoding
    answer.insert(answer.end(), data.begin(), data.end());
}

void VXRequestsManager::answerDirectory(const VXRequest& request, Bytes& answer) {
    const auto directory = systemInfo_->getDirectoryAtPath(request.text().value_or(""));
    if (!directory) {
        appendEncoded(answer, *VXError::unableToSatisfyRequestError());
        return;
    }
    appendEncoded(answer, *directory);
}

namespace {

// The phone's numbers become pixels: not-a-number is 0, and anything beyond any screen is held to a
// bound far outside it, so that sums of coordinates stay within an int.
int pixelCoordinate(double value) {
    constexpr double bound = 1 << 28;
    if (!std::isfinite(value)) {
        return 0;
    }
    return static_cast<int>(std::trunc(std::clamp(value, -bound, bound)));
}

} // namespace

void VXRequestsManager::answerScreenshot(const VXRequest& request, Bytes& answer) {
    // The "size" argument only matters to the screen reader's path, which rectangle capture never needs.
    VXRect rect;
    if (const auto numbers = numberArgument(request, "rect"); numbers && numbers->size() >= 4) {
        rect = VXRect{(*numbers)[0], (*numbers)[1], (*numbers)[2], (*numbers)[3]};
    }
    const auto& screen = systemInfo_->screen();
    if (rect.width == 0 && rect.height == 0) {
        // The rest of the main screen from the origin point, to its bottom-right corner.
        VXPixelRect frame;
        if (screen) {
            frame = screen->mainScreenFrame().value_or(VXPixelRect{});
        }
        rect.width = frame.x + frame.width - rect.x;
        rect.height = frame.y + frame.height - rect.y;
    }
    std::vector<std::uint8_t> jpeg;
    if (screen) {
        VXPixelBuffer image;
        const VXPixelRect wanted{pixelCoordinate(rect.x), pixelCoordinate(rect.y),
                                 pixelCoordinate(rect.width), pixelCoordinate(rect.height)};
        if (screen->captureRect(wanted, image) && !image.empty()) {
            if (!jpegEncoder_) {
                jpegEncoder_ = std::make_unique<VXJPEGEncoder>();
            }
            jpeg = jpegEncoder_->encode(image, VXJPEGEncoder::screenshotQuality);
        }
    }
    if (jpeg.empty()) {
        appendEncoded(answer, *VXError::unableToSatisfyRequestError());
        return;
    }
    const double now =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    appendEncoded(answer, VXScreenshot(now, rect, std::move(jpeg)));
}

std::optional<Bytes> VXRequestsManager::dataFromApplications(const ProcessArray& processes) const {
    if (protocol_ == kProtocolXML) {
        Bytes data;
        if (const auto info =
                VXInfo::infoWithSubjectInformation("NewApplicationsList", std::to_string(processes.size()))) {
            appendEncoded(data, *info);
        }
        for (const auto& process : processes) {
            if (process) {
                appendEncoded(data, *process);
            }
        }
        return data;
    }
    if (protocol_ == kProtocolJSON) {
        VXProcessList list(std::string("Applications"));
        for (const auto& process : processes) {
            if (process) {
                list.addElement(std::static_pointer_cast<VXTranslationProtocol>(process));
            }
        }
        return list.getJSONData();
    }
    return std::nullopt;
}

std::optional<Bytes> VXRequestsManager::dataFromUIElementProcesses(const ProcessArray& processes) const {
    if (protocol_ == kProtocolXML) {
        Bytes data;
        if (const auto info = VXInfo::infoWithSubjectInformation("NewProcessesList",
                                                                 std::to_string(processes.size() + 2))) {
            appendEncoded(data, *info);
        }
        appendEncoded(data, VXProcess("Applications", VXSystemInfo::launcherPid));
        appendEncoded(data, VXProcess("Mac", VXSystemInfo::computerPid));
        for (const auto& process : processes) {
            if (process) {
                appendEncoded(data, *process);
            }
        }
        return data;
    }
    if (protocol_ == kProtocolJSON) {
        VXProcessList list(std::string("UIElement"));
        list.addElement(VXProcess::processWithNamePid("Applications", VXSystemInfo::launcherPid));
        const std::string version = clientVersion().value_or("");
        if (VXRequestsClient::compareWithVersion(version, "2.2") != -1) {
            list.addElement(VXProcess::processWithNamePid("Dock", VXSystemInfo::launcherPid));
        }
        list.addElement(VXProcess::processWithNamePid("Mac", VXSystemInfo::computerPid));
        for (const auto& process : processes) {
            if (process) {
                list.addElement(std::static_pointer_cast<VXTranslationProtocol>(process));
            }
        }
        return list.getJSONData();
    }
    return std::nullopt;
}

Bytes VXRequestsManager::dataFromVolumeValue(float value) const {
    Bytes data;
    appendEncoded(data, VXInfo("volume", PZNumberText::formatFixed(value)));
    return data;
}

Bytes VXRequestsManager::dataFromBrightnessValue(float value) const {
    Bytes data;
    appendEncoded(data, VXInfo("brightness", PZNumberText::formatFixed(value)));
    return data;
}
