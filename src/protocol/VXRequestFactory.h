#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/PZDictionary.h"
#include "protocol/VXGeometry.h"
#include "protocol/VXProcess.h"
#include "protocol/VXRequest.h"

// Makes the requests the server sends to a phone, so that each request's type, text and arguments
// are spelled in one place.
class VXRequestFactory {
public:
    // Request types.
    static constexpr std::string_view kInfo = "info";
    static constexpr std::string_view kProcessList = "processList";
    static constexpr std::string_view kProcessIcon = "processIcon";
    static constexpr std::string_view kAppList = "appList";
    static constexpr std::string_view kAppIcon = "appIcon";
    static constexpr std::string_view kDirectory = "directory";
    static constexpr std::string_view kFile = "file";
    static constexpr std::string_view kFileIcon = "fileIcon";
    static constexpr std::string_view kScreenshot = "screenshot";
    static constexpr std::string_view kPassword = "password";
    // Argument keys of the screenshot request.
    static constexpr std::string_view kScreenshotTime = "SSTime";
    static constexpr std::string_view kScreenshotRect = "SSRect";
    static constexpr std::string_view kScreenshotSize = "SSSize";

    // True when an equal request was recorded as sent (nothing is ever recorded: always false).
    bool isRequestSent(const VXRequest& request) const;
    // The request, or null when it was already sent.
    std::shared_ptr<VXRequest>
    requestWithTypeTextArguments(std::optional<std::string> type,
                                 std::optional<std::string> text = std::nullopt,
                                 std::optional<PZDictionary> arguments = std::nullopt);
    // The requests recorded as sent (always empty).
    const std::vector<std::shared_ptr<VXRequest>>& sentRequests() const noexcept { return sentRequests_; }

    // "password" "start_connection".
    std::shared_ptr<VXRequest> requestForPassword();
    // "info" "protocol".
    std::shared_ptr<VXRequest> requestForProtocolInfo();
    // "info" "app".
    std::shared_ptr<VXRequest> requestForAppInfo();
    // "info" "version".
    std::shared_ptr<VXRequest> requestForAppVersionInfo();
    // "info" "os".
    std::shared_ptr<VXRequest> requestForOSInfo();
    // "info" "vx".
    std::shared_ptr<VXRequest> requestForVXInfo();
    // "info" "device".
    std::shared_ptr<VXRequest> requestForDeviceInfo();
    // "info" "volume".
    std::shared_ptr<VXRequest> requestForVolumeInfo();
    // "processList" "UIElement".
    std::shared_ptr<VXRequest> requestForUIElementProcessList();
    // "processIcon" with the pid as text, "size" "w;h" (six decimals each) and "name".
    std::shared_ptr<VXRequest> requestForProcessIconSize(const VXProcess& process, VXSize size);
    // "appList" without text.
    std::shared_ptr<VXRequest> requestForApplicationList();
    // "appIcon" with the process name as text and "size" "w;h".
    std::shared_ptr<VXRequest> requestForApplicationIconSize(const VXProcess& process, VXSize size);
    // "directory" with the path.
    std::shared_ptr<VXRequest> requestForDirectoryInfo(const std::string& path);
    // "file" with the path.
    std::shared_ptr<VXRequest> requestForFileAtPath(const std::string& path);

private:
    std::vector<std::shared_ptr<VXRequest>> sentRequests_;
};
