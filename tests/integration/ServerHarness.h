#pragma once

#include "phone/VXPhone.h"
#include "session/VXClientOptions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

class FakeSystem;
class PZRunLoop;
class PZServerSocket;
class VXClient;
class VXClientManager;

// The server in this process: a server socket on a free loopback port, a client manager with sessions
// over a FakeSystem, and a thread standing for the main run loop, where the manager's events are recorded.
class ServerHarness {
public:
    // One event of the manager, as the application hears it.
    struct Event {
        enum class Kind { Accepted, Connected, Info, Error, Disconnected };
        Kind kind;
        std::shared_ptr<VXClient> client;
        std::string detail;            // Info: "subject=information"; Error: the message
        bool listedAtDelivery = false; // whether manager.clients() still held the client at delivery
    };
    struct Options {
        std::chrono::steady_clock::duration handshakeTimeout = std::chrono::seconds(120);
        std::chrono::steady_clock::duration checkInterval = std::chrono::milliseconds(50);
        std::optional<std::string> password;
    };

    // The temporary folder set as HOME and XDG folders, once per process.
    static const std::string& testHome();
    static std::unique_ptr<ServerHarness> start(Options options);
    static std::unique_ptr<ServerHarness> start() { return start(Options{}); }
    // Closes the server socket and waits for the sessions and the manager's thread to end.
    ~ServerHarness();

    int port() const;
    FakeSystem& system() { return *system_; }
    const std::shared_ptr<VXClientManager>& manager() const { return manager_; }
    std::vector<Event> events() const;
    // Waits until condition holds for the events (checked at each event); false on timeout.
    bool waitFor(const std::function<bool(const std::vector<Event>&)>& condition,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) const;

private:
    class Recorder;
    std::unique_ptr<FakeSystem> system_;
    std::shared_ptr<PZServerSocket> serverSocket_;
    std::shared_ptr<VXClientManager> manager_;
    std::shared_ptr<PZRunLoop> mainLoop_;
    std::thread mainThread_;
    std::shared_ptr<Recorder> recorder_;
};

// Phones that connect to the harness and answer the handshake step by step.
namespace servertest {

using Kind = ServerHarness::Event::Kind;
using std::chrono::milliseconds;

// A generous bound for anything the server should do promptly.
inline constexpr milliseconds kPatience{10000};

inline std::size_t count(const std::vector<ServerHarness::Event>& events, Kind kind,
                         const std::string& detail = {}) {
    return static_cast<std::size_t>(std::count_if(events.begin(), events.end(), [&](const auto& event) {
        return event.kind == kind && (detail.empty() || event.detail == detail);
    }));
}
inline bool hasEvent(const std::vector<ServerHarness::Event>& events, Kind kind,
                     const std::string& detail = {}) {
    return count(events, kind, detail) > 0;
}

VXPhone::Identity identity(VXPhone::Encoding encoding = VXPhone::Encoding::JSON, std::string app = "Velorix",
                           std::string version = "3.0");

inline std::unique_ptr<VXPhone> connectPhone(const ServerHarness& server) {
    return VXPhone::connect("127.0.0.1", server.port());
}

// Connects a phone and completes its handshake.
inline std::unique_ptr<VXPhone> conformPhone(const ServerHarness& server,
                                             const VXPhone::Identity& who = identity()) {
    auto phone = connectPhone(server);
    phone->handshake(who);
    return phone;
}

// Answers the identity requests (not the password) in XML as the phone app does; the "os" request and the
// "device" answer only when settle is true. Returns the other messages of the server.
std::vector<VXPhoneMessage> answerIdentity(VXPhone& phone, const VXPhone::Identity& who, bool settle = true);

// True for the messages the server sends by itself (volume, brightness, process list).
bool isPush(const VXPhoneMessage& message);

// Sends a request and returns the first message that is not a push, or nothing within kPatience.
std::optional<VXPhoneMessage> ask(VXPhone& phone, const std::string& type,
                                  std::optional<std::string> text = {},
                                  std::optional<PZDictionary> arguments = {});

} // namespace servertest
