#pragma once

#include "transport/PZError.h"

#include <cstdint>
#include <vector>

class PZSocket;

// What a PZSocket tells its owner. Every message arrives on the thread whose run loop carries the
// socket's source, never on the socket's own threads.
class PZSocketDelegate {
public:
    virtual ~PZSocketDelegate() = default;

    // The reader thread has ended.
    virtual void socketDidCloseReadStream(PZSocket& socket) = 0;
    // A connect, read or write failed.
    virtual void socketError(PZSocket& socket, const PZError& error) = 0;
    // An outgoing connect succeeded.
    virtual void socketConnected(PZSocket& socket) { (void)socket; }
    // The socket was closed (both directions ended, or close() was called).
    virtual void socketDisconnected(PZSocket& socket) { (void)socket; }
    // A chunk of bytes was read, exactly as one read returned it.
    virtual void socketDidReceiveData(PZSocket& socket, const std::vector<std::uint8_t>& data) {
        (void)socket;
        (void)data;
    }
};
