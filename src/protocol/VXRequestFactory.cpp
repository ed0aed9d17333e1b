#include "protocol/VXRequestFactory.h"

#include "protocol/PZNumberText.h"
#include "protocol/PZValue.h"

namespace {

std::string sizeText(VXSize size) {
    std::string text;
    PZNumberText::appendFixed(text, size.width, 6);
    text += ';';
    PZNumberText::appendFixed(text, size.height, 6);
    return text;
}

} // namespace

bool VXRequestFactory::isRequestSent(const VXRequest& request) const {
    for (const auto& sent : sentRequests_) {
        if (sent->isEqualToRequest(request)) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<VXRequest> VXRequestFactory::requestWithTypeTextArguments(
    std::optional<std::string> type, std::optional<std::string> text, std::optional<PZDictionary> arguments) {
    auto request =
        VXRequest::requestWithTypeTextArguments(std::move(type), std::move(text), std::move(arguments));
    if (!request || isRequestSent(*request)) {
        return nullptr;
    }
    return request;
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForPassword() {
    return VXRequest::requestWithTypeTextArguments(std::string(kPassword), "start_connection");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForProtocolInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "protocol");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForAppInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "app");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForAppVersionInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "version");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForOSInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "os");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForVXInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "vx");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForDeviceInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "device");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForVolumeInfo() {
    return requestWithTypeTextArguments(std::string(kInfo), "volume");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForUIElementProcessList() {
    return requestWithTypeTextArguments(std::string(kProcessList), "UIElement");
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForProcessIconSize(const VXProcess& process,
                                                                       VXSize size) {
    std::string pid;
    PZNumberText::appendInteger(pid, static_cast<std::int32_t>(process.pid()));
    PZDictionary arguments;
    arguments.set("size", PZValue(sizeText(size)));
    if (process.name()) {
        arguments.set("name", PZValue(*process.name()));
    }
    return requestWithTypeTextArguments(std::string(kProcessIcon), std::move(pid), std::move(arguments));
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForApplicationList() {
    return requestWithTypeTextArguments(std::string(kAppList));
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForApplicationIconSize(const VXProcess& process,
                                                                           VXSize size) {
    PZDictionary arguments;
    arguments.set("size", PZValue(sizeText(size)));
    auto request =
        VXRequest::requestWithTypeTextArguments(std::string(kAppIcon), process.name(), std::move(arguments));
    if (!request || isRequestSent(*request)) {
        return nullptr;
    }
    return request;
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForDirectoryInfo(const std::string& path) {
    return requestWithTypeTextArguments(std::string(kDirectory), path);
}

std::shared_ptr<VXRequest> VXRequestFactory::requestForFileAtPath(const std::string& path) {
    return requestWithTypeTextArguments(std::string(kFile), path);
}
