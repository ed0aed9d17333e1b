#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class VXJPEGEncoder;
class VXProcess;
class VXRequest;
class VXRequestsClient;
class VXSystemInfo;
class VXTranslationProtocol;

// Answers the requests of one phone: each request becomes a block of bytes already encoded in the
// session's wire form (empty: nothing is sent). It also keeps the values last sent to the phone
// (process list, volume, brightness) that the session's change push compares, and renders those
// pushes. It does no I/O of its own: everything comes from the system information. Used from one
// thread at a time; it holds no locks.
class VXRequestsManager {
public:
    using Bytes = std::vector<std::uint8_t>;
    using ProcessArray = std::vector<std::shared_ptr<VXProcess>>;

    // protocol(): the XML form (the value of a new dispatcher).
    static constexpr std::uint32_t kProtocolXML = 0;
    // protocol(): the JSON form.
    static constexpr std::uint32_t kProtocolJSON = 1;

    // A dispatcher in XML asking systemInfo, with no client and nothing sent yet.
    explicit VXRequestsManager(std::shared_ptr<VXSystemInfo> systemInfo);
    ~VXRequestsManager();
    VXRequestsManager(const VXRequestsManager&) = delete;
    VXRequestsManager& operator=(const VXRequestsManager&) = delete;

    // The encoded answer to request; empty when nothing is to be sent. Never fails.
    Bytes manageRequest(const VXRequest& request);

    // The installed applications as answered to a list request; nothing for an unknown protocol.
    std::optional<Bytes> dataFromApplications(const ProcessArray& processes) const;
    // The user-interface processes with the pseudo-entries in front; nothing for an unknown protocol.
    std::optional<Bytes> dataFromUIElementProcesses(const ProcessArray& processes) const;
    // The "volume" info with value as "%f".
    Bytes dataFromVolumeValue(float value) const;
    // The "brightness" info with value as "%f".
    Bytes dataFromBrightnessValue(float value) const;

    // Remembers the process list last sent (the change push starts once there is one).
    void setLastProcessesSent(std::optional<ProcessArray> processes) { processes_ = std::move(processes); }
    // The process list last sent; nothing until the phone asked for it.
    const std::optional<ProcessArray>& getLastProcessesSent() const noexcept { return processes_; }
    // Remembers the volume last sent.
    void setLastVolumeValueSent(float value) noexcept { volume_ = value; }
    // The volume last sent (0 at start).
    float getLastVolumeValueSent() const noexcept { return volume_; }
    // Remembers the brightness last sent.
    void setLastBrightnessValueSent(float value) noexcept { brightness_ = value; }
    // The brightness last sent (0 at start).
    float getLastBrightnessValueSent() const noexcept { return brightness_; }

    // The wire form of the answers: 0 XML, 1 JSON.
    std::uint32_t protocol() const noexcept { return protocol_; }
    // Sets the wire form of the answers.
    void setProtocol(std::uint32_t protocol) noexcept { protocol_ = protocol; }
    // The session served (never owned; asked for the phone application's version).
    VXRequestsClient* client() const noexcept { return client_; }
    // Sets the session served; its owner guarantees that it outlives this dispatcher's use of it.
    void setClient(VXRequestsClient* client) noexcept { client_ = client; }

private:
    // Appends message in the session's wire form (nothing when that form is empty).
    void appendEncoded(Bytes& answer, const VXTranslationProtocol& message) const;
    void answerInfo(const VXRequest& request, Bytes& answer);
    void answerProcessList(const VXRequest& request, Bytes& answer);
    void answerIcon(const VXRequest& request, Bytes& answer);
    void answerApplicationList(Bytes& answer);
    void answerFileIcon(const VXRequest& request, Bytes& answer);
    void answerDirectory(const VXRequest& request, Bytes& answer);
    void answerScreenshot(const VXRequest& request, Bytes& answer);
    std::optional<std::string> clientVersion() const;

    std::uint32_t protocol_ = kProtocolXML;
    VXRequestsClient* client_ = nullptr;
    std::shared_ptr<VXSystemInfo> systemInfo_;
    std::unique_ptr<VXJPEGEncoder> jpegEncoder_; // made on the first screenshot
    std::optional<ProcessArray> processes_;
    float volume_ = 0;
    float brightness_ = 0;
};
