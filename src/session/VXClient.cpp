#include "session/VXClient.h"

#include "input/VXCommandExecute.h"
#include "protocol/PZNumberText.h"
#include "protocol/PZValue.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "protocol/VXInfo.h"
#include "protocol/VXProcess.h"
#include "protocol/VXRequest.h"
#include "protocol/VXRequestFactory.h"
#include "protocol/VXTranslator.h"
#include "requests/VXRequestsManager.h"
#include "session/VXLogRateLimiter.h"
#include "session/VXSessionStreamSink.h"
#include "sysinfo/VXSystemInfo.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZSocket.h"
#include "transport/PZThread.h"
#include "transport/PZTimer.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <exception>
#include <utility>

namespace {

// How long the socket thread sleeps at most when nothing happens.
constexpr auto kIdleWait = std::chrono::hours(1);

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

bool containsProcess(const VXRequestsManager::ProcessArray& list, const VXProcess& process) {
    return std::any_of(list.begin(), list.end(), [&](const std::shared_ptr<VXProcess>& entry) {
        return entry && entry->isEqual(process);
    });
}

bool processListsDiffer(const VXRequestsManager::ProcessArray& current,
                        const VXRequestsManager::ProcessArray& remembered) {
    if (current.size() != remembered.size()) {
        return true;
    }
    const auto missingFrom = [](const VXRequestsManager::ProcessArray& from,
                                const VXRequestsManager::ProcessArray& in) {
        return std::any_of(from.begin(), from.end(), [&](const std::shared_ptr<VXProcess>& process) {
            return process && !containsProcess(in, *process);
        });
    };
    return missingFrom(current, remembered) || missingFrom(remembered, current);
}

// About how many bytes a request holds.
std::size_t requestSize(const VXRequest& request) {
    std::size_t size = request.type().size() + (request.text() ? request.text()->size() : 0);
    if (const auto& arguments = request.arguments()) {
        for (std::size_t i = 0; i < arguments->size(); ++i) {
            size += arguments->keyAt(i).size() + sizeof(PZValue);
            if (const std::string* value = arguments->valueAt(i).asString()) {
                size += value->size();
            }
        }
    }
    return size;
}

std::string limitName(VXTranslatorLimit limit) {
    switch (limit) {
    case VXTranslatorLimit::messageSize:
        return "message size";
    case VXTranslatorLimit::nestingDepth:
        return "nesting depth";
    case VXTranslatorLimit::streamLength:
        return "stream length";
    }
    return "limit";
}

} // namespace

std::shared_ptr<VXClient> VXClient::clientWithSocketNativeHandleAddress(int descriptor,
                                                                        std::optional<Address> address,
                                                                        VXClientOptions options) {
    auto client = std::make_shared<VXClient>(Key{}, descriptor, std::move(address), options.withDefaults());
    client->socket_->setDelegate(std::weak_ptr<PZSocketDelegate>(client));
    client->requestsManager_->setClient(client.get());
    PZThread::detach("socketHandler", [socket = client->socket_] { socketHandler(socket); });
    return client;
}

VXClient::VXClient(Key, int descriptor, std::optional<Address> address, VXClientOptions options)
    : socket_(std::make_shared<PZSocket>(descriptor, std::move(address))), options_(std::move(options)) {
    const auto password = configuredPassword();
    passwordReceived_ = !password || password->empty();
    streamSink_ = std::make_shared<VXSessionStreamSink>(options_.streamDirectory, passwordReceived_.load());
    translator_ = std::make_unique<VXTranslator>(streamSink_, options_.systemInfo);
    translator_->setDelegate(this);
    requestFactory_ = std::make_unique<VXRequestFactory>();
    requestsManager_ = std::make_unique<VXRequestsManager>(options_.systemInfo);
}

VXClient::~VXClient() {
    std::shared_ptr<PZTimer> handshakeTimer;
    std::shared_ptr<PZTimer> checkTimer;
    {
        std::lock_guard<std::mutex> lock(timersMutex_);
        handshakeTimer = std::move(initConnectionTimeout_);
        checkTimer = std::move(checkTimer_);
    }
    if (handshakeTimer) {
        handshakeTimer->invalidate();
    }
    if (checkTimer) {
        checkTimer->invalidate();
    }
    socket_->setDelegate({});
    socket_->disconnect();
}

std::shared_ptr<VXClient> VXClient::self() {
    return std::static_pointer_cast<VXClient>(shared_from_this());
}

