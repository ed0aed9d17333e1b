#pragma once

#include "protocol/VXTranslatorDelegate.h"
#include "requests/VXRequestsClient.h"
#include "session/VXClientDelegate.h"
#include "session/VXClientOptions.h"
#include "transport/PZBackgroundObject.h"
#include "transport/PZSocketDelegate.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class PZRunLoop;
class PZSocket;
class PZTimer;
class VXRequest;
class VXRequestFactory;
class VXRequestsManager;
class VXSessionStreamSink;
class VXTranslationProtocol;
class VXTranslator;

// The server's side of one connected phone. It owns the connection, a translator turning received
// bytes into messages, a request dispatcher and a request factory, and uses the shared command
// executor. It runs the handshake (password, identity, encoding), decides whether the phone
// application is compatible, routes requests and commands, and pushes changes of the process list,
// volume and brightness once the session is conform.
//
// Threads: socket deliveries (translation, requests, commands, the change push) run on the session's
// own socket thread, started at creation; start(), the handshake timer and the deliveries to the
// delegate run where the session's source is scheduled (the client manager's thread).
class VXClient : public PZBackgroundObject,
                 public PZSocketDelegate,
                 public VXTranslatorDelegate,
                 public VXRequestsClient {
public:
    using Address = std::vector<std::uint8_t>;

    // protocol(): the XML form (the value of every new session).
    static constexpr std::uint32_t kProtocolXML = 0;
    // protocol(): the JSON form.
    static constexpr std::uint32_t kProtocolJSON = 1;
    // Most requests that may wait for the password; one more closes the session.
    static constexpr std::size_t kMaxPendingRequests = 256;
    // Most bytes the requests waiting for the password may hold together; more closes the session.
    static constexpr std::size_t kMaxPendingBytes = std::size_t{16} << 20;

    // A session over an accepted descriptor (address: the peer's, or none to ask the descriptor). Its
    // socket thread runs at once; the caller sets the delegate, schedules the session and calls start().
    static std::shared_ptr<VXClient> clientWithSocketNativeHandleAddress(int descriptor,
                                                                         std::optional<Address> address,
                                                                         VXClientOptions options = {});
    ~VXClient() override;
    VXClient(const VXClient&) = delete;
    VXClient& operator=(const VXClient&) = delete;

    // Starts the connection's threads, sends the handshake requests and arms the handshake timer on the
    // calling thread's run loop.
    void start();
    // Whether the connection is still open.
    bool connected() const;
    // The phone's dotted-quad address, or "Unknown".
    std::string getStringAddress() const;
    // Orderly end: what is queued is still written, then the connection closes.
    void disconnect();
    // Hard end: both directions shut down at once and what is queued is dropped.
    void close();
    // "address app version os device".
    std::string description() const;
    // Sends message in the session's wire form (an empty encoding sends nothing; any thread).
    void send(const VXTranslationProtocol& message);

    // The phone's device name, else "Unknown".
    std::string getDevice() const;
    // The phone's operating system, else "Unknown".
    std::string getOS() const;
    // The phone application's name, "Velorix" when it only told its "vx" version, else "Unknown".
    std::string getApp() const;
    // The phone application's version, else its "vx" version, else nothing.
    std::optional<std::string> getVersion() const override;
    // Whether the phone application can be served.
    bool isCompatible() const;
    // The handshake timer fired: an incompatible phone is reported and disconnected.
    void checkCompatibility();
    // Once the phone sent its "device" info and asked for "os": settles the encoding, then rejects an
    // incompatible phone or makes the session conform.
    void setCorrectProtocol();
    // Whether commands are executed: password satisfied and both handshake steps done.
    bool isControllingAllowed() const;
    // The change push: sends the process list, volume and brightness when they changed.
    void checkChanging();

    // Everything the phone told about itself, by info subject (a copy).
    std::map<std::string, std::string> info() const;
    // The wire form used for sending: 0 XML, 1 JSON.
    std::uint32_t protocol() const noexcept { return protocol_.load(); }
    // Whether the connection password is satisfied.
    bool passwordReceived() const noexcept { return passwordReceived_.load(); }
    // Whether the session became conform (compatible, change push running).
    bool isConform() const noexcept { return conform_.load(); }
    // The delegate (never owned).
    std::weak_ptr<VXClientDelegate> delegate() const;
    // Sets the delegate (never owned).
    void setDelegate(std::weak_ptr<VXClientDelegate> delegate);

    // PZSocketDelegate: received bytes go to the translator.
    void socketDidReceiveData(PZSocket& socket, const std::vector<std::uint8_t>& data) override;
    // PZSocketDelegate: the phone closed its side; the server finishes writing and closes too.
    void socketDidCloseReadStream(PZSocket& socket) override;
    // PZSocketDelegate: only logged.
    void socketError(PZSocket& socket, const PZError& error) override;
    // PZSocketDelegate: the timers stop and the delegate hears of it.
    void socketDisconnected(PZSocket& socket) override;

    // VXTranslatorDelegate: a request, held until the password is satisfied, then answered.
    void translatorDidGetRequest(VXTranslator& translator, std::shared_ptr<VXRequest> request) override;
    // VXTranslatorDelegate: an info of the handshake (password, identity, encoding).
    void translatorDidGetInfo(VXTranslator& translator, std::shared_ptr<VXInfo> info) override;
    // VXTranslatorDelegate: an error from the phone, only logged.
    void translatorDidGetError(VXTranslator& translator, std::shared_ptr<VXError> error) override;
    // VXTranslatorDelegate: a command, executed once controlling is allowed, else dropped.
    void translatorDidGetCommand(VXTranslator& translator, std::shared_ptr<VXCommand> command) override;
    // VXTranslatorDelegate: the phone went beyond a limit; the session is closed hard.
    void translatorDidExceedLimit(VXTranslator& translator, VXTranslatorLimit limit,
                                  const std::string& reason) override;

private:
    struct Key {};

public:
    // Made by clientWithSocketNativeHandleAddress only.
    VXClient(Key, int descriptor, std::optional<Address> address, VXClientOptions options);

private:
    static void socketHandler(const std::shared_ptr<PZSocket>& socket);
    std::shared_ptr<VXClient> self();
    std::optional<std::string> infoValue(const std::string& subject) const;
    std::optional<std::string> configuredPassword() const;
    void invalidateInitConnectionTimeout();
    void invalidateCheckTimer();
    void closeHard(const std::string& reason);
    template <typename F> void postToDelegate(F&& fn);

    std::shared_ptr<PZSocket> socket_;
    VXClientOptions options_;

    mutable std::mutex timersMutex_; // guards the two timer fields and handshakeSettled_
    std::shared_ptr<PZTimer> initConnectionTimeout_;
    std::shared_ptr<PZTimer> checkTimer_;
    bool handshakeSettled_ = false;

    std::atomic<bool> protocolSecurityRequestReceived_{false};
    std::atomic<bool> protocolSecurityInfoReceived_{false};
    std::atomic<bool> passwordReceived_{false};
    std::atomic<bool> conform_{false};
    std::atomic<bool> closing_{false};
    std::atomic<std::uint32_t> protocol_{kProtocolXML};

    // Socket thread only.
    std::vector<std::shared_ptr<VXRequest>> pendingRequests_;
    std::size_t pendingBytes_ = 0;
    std::shared_ptr<VXSessionStreamSink> streamSink_;
    std::unique_ptr<VXTranslator> translator_;
    std::unique_ptr<VXRequestsManager> requestsManager_;
    std::unique_ptr<VXRequestFactory> requestFactory_;

    mutable std::mutex infoMutex_;
    std::map<std::string, std::string> info_;

    mutable std::mutex delegateMutex_;
    std::weak_ptr<VXClientDelegate> delegate_;
};
