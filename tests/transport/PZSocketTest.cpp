#include "transport/PZSocket.h"
#include "transport/PZException.h"

#include "TransportTestSupport.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <netinet/tcp.h>

namespace {

const std::string kReadEnd = "PZSocket thread 1 ------------------------- read";
const std::string kWriteEnd = "PZSocket thread 2 ------------------------- write";

std::vector<std::uint8_t> pattern(std::size_t count) {
    std::vector<std::uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::uint8_t>((i * 31) ^ (i >> 8));
    }
    return bytes;
}

std::vector<std::uint8_t> text(const std::string& s) {
    return {s.begin(), s.end()};
}

// A started socket around descriptor, delivering to the calling thread.
std::shared_ptr<PZSocket> adopt(int descriptor, const std::shared_ptr<RecordingSocketDelegate>& delegate,
                                std::optional<PZSocket::Address> address = std::nullopt) {
    auto socket = std::make_shared<PZSocket>(descriptor, std::move(address));
    socket->setDelegate(delegate);
    socket->scheduleInRunLoop(PZRunLoop::current());
    socket->start();
    return socket;
}

class PZSocketTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(waitForThreads()) << "a socket thread did not end"; }
    // A socket not connected yet, delivering to the calling thread.
    std::shared_ptr<PZSocket> unconnected() {
        auto socket = std::make_shared<PZSocket>();
        socket->setDelegate(delegate_);
        socket->scheduleInRunLoop(PZRunLoop::current());
        return socket;
    }

    RawListener listener_;
    std::shared_ptr<RecordingSocketDelegate> delegate_ = std::make_shared<RecordingSocketDelegate>();
};

} // namespace

TEST_F(PZSocketTest, receive_ownerNotKeepingUp_readerWaitsAndNothingIsLost) {
    auto [peer, accepted] = listener_.connectedPair();
    auto socket = adopt(accepted, delegate_);
    // The owner's loop does not run: a flooding peer must soon be held back by TCP, not by memory.
    ::fcntl(peer, F_SETFL, O_NONBLOCK);
    const auto payload = pattern(64 << 20);
    std::size_t sent = 0;
    for (int idle = 0; idle < 50 && sent < payload.size();) {
        const ssize_t n = ::send(peer, payload.data() + sent, payload.size() - sent, MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
            idle = 0;
        } else {
            ++idle;
            std::this_thread::sleep_for(2ms);
        }
    }
    EXPECT_LT(sent, 32u << 20);
    // Once the owner takes the data, the rest flows, in order and complete.
    ::fcntl(peer, F_SETFL, 0);
    std::thread rest([&, peer = peer] {
        ::send(peer, payload.data() + sent, payload.size() - sent, MSG_NOSIGNAL);
        ::shutdown(peer, SHUT_WR);
    });
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("closeRead"); }, 60s));
    rest.join();
    EXPECT_EQ(delegate_->received.size(), payload.size());
    EXPECT_TRUE(delegate_->received == payload);
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("disconnected"); }));
    ::close(peer);
}

TEST_F(PZSocketTest, disconnect_5000BytesQueued_allWrittenInChunksOfAtMost1024) {
    // A packet socket pair keeps each send() apart, so the chunks the writer makes can be seen.
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair), 0);
    auto socket = adopt(pair[0], delegate_, RawListener::addressData(1));
    const auto payload = pattern(5000);
    socket->sendData(payload);
    socket->disconnect();
    socket->sendData(text("after disconnect"));

    std::vector<std::uint8_t> received;
    std::vector<ssize_t> chunks;
    std::uint8_t buffer[4096];
    for (ssize_t n; (n = ::recv(pair[1], buffer, sizeof buffer, 0)) > 0;) {
        chunks.push_back(n);
        received.insert(received.end(), buffer, buffer + n);
    }
    EXPECT_EQ(received, payload);
    EXPECT_GE(chunks.size(), 5u);
    for (auto size : chunks) {
        EXPECT_LE(size, 1024);
    }
    ::close(pair[1]);
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("disconnected"); }));
}

TEST_F(PZSocketTest, adoptedDescriptor_peerAddressNoDelayKeepAliveAndClosedAtOnceIfNeverStarted) {
    EXPECT_EQ(std::make_shared<PZSocket>()->getRemoteStringAddress(), "Unknown");
    auto [peer, accepted] = listener_.connectedPair();
    auto socket = std::make_shared<PZSocket>(accepted, std::nullopt);
    EXPECT_EQ(socket->getRemoteStringAddress(), "127.0.0.1");
    ASSERT_TRUE(socket->serverAddress().has_value());
    EXPECT_EQ(socket->serverAddress()->size(), sizeof(sockaddr_in));
    // Small writes are not held back, and a vanished peer is found out.
    for (const auto& [level, option] :
         {std::pair<int, int>{IPPROTO_TCP, TCP_NODELAY}, std::pair<int, int>{SOL_SOCKET, SO_KEEPALIVE}}) {
        int value = 0;
        socklen_t length = sizeof value;
        ASSERT_EQ(::getsockopt(accepted, level, option, &value, &length), 0);
        EXPECT_NE(value, 0) << option;
    }
    socket->close(); // never started: the descriptor goes at once
    EXPECT_EQ(::fcntl(accepted, F_GETFD), -1);
    ::close(peer);
}

