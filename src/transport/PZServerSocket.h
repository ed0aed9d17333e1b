#pragma once

#include "transport/PZBackgroundObject.h"
#include "transport/PZServerSocketDelegate.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

// The listening TCP endpoint (IPv4, every local address). It accepts on a thread of its own and hands each
// accepted descriptor to the delegate on the thread whose run loop carries this object's source.
// Create it with std::make_shared.
class PZServerSocket : public PZBackgroundObject {
public:
    // A server socket that does not listen yet.
    PZServerSocket();
    // Clears the delegate, then closes (so nothing is delivered from teardown).
    ~PZServerSocket() override;

    // Binds every local IPv4 address on port and listens, then starts the accepting thread; throws
    // PZException "PZServerSocket startOnPort:" on any failure.
    void startOnPort(int port);
    // Whether the socket listens.
    bool bound() const;
    // The locally bound port, or 0.
    int getPort() const;
    // Stops listening: the accepting thread ends, the port is free again, the delegate hears
    // serverSocketClosed and the object is invalidated after it.
    void close();

    // The descriptor: -1 when none, 0 after a failed start.
    int tcpSocket() const { return tcpSocket_.load(); }
    // The delegate (never owned).
    std::weak_ptr<PZServerSocketDelegate> delegate() const;
    // Sets the delegate (never owned).
    void setDelegate(std::weak_ptr<PZServerSocketDelegate> delegate);

private:
    struct AcceptState;

    static void accepting(std::weak_ptr<PZServerSocket> weakSelf, std::shared_ptr<AcceptState> state);
    void postAccepted(int descriptor, std::vector<std::uint8_t> address);

    mutable std::mutex delegateMutex_;
    std::weak_ptr<PZServerSocketDelegate> delegate_;
    std::atomic<int> tcpSocket_{-1};
    std::atomic<bool> bound_{false};

    mutable std::mutex monitor_;               // guards the operations and acceptState_
    std::shared_ptr<AcceptState> acceptState_; // shared with the accepting thread while it runs
};
