#include "transport/PZServerSocket.h"
#include "transport/PZException.h"
#include "transport/PZSocket.h"

#include "TransportTestSupport.h"

#include <cstring>
#include <fcntl.h>

namespace {

std::string exceptionReason(const std::function<void()>& f) {
    try {
        f();
    } catch (const PZException& e) {
        EXPECT_EQ(e.name(), "PZServerSocket startOnPort:");
        return e.reason();
    }
    return "no exception";
}

} // namespace

TEST_F(PZServerSocketTest, startOnPort_closedBeforeOrPortInUseOrTwice_throwsOrStillStartable) {
    server_->close(); // never started: delivers nothing and stays startable
    PZRunLoop::current()->runOnce(20ms);
    EXPECT_EQ(delegate_->closed, 0);
    EXPECT_TRUE(server_->isValid());
    RawListener occupant;
    const int port = occupant.port();
    EXPECT_EQ(exceptionReason([&] { server_->startOnPort(port); }),
              "Can't bind the socket on port " + std::to_string(port));
    EXPECT_EQ(server_->tcpSocket(), 0);
    EXPECT_FALSE(server_->bound());
    server_->startOnPort(0);
    EXPECT_TRUE(server_->bound());
    EXPECT_NE(server_->getPort(), port);
    EXPECT_EQ(exceptionReason([&] { server_->startOnPort(0); }), "ServerSocket is just starting");
}

TEST_F(PZServerSocketTest, close_listening_threadEndsPortFreeAtOnceAndNoRestart) {
    LogCapture log;
    server_->startOnPort(0);
    const int port = server_->getPort();
    const int client = RawListener::connectTo(static_cast<std::uint16_t>(port));
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 1; }));
    server_->close();
    // close() returns once the accepting thread has let go of the port.
    EXPECT_EQ(log.count("accepting thread -1 -------------------"), 1u);
    EXPECT_FALSE(server_->bound());
    auto successor = std::make_shared<PZServerSocket>();
    successor->startOnPort(port);
    EXPECT_EQ(successor->getPort(), port);

    ASSERT_TRUE(runLoopUntil([&] { return delegate_->closed == 1 && !server_->isValid(); }));
    EXPECT_EQ(exceptionReason([&] { server_->startOnPort(0); }), "You can't start socket after closing");
    successor.reset();
    ::close(client);
}

TEST_F(PZServerSocketTest, accepted_noDelegate_connectionClosedNotLeaked) {
    server_->setDelegate({});
    server_->startOnPort(0);
    const int client = RawListener::connectTo(static_cast<std::uint16_t>(server_->getPort()));
    std::uint8_t byte;
    EXPECT_EQ(::recv(client, &byte, 1, 0), 0); // the dropped delivery closed the descriptor
    ::close(client);
}

TEST_F(PZServerSocketTest, descriptors_allCloseOnExec_launchedCommandsInheritNone) {
    server_->startOnPort(0);
    const int client = RawListener::connectTo(static_cast<std::uint16_t>(server_->getPort()));
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 1; }));
    auto connection = std::make_shared<PZSocket>(delegate_->accepted[0].descriptor, std::nullopt);
    delegate_->accepted.clear();
    connection->scheduleInRunLoop(PZRunLoop::current());
    connection->start();
    for (const int fd :
         {server_->tcpSocket(), connection->tcpSocket(), PZRunLoop::current()->wakeDescriptor()}) {
        const int flags = ::fcntl(fd, F_GETFD);
        ASSERT_NE(flags, -1) << fd;
        EXPECT_TRUE(flags & FD_CLOEXEC) << fd;
    }
    connection->close();
    ::close(client);
}