TEST_F(PZSocketTest, connectToHostPort_nameOrUnresolvable) {
    auto socket = unconnected();
    const auto failed = socket->connectToHostPort("", listener_.port());
    ASSERT_TRUE(failed.has_value());
    EXPECT_EQ(failed->domain(), "PZSocket");
    EXPECT_EQ(failed->code(), 1);
    EXPECT_EQ(failed->description(), PZSocket::kImpossibleToResolveHostNameSocketErrorMessage);

    ASSERT_FALSE(socket->connectToHostPort("localhost", listener_.port()).has_value());
    const int peer = listener_.accept();
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("connected"); }));
    socket->hardClose();
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("disconnected"); }));
    ::close(peer);

    auto invalid = std::make_shared<PZSocket>();
    invalid->invalidate();
    const auto error = invalid->connectToAddress(RawListener::addressData(listener_.port()));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(*error, PZError("PZSocket", 1, PZSocket::kConnectionOnInvalidSocketErrorMessage));
    try {
        invalid->start();
        FAIL() << "start on an invalid socket must throw";
    } catch (const PZException& e) {
        EXPECT_EQ(e.name(), "NSInternalInconsistencyException");
        EXPECT_EQ(e.reason(), "PZSocket start");
    }
}

TEST_F(PZSocketTest, connectToNetService_threeRefusedAddressesOrNone_oneErrorCarryingTheLast) {
    std::vector<PZSocket::Address> addresses;
    std::uint16_t lastPort = 0;
    for (int i = 0; i < 3; ++i) {
        RawListener closedSoon; // its port refuses once it is gone
        lastPort = closedSoon.port();
        addresses.push_back(RawListener::addressData(lastPort));
    }
    auto socket = unconnected();
    ASSERT_FALSE(socket->connectToNetService(addresses).has_value());
    ASSERT_TRUE(runLoopUntil([&] { return !delegate_->errors.empty() && PZThread::runningCount() == 0; }));
    PZRunLoop::current()->runOnce(20ms);
    ASSERT_EQ(delegate_->errors.size(), 1u);
    const PZError& error = delegate_->errors[0];
    EXPECT_EQ(error.domain(), "The server has actively refused to establish the connection");
    EXPECT_EQ(error.code(), ECONNREFUSED);
    EXPECT_NE(error.description().find(":" + std::to_string(lastPort) + ")"), std::string::npos)
        << error.description();
    EXPECT_FALSE(delegate_->has("connected"));

    auto noAddress = unconnected();
    ASSERT_FALSE(noAddress->connectToNetService({}).has_value());
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->errors.size() == 2; }));
    EXPECT_EQ(delegate_->errors[1], PZError("No address to connect", -1));
}

TEST_F(PZSocketTest, peerReset_readErrorDelivered) {
    auto [peer, accepted] = listener_.connectedPair();
    auto socket = adopt(accepted, delegate_);
    const linger reset{1, 0}; // close() then sends a reset instead of an orderly end
    ::setsockopt(peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    ::close(peer);
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("disconnected"); }));
    ASSERT_FALSE(delegate_->errors.empty());
    EXPECT_EQ(delegate_->errors[0].domain(), "PZSocket");
    EXPECT_EQ(delegate_->errors[0].code(), 1); // the blocked read's, not a write's
}

TEST_F(PZSocketTest, sendData_peerGone_writeErrorWithoutSigpipe) {
    auto previous = std::signal(SIGPIPE, SIG_DFL); // a SIGPIPE would end this process
    auto [peer, accepted] = listener_.connectedPair();
    delegate_->disconnectOnReadEnd = false; // keep the writer alive after the peer left
    auto socket = adopt(accepted, delegate_);
    ::close(peer);
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("closeRead"); }));
    // The first write draws a reset from the peer's system; a later one fails with EPIPE.
    ASSERT_TRUE(runLoopUntil([&] {
        socket->sendData(text("into the void"));
        return !delegate_->errors.empty();
    }));
    EXPECT_EQ(delegate_->errors[0], PZError("PZSocket", 2, delegate_->errors[0].description()));
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("disconnected"); }));
    std::signal(SIGPIPE, previous);
}

TEST_F(PZSocketTest, hardClose_peerNotReading_writerEndsPromptlyAndQueueDropped) {
    LogCapture log;
    auto [peer, accepted] = listener_.connectedPair();
    auto socket = adopt(accepted, delegate_);
    const auto payload = pattern(8 << 20);
    socket->sendData(payload);
    std::this_thread::sleep_for(20ms); // let the writer fill the socket buffers and block
    socket->hardClose();
    ASSERT_TRUE(waitForThreads(5s));
    EXPECT_EQ(log.count(kWriteEnd), 1u);
    EXPECT_EQ(log.count(kReadEnd), 1u);
    socket->sendData(text("too late"));
    EXPECT_LT(readUntilEnd(peer).size(), payload.size());
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->has("disconnected"); }));
    EXPECT_EQ(delegate_->countOf("disconnected"), 1u);
    ::close(peer);
}
