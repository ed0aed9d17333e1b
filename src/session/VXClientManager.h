#pragma once

#include "session/VXCLientManagerDelegate.h"
#include "session/VXClientDelegate.h"
#include "session/VXClientOptions.h"
#include "transport/PZBackgroundObject.h"
#include "transport/PZServerSocketDelegate.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

class PZServerSocket;
class VXClient;

// Owns the server's client sessions. As the server socket's delegate it makes, starts and keeps one
// VXClient per accepted connection; it relays the sessions' events to its own delegate (the
// application) through its queue, whose source the application schedules on the main run loop.
// Its thread ("monitorClients") handles the deliveries of the server socket and of every session;
// it ends once the server socket is closed and the last session has gone.
class VXClientManager : public PZBackgroundObject, public PZServerSocketDelegate, public VXClientDelegate {
public:
    // A manager around serverSocket (it becomes its delegate); every session is built with options.
    static std::shared_ptr<VXClientManager>
    clientManagerWithServerSocket(std::shared_ptr<PZServerSocket> serverSocket, VXClientOptions options = {});
    // Disconnects every remaining session and leaves the server socket.
    ~VXClientManager() override;
    VXClientManager(const VXClientManager&) = delete;
    VXClientManager& operator=(const VXClientManager&) = delete;

    // Starts the manager's thread unless it runs (call once).
    void start();
    // Whether the manager's thread runs.
    bool started() const noexcept { return started_.load(); }
    // The live sessions in acceptance order (a copy; any thread).
    std::vector<std::shared_ptr<VXClient>> clients() const;
    // The server socket.
    const std::shared_ptr<PZServerSocket>& serverSocket() const noexcept { return socket_; }
    // The delegate (never owned).
    std::weak_ptr<VXCLientManagerDelegate> delegate() const;
    // Sets the delegate (never owned).
    void setDelegate(std::weak_ptr<VXCLientManagerDelegate> delegate);

    // PZServerSocketDelegate: makes, schedules and starts a session for the accepted descriptor.
    void serverSocketAcceptedAddress(PZServerSocket& serverSocket, int descriptor,
                                     const std::vector<std::uint8_t>& address) override;
    // PZServerSocketDelegate: every session is disconnected (orderly).
    void serverSocketClosed(PZServerSocket& serverSocket) override;

    // VXClientDelegate: relayed as clientManagerNewClientConnected.
    void clientIsConform(const std::shared_ptr<VXClient>& client) override;
    // VXClientDelegate: relayed as clientManagerReceivedInfoFromClient.
    void clientReceivedInfo(const std::shared_ptr<VXClient>& client,
                            const std::shared_ptr<VXInfo>& info) override;
    // VXClientDelegate: relayed as clientManagerReceivedErrorFromClient.
    void clientReceivedError(const std::shared_ptr<VXClient>& client,
                             const std::shared_ptr<VXError>& error) override;
    // VXClientDelegate: the session leaves the list, then clientManagerClientDisconnected is relayed.
    void clientDisconnected(const std::shared_ptr<VXClient>& client) override;

private:
    struct Key {};

public:
    // Made by clientManagerWithServerSocket only.
    VXClientManager(Key, std::shared_ptr<PZServerSocket> serverSocket, VXClientOptions options);

private:
    void monitorClients();
    template <typename F> void postToDelegate(F&& fn);

    std::atomic<bool> started_{false};
    std::shared_ptr<PZServerSocket> socket_;
    VXClientOptions options_;
    mutable std::mutex monitor_; // guards clients_
    std::vector<std::shared_ptr<VXClient>> clients_;
    mutable std::mutex delegateMutex_;
    std::weak_ptr<VXCLientManagerDelegate> delegate_;
};
