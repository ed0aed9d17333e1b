#pragma once

#include <memory>
#include <optional>
#include <string>

#include "session/VXCLientManagerDelegate.h"
#include "session/VXClientOptions.h"

class PZNetService;
class PZServerSocket;
class VXClientManager;
class VXNotificationPoster;

// The application's controller and the owner of the server: at launch it applies the first-run
// settings, hands the keyboard method to the command executor and starts the listening socket, the
// client manager and the DNS-SD advertisement. It receives the client manager's events on the main
// thread and tells the user through its notification poster. Lives in a std::shared_ptr (it is the
// manager's delegate, held weakly); every operation runs on the main thread, whose run loop must run.
class VXHManager : public VXCLientManagerDelegate, public std::enable_shared_from_this<VXHManager> {
public:
    // A stopped controller. Sessions are built with clientOptions (empty members: the application's
    // own services); notifications and alerts go to notifier.
    static std::shared_ptr<VXHManager> create(std::shared_ptr<VXNotificationPoster> notifier,
                                              VXClientOptions clientOptions = {});
    // Stops the server.
    ~VXHManager() override;
    VXHManager(const VXHManager&) = delete;
    VXHManager& operator=(const VXHManager&) = delete;

    // The launch: first-run settings, the stored keyboard method to the executor, then start().
    void applicationDidFinishLaunching();
    // The end of the application: terminate().
    void applicationWillTerminate();

    // Starts serving on the configured port unless something of the server exists already. A port that
    // cannot be bound is reported (notification and alert) and leaves the controller stopped.
    void start();
    // Stops serving: the advertisement, the listening socket and the client manager go; start() may
    // follow again.
    void terminate();

    // The listening socket's port while it is bound, otherwise 0.
    int getSocketPort() const;
    // The port start() binds: the override when set, else the stored "socket port".
    int configuredPort() const;
    // A port used instead of the stored one (never written to the store); nothing: the stored one.
    void setPortOverride(std::optional<int> port) { portOverride_ = port; }

    // The listening socket, or null while stopped.
    const std::shared_ptr<PZServerSocket>& serverSocket() const { return serverSocket_; }
    // The client manager, or null while stopped.
    const std::shared_ptr<VXClientManager>& clientManager() const { return clientManager_; }
    // The DNS-SD advertisement, or null while stopped.
    const PZNetService* bonjourService() const { return bonjourService_.get(); }

    // VXCLientManagerDelegate: "New connection request from ADDRESS".
    void clientManagerNewClientAccepted(VXClientManager& manager,
                                        const std::shared_ptr<VXClient>& client) override;
    // VXCLientManagerDelegate: "New client connected: DEVICE".
    void clientManagerNewClientConnected(VXClientManager& manager,
                                         const std::shared_ptr<VXClient>& client) override;
    // VXCLientManagerDelegate: nothing to tell the user.
    void clientManagerReceivedInfoFromClient(VXClientManager& manager, const std::shared_ptr<VXInfo>& info,
                                             const std::shared_ptr<VXClient>& client) override;
    // VXCLientManagerDelegate: "Error occured with client ADDRESS".
    void clientManagerReceivedErrorFromClient(VXClientManager& manager, const std::shared_ptr<VXError>& error,
                                              const std::shared_ptr<VXClient>& client) override;
    // VXCLientManagerDelegate: "DEVICE with IP ADDRESS disconnected".
    void clientManagerClientDisconnected(VXClientManager& manager,
                                         const std::shared_ptr<VXClient>& client) override;

private:
    struct Key {};

public:
    // Made by create() only.
    VXHManager(Key, std::shared_ptr<VXNotificationPoster> notifier, VXClientOptions clientOptions);

private:
    void notify(const std::string& title, const std::string& description, const std::string& name);

    std::shared_ptr<PZServerSocket> serverSocket_;
    std::unique_ptr<PZNetService> bonjourService_;
    std::shared_ptr<VXClientManager> clientManager_;

    std::shared_ptr<VXNotificationPoster> notifier_;
    VXClientOptions clientOptions_;
    std::optional<int> portOverride_;
};