// The session's socket thread: every delivery of the socket runs here. Lines this session logs on it
// go through its own rate limiter.
void VXClient::socketHandler(const std::shared_ptr<PZSocket>& socket) {
    PZLog("VXClient thread 3 +++++++++++++++++++++++++");
    bool writingCount = false;
    VXLogRateLimiter limiter([&writingCount](std::string_view line) {
        writingCount = true;
        PZLog(line);
        writingCount = false;
    });
    PZLogger::setThreadFilter([&](std::string_view line) { return writingCount || limiter.admit(line); });
    auto loop = PZRunLoop::current();
    socket->scheduleInRunLoop(loop);
    while (socket->isValid()) {
        auto wait = std::chrono::steady_clock::duration(kIdleWait);
        if (const auto due = limiter.nextFlush()) {
            wait = std::max(std::chrono::steady_clock::duration::zero(),
                            *due - std::chrono::steady_clock::now());
        }
        const auto result = loop->runOnce(wait);
        limiter.flush();
        if (result == PZRunLoop::RunResult::Finished || result == PZRunLoop::RunResult::Stopped) {
            break;
        }
    }
    socket->removeFromRunLoop(loop);
    limiter.flushAll();
    PZLogger::setThreadFilter({});
    PZLog("VXClient thread 3 -------------------------");
}

void VXClient::start() {
    socket_->start();
    if (!passwordReceived_) {
        if (auto request = requestFactory_->requestForPassword()) {
            send(*request);
        }
    }
    for (const auto& request :
         {requestFactory_->requestForProtocolInfo(), requestFactory_->requestForOSInfo(),
          requestFactory_->requestForVXInfo(), requestFactory_->requestForAppInfo(),
          requestFactory_->requestForAppVersionInfo(), requestFactory_->requestForDeviceInfo()}) {
        if (request) {
            send(*request);
        }
    }
    std::lock_guard<std::mutex> lock(timersMutex_);
    if (!handshakeSettled_) {
        initConnectionTimeout_ =
            PZTimer::scheduledTimer(self(), options_.handshakeTimeout, false,
                                    [](VXClient& client, PZTimer&) { client.checkCompatibility(); });
    }
}

bool VXClient::connected() const {
    return socket_->connected();
}

std::string VXClient::getStringAddress() const {
    return socket_->getRemoteStringAddress();
}

void VXClient::disconnect() {
    // No delayed screenshot is ever scheduled, but one would be cancelled here.
    if (auto loop = socket_->runLoop()) {
        loop->cancelPreviousPerformRequests(this, "sendScreenshot:");
    }
    socket_->disconnect();
}

void VXClient::close() {
    closing_ = true;
    socket_->hardClose();
}

std::string VXClient::description() const {
    return getStringAddress() + " " + getApp() + " " + getVersion().value_or("(null)") + " " + getOS() + " " +
           getDevice();
}

void VXClient::send(const VXTranslationProtocol& message) {
    std::vector<std::uint8_t> data;
    if (protocol_.load() == kProtocolJSON) {
        data = message.getJSONData();
    } else if (auto xml = message.getXMLData()) {
        data = std::move(*xml);
    }
    if (!data.empty()) {
        socket_->sendData(data);
    }
}

