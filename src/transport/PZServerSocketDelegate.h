#pragma once

#include <cstdint>
#include <vector>

class PZServerSocket;

// What a PZServerSocket tells its owner, on the thread whose run loop carries the server socket's source.
class PZServerSocketDelegate {
public:
    virtual ~PZServerSocketDelegate() = default;

    // A connection was accepted: the receiver owns descriptor (close-on-exec) from now on; address is the
    // peer's socket address as accept returned it.
    virtual void serverSocketAcceptedAddress(PZServerSocket& serverSocket, int descriptor,
                                             const std::vector<std::uint8_t>& address) = 0;
    // The listening descriptor was closed.
    virtual void serverSocketClosed(PZServerSocket& serverSocket) = 0;
};
