#pragma once

#include <memory>

class VXClient;
class VXClientManager;
class VXError;
class VXInfo;

// What a VXClientManager tells the application, on the thread whose run loop carries the manager's
// source (the main run loop), in the order the manager posted them. The capital L is part of the name.
class VXCLientManagerDelegate {
public:
    virtual ~VXCLientManagerDelegate() = default;

    // A connection was accepted and its session started.
    virtual void clientManagerNewClientAccepted(VXClientManager& manager,
                                                const std::shared_ptr<VXClient>& client) = 0;
    // The session's handshake completed and the phone application is compatible.
    virtual void clientManagerNewClientConnected(VXClientManager& manager,
                                                 const std::shared_ptr<VXClient>& client) = 0;
    // The session received an info from its phone.
    virtual void clientManagerReceivedInfoFromClient(VXClientManager& manager,
                                                     const std::shared_ptr<VXInfo>& info,
                                                     const std::shared_ptr<VXClient>& client) = 0;
    // The session found its phone application incompatible.
    virtual void clientManagerReceivedErrorFromClient(VXClientManager& manager,
                                                      const std::shared_ptr<VXError>& error,
                                                      const std::shared_ptr<VXClient>& client) = 0;
    // The session's connection is gone and it has left the manager's list.
    virtual void clientManagerClientDisconnected(VXClientManager& manager,
                                                 const std::shared_ptr<VXClient>& client) = 0;
};