std::optional<std::string> VXClient::infoValue(const std::string& subject) const {
    std::lock_guard<std::mutex> lock(infoMutex_);
    const auto found = info_.find(subject);
    if (found == info_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::map<std::string, std::string> VXClient::info() const {
    std::lock_guard<std::mutex> lock(infoMutex_);
    return info_;
}

std::string VXClient::getDevice() const {
    return infoValue("device").value_or("Unknown");
}

std::string VXClient::getOS() const {
    return infoValue("os").value_or("Unknown");
}

std::string VXClient::getApp() const {
    if (auto app = infoValue("app")) {
        return *app;
    }
    if (infoValue("vx")) {
        return "Velorix";
    }
    return "Unknown";
}

std::optional<std::string> VXClient::getVersion() const {
    if (auto version = infoValue("version")) {
        return version;
    }
    return infoValue("vx");
}

bool VXClient::isCompatible() const {
    const auto version = getVersion();
    if (!version) {
        return false;
    }
    const std::string_view text = *version;
    const std::int32_t major = PZNumberText::intValue(text.substr(0, text.find('.')));
    const std::string app = getApp();
    if (app == "Velorix") {
        return major >= 2;
    }
    if (app == "Velorix Lite") {
        return true;
    }
    if (app == "Glimmet") {
        return false;
    }
    if (app == "Quillo") {
        return major > 0;
    }
    return false;
}

void VXClient::checkCompatibility() {
    if (!isCompatible()) {
        auto error = VXError::compatibilityError();
        postToDelegate([error](VXClientDelegate& delegate, const std::shared_ptr<VXClient>& client) {
            delegate.clientReceivedError(client, error);
        });
        socket_->disconnect();
    }
    invalidateInitConnectionTimeout();
}

void VXClient::setCorrectProtocol() {
    if (!protocolSecurityInfoReceived_ || !protocolSecurityRequestReceived_) {
        return;
    }
    invalidateInitConnectionTimeout();
    if (const auto wanted = infoValue("protocol")) {
        if (equalsIgnoringCase(*wanted, "json")) {
            protocol_ = kProtocolJSON;
        } else if (equalsIgnoringCase(*wanted, "xml")) {
            protocol_ = kProtocolXML;
        }
        translator_->setProtocol(protocol_);
        requestsManager_->setProtocol(protocol_);
    }
    if (!isCompatible()) {
        auto error = VXError::compatibilityError();
        send(*error);
        postToDelegate([error](VXClientDelegate& delegate, const std::shared_ptr<VXClient>& client) {
            delegate.clientReceivedError(client, error);
        });
        socket_->disconnect();
        return;
    }
    {
        std::lock_guard<std::mutex> lock(timersMutex_);
        if (checkTimer_) {
            checkTimer_->invalidate();
        }
        checkTimer_ = PZTimer::scheduledTimer(self(), options_.checkInterval, true,
                                              [](VXClient& client, PZTimer&) { client.checkChanging(); });
    }
    conform_ = true;
    postToDelegate([](VXClientDelegate& delegate, const std::shared_ptr<VXClient>& client) {
        delegate.clientIsConform(client);
    });
}

bool VXClient::isControllingAllowed() const {
    return passwordReceived_ && protocolSecurityRequestReceived_ && protocolSecurityInfoReceived_;
}

void VXClient::checkChanging() {
    if (closing_) {
        return;
    }
    auto& snapshot = options_.systemInfo->snapshot();
    if (const auto& remembered = requestsManager_->getLastProcessesSent()) {
        auto current = snapshot.processes();
        if (processListsDiffer(current, *remembered)) {
            auto data = requestsManager_->dataFromUIElementProcesses(current);
            requestsManager_->setLastProcessesSent(std::move(current));
            if (data && !data->empty()) {
                socket_->sendData(*data);
            }
        }
    }
    const float volume = snapshot.volume();
    if (volume != requestsManager_->getLastVolumeValueSent()) {
        requestsManager_->setLastVolumeValueSent(volume);
        const auto data = requestsManager_->dataFromVolumeValue(volume);
        if (!data.empty()) {
            socket_->sendData(data);
        }
    }
    const float brightness = snapshot.brightness();
    if (brightness != requestsManager_->getLastBrightnessValueSent()) {
        requestsManager_->setLastBrightnessValueSent(brightness);
        const auto data = requestsManager_->dataFromBrightnessValue(brightness);
        if (!data.empty()) {
            socket_->sendData(data);
        }
    }
}

std::weak_ptr<VXClientDelegate> VXClient::delegate() const {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    return delegate_;
}

void VXClient::setDelegate(std::weak_ptr<VXClientDelegate> delegate) {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    delegate_ = std::move(delegate);
}

void VXClient::socketDidReceiveData(PZSocket&, const std::vector<std::uint8_t>& data) {
    if (closing_) {
        return;
    }
    try {
        translator_->translateBytes(data.data(), data.size());
    } catch (const std::exception& exception) {
        PZLog(exception.what());
        PZLog("Comunication error");
        disconnect();
    }
}

void VXClient::socketDidCloseReadStream(PZSocket& socket) {
    socket.disconnect();
}

void VXClient::socketError(PZSocket&, const PZError& error) {
    PZLog("VXCLient socket:error: " + error.description());
}

void VXClient::socketDisconnected(PZSocket&) {
    invalidateInitConnectionTimeout();
    invalidateCheckTimer();
    postToDelegate([](VXClientDelegate& delegate, const std::shared_ptr<VXClient>& client) {
        delegate.clientDisconnected(client);
    });
}

void VXClient::translatorDidGetRequest(VXTranslator&, std::shared_ptr<VXRequest> request) {
    if (!request || closing_) {
        return;
    }
    if (!passwordReceived_) {
        if (pendingRequests_.size() >= kMaxPendingRequests) {
            closeHard("more than " + std::to_string(kMaxPendingRequests) +
                      " requests waiting for the password");
            return;
        }
        pendingBytes_ += requestSize(*request);
        if (pendingBytes_ > kMaxPendingBytes) {
            closeHard("requests waiting for the password hold more than 16 MiB");
            return;
        }
        pendingRequests_.push_back(std::move(request));
        return;
    }
    const auto answer = requestsManager_->manageRequest(*request);
    if (!answer.empty()) {
        socket_->sendData(answer);
    }
    if (request->type() == VXRequestFactory::kInfo && request->text() == "os") {
        protocolSecurityRequestReceived_ = true;
        setCorrectProtocol();
    }
}

void VXClient::translatorDidGetInfo(VXTranslator& translator, std::shared_ptr<VXInfo> info) {
    if (!info || !info->subject() || !info->information() || closing_) {
        return;
    }
    const std::string& subject = *info->subject();
    const std::string& information = *info->information();
    {
        std::lock_guard<std::mutex> lock(infoMutex_);
        info_[subject] = information;
    }
    if (subject == "password") {
        const auto configured = configuredPassword();
        if (configured && information == *configured) {
            passwordReceived_ = true;
            streamSink_->open();
            auto pending = std::exchange(pendingRequests_, {});
            pendingBytes_ = 0;
            for (auto& request : pending) {
                translatorDidGetRequest(translator, std::move(request));
            }
        } else if (auto request = requestFactory_->requestForPassword()) {
            send(*request);
        }
    } else if (subject == "device") {
        invalidateInitConnectionTimeout();
        protocolSecurityInfoReceived_ = true;
        setCorrectProtocol();
    }
    postToDelegate([info](VXClientDelegate& delegate, const std::shared_ptr<VXClient>& client) {
        delegate.clientReceivedInfo(client, info);
    });
}

void VXClient::translatorDidGetError(VXTranslator&, std::shared_ptr<VXError>) {
    PZLog("TRANSLATOR did get error");
}

void VXClient::translatorDidGetCommand(VXTranslator&, std::shared_ptr<VXCommand> command) {
    if (!command || closing_ || !isControllingAllowed()) {
        return;
    }
    std::shared_ptr<VXError> result = options_.commandExecute->execute(*command);
    if (result) {
        send(*result);
    } else if (command->type() == "volume") {
        // The phone's own change is not pushed back to it.
        auto& snapshot = options_.systemInfo->snapshot();
        snapshot.invalidateVolume();
        requestsManager_->setLastVolumeValueSent(snapshot.volume());
    }
}

void VXClient::translatorDidExceedLimit(VXTranslator&, VXTranslatorLimit limit, const std::string& reason) {
    closeHard(limitName(limit) + " limit exceeded (" + reason + ")");
}

std::optional<std::string> VXClient::configuredPassword() const {
    return options_.connectionPassword ? options_.connectionPassword() : std::nullopt;
}

void VXClient::invalidateInitConnectionTimeout() {
    std::shared_ptr<PZTimer> timer;
    {
        std::lock_guard<std::mutex> lock(timersMutex_);
        handshakeSettled_ = true;
        timer = std::move(initConnectionTimeout_);
    }
    if (timer) {
        timer->invalidate();
    }
}

void VXClient::invalidateCheckTimer() {
    std::shared_ptr<PZTimer> timer;
    {
        std::lock_guard<std::mutex> lock(timersMutex_);
        timer = std::move(checkTimer_);
    }
    if (timer) {
        timer->invalidate();
    }
}

void VXClient::closeHard(const std::string& reason) {
    if (closing_.exchange(true)) {
        return;
    }
    PZLog("VXClient " + getStringAddress() + " closed: " + reason);
    socket_->hardClose();
}

template <typename F> void VXClient::postToDelegate(F&& fn) {
    // The manager keeps the session in its list until it hears of the disconnection, so a weak
    // reference suffices; it avoids a cycle through this session's own queue.
    postInvocation(delegate(), [client = std::weak_ptr<VXClient>(self()),
                                fn = std::forward<F>(fn)](VXClientDelegate& delegate) mutable {
        if (auto strong = client.lock()) {
            fn(delegate, strong);
        }
    });
}
