#pragma once

#include "support/LogCapture.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"
#include "transport/PZServerSocketDelegate.h"
#include "transport/PZSocket.h"
#include "transport/PZThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

// Runs the calling thread's run loop until done() holds or the time is up; returns done().
inline bool runLoopUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = 10s) {
    const auto deadline = PZRunLoop::Clock::now() + timeout;
    auto loop = PZRunLoop::current();
    while (!done() && PZRunLoop::Clock::now() < deadline) {
        loop->runOnce(5ms);
    }
    return done();
}

// Waits until every thread started through PZThread has ended (tests end with no worker left).
inline bool waitForThreads(std::chrono::milliseconds timeout = 10s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (PZThread::runningCount() > 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    return PZThread::runningCount() == 0;
}

// A listening loopback socket made with plain POSIX calls, the test's side of a connection.
class RawListener {
public:
    RawListener() {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(0);
        EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(fd_, 16), 0);
        socklen_t length = sizeof address;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~RawListener() { ::close(fd_); }
    RawListener(const RawListener&) = delete;
    RawListener& operator=(const RawListener&) = delete;

    static sockaddr_in loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    static PZSocket::Address addressData(std::uint16_t port) {
        const sockaddr_in address = loopback(port);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(&address);
        return PZSocket::Address(bytes, bytes + sizeof address);
    }
    static int connectTo(std::uint16_t port) {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(port);
        EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return fd;
    }

    std::uint16_t port() const { return port_; }
    int accept() { return ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC); }
    // A connected pair: {the client's end, the accepted end}.
    std::pair<int, int> connectedPair() {
        const int client = connectTo(port_);
        return {client, accept()};
    }

private:
    int fd_ = -1;
    std::uint16_t port_ = 0;
};

// Reads from fd until the peer shuts its side down (or an error); returns everything read.
inline std::vector<std::uint8_t> readUntilEnd(int fd) {
    std::vector<std::uint8_t> all;
    std::uint8_t buffer[4096];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count <= 0) {
            return all;
        }
        all.insert(all.end(), buffer, buffer + count);
    }
}

// Records what a PZSocket tells its delegate. Messages arrive on the test's thread (its run loop).
class RecordingSocketDelegate : public PZSocketDelegate {
public:
    void socketDidCloseReadStream(PZSocket& socket) override {
        events.push_back("closeRead");
        if (disconnectOnReadEnd) {
            socket.disconnect(); // as a session does when the phone goes away
        }
    }
    void socketError(PZSocket&, const PZError& error) override {
        events.push_back("error");
        errors.push_back(error);
    }
    void socketConnected(PZSocket&) override { events.push_back("connected"); }
    void socketDisconnected(PZSocket&) override { events.push_back("disconnected"); }
    void socketDidReceiveData(PZSocket&, const std::vector<std::uint8_t>& data) override {
        chunkSizes.push_back(data.size());
        received.insert(received.end(), data.begin(), data.end());
    }

    bool has(const std::string& event) const {
        return std::find(events.begin(), events.end(), event) != events.end();
    }
    std::size_t countOf(const std::string& event) const {
        return static_cast<std::size_t>(std::count(events.begin(), events.end(), event));
    }

    bool disconnectOnReadEnd = true;
    std::vector<std::string> events;
    std::vector<PZError> errors;
    std::vector<std::uint8_t> received;
    std::vector<std::size_t> chunkSizes;
};

// Records what a PZServerSocket tells its delegate; closes the descriptors nobody took over.
struct Accepted {
    int descriptor;
    std::vector<std::uint8_t> address;
};

class RecordingServerDelegate : public PZServerSocketDelegate {
public:
    ~RecordingServerDelegate() override {
        for (const auto& a : accepted) {
            ::close(a.descriptor);
        }
    }
    void serverSocketAcceptedAddress(PZServerSocket&, int descriptor,
                                     const std::vector<std::uint8_t>& address) override {
        accepted.push_back({descriptor, address});
    }
    void serverSocketClosed(PZServerSocket&) override { ++closed; }

    std::vector<Accepted> accepted;
    int closed = 0;
};

// A server socket on the test thread's run loop; its accepting thread must end with it.
class PZServerSocketTest : public ::testing::Test {
protected:
    void SetUp() override {
        server_->setDelegate(delegate_);
        server_->scheduleInRunLoop(PZRunLoop::current());
    }
    void TearDown() override {
        server_.reset();
        EXPECT_TRUE(waitForThreads()) << "the accepting thread did not end";
    }

    std::shared_ptr<RecordingServerDelegate> delegate_ = std::make_shared<RecordingServerDelegate>();
    std::shared_ptr<PZServerSocket> server_ = std::make_shared<PZServerSocket>();
};
