#pragma once

#include <memory>

class VXClient;
class VXError;
class VXInfo;

// What a VXClient tells its owner (the client manager), on the thread whose run loop carries the
// session's source. Every message is optional.
class VXClientDelegate {
public:
    virtual ~VXClientDelegate() = default;

    // The handshake completed and the phone application is compatible.
    virtual void clientIsConform(const std::shared_ptr<VXClient>& client) { (void)client; }
    // An info arrived from the phone (every one, the password included).
    virtual void clientReceivedInfo(const std::shared_ptr<VXClient>& client,
                                    const std::shared_ptr<VXInfo>& info) {
        (void)client;
        (void)info;
    }
    // The phone application is not compatible.
    virtual void clientReceivedError(const std::shared_ptr<VXClient>& client,
                                     const std::shared_ptr<VXError>& error) {
        (void)client;
        (void)error;
    }
    // The connection is gone.
    virtual void clientDisconnected(const std::shared_ptr<VXClient>& client) { (void)client; }
};
