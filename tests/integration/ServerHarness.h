#pragma once

#include "session/VXClientOptions.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

class FakeSystem;
class PZRunLoop;
class PZServerSocket;
class VXClient;
class VXClientManager;

// The server of the tests, in this process: a server socket on a free loopback port, a client manager
// on its thread with sessions over a FakeSystem, and a thread standing for the main run loop, where
// the manager's events are recorded. The process's HOME and XDG folders are a temporary folder.
class ServerHarness {
public:
    using Milliseconds = std::chrono::milliseconds;

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

    // Sets HOME, XDG_CONFIG_HOME, XDG_DATA_HOME and XDG_CACHE_HOME to a fresh temporary folder once per
    // process; returns it.
    static const std::string& testHome();

    // A listening server with the given options.
    static std::unique_ptr<ServerHarness> start(Options options);
    static std::unique_ptr<ServerHarness> start() { return start(Options{}); }
    // Closes the server socket and waits for the sessions and the manager's thread to end.
    ~ServerHarness();

    // The port the server listens on.
    int port() const;
    // The fake computer the sessions see.
    FakeSystem& system() { return *system_; }
    // The manager.
    const std::shared_ptr<VXClientManager>& manager() const { return manager_; }
    // Every event so far.
    std::vector<Event> events() const;
    // Waits until condition holds for the events (checked at each event); false on timeout.
    bool waitFor(const std::function<bool(const std::vector<Event>&)>& condition,
                 Milliseconds timeout = Milliseconds(10000)) const;
    // The number of events of kind.
    static std::size_t count(const std::vector<Event>& events, Event::Kind kind);

    ServerHarness() = default;
    ServerHarness(const ServerHarness&) = delete;
    ServerHarness& operator=(const ServerHarness&) = delete;

private:
    class Recorder;

    std::unique_ptr<FakeSystem> system_;
    std::shared_ptr<PZServerSocket> serverSocket_;
    std::shared_ptr<VXClientManager> manager_;
    std::shared_ptr<PZRunLoop> mainLoop_;
    std::thread mainThread_;
    std::shared_ptr<Recorder> recorder_;
};
