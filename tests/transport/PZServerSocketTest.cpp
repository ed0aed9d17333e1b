#include "transport/PZServerSocket.h"
#include "transport/PZException.h"
#include "transport/PZSocket.h"

#include "TransportTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

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

std::string descriptorTarget(int fd) {
    char target[256] = {};
    const ssize_t n = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
    return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : std::string();
}

// Runs argv with its standard output read back; the child inherits whatever is not close-on-exec.
std::string runChild(const std::vector<const char*>& argv) {
    int out[2];
    EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    std::vector<char*> args;
    for (const char* arg : argv) {
        args.push_back(const_cast<char*>(arg));
    }
    args.push_back(nullptr);
    pid_t child = -1;
    EXPECT_EQ(::posix_spawn(&child, args[0], &actions, nullptr, args.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    const auto bytes = readUntilEnd(out[0]);
    ::close(out[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return {bytes.begin(), bytes.end()};
}

} // namespace

TEST_F(PZServerSocketTest, startOnPort_zero_systemPortAndConnectionsDelivered) {
    LogCapture log;
    server_->startOnPort(0);
    EXPECT_TRUE(server_->bound());
    const int port = server_->getPort();
    ASSERT_GT(port, 0);
    const int first = RawListener::connectTo(static_cast<std::uint16_t>(port));
    const int second = RawListener::connectTo(static_cast<std::uint16_t>(port));
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 2; }));
    for (const auto& accepted : delegate_->accepted) {
        ASSERT_EQ(accepted.address.size(), sizeof(sockaddr_in));
        sockaddr_in peer{};
        std::memcpy(&peer, accepted.address.data(), sizeof peer);
        EXPECT_EQ(peer.sin_family, AF_INET);
        EXPECT_EQ(ntohl(peer.sin_addr.s_addr), INADDR_LOOPBACK);
        EXPECT_TRUE(::fcntl(accepted.descriptor, F_GETFD) & FD_CLOEXEC);
    }
    // The descriptors are live connections, in accept order.
    ASSERT_EQ(::send(delegate_->accepted[1].descriptor, "2", 1, 0), 1);
    char byte = 0;
    ASSERT_EQ(::recv(second, &byte, 1, 0), 1);
    EXPECT_EQ(byte, '2');
    EXPECT_EQ(log.count("accepting thread -1 ++++++++++++++++++"), 1u);
    ::close(first);
    ::close(second);
}

TEST_F(PZServerSocketTest, startOnPort_twice_throwsJustStarting) {
    server_->startOnPort(0);
    EXPECT_EQ(exceptionReason([&] { server_->startOnPort(0); }), "ServerSocket is just starting");
}

TEST_F(PZServerSocketTest, startOnPort_portInUse_throwsWithPortThenFreePortWorks) {
    RawListener occupant;
    const int port = occupant.port();
    EXPECT_EQ(exceptionReason([&] { server_->startOnPort(port); }),
              "Can't bind the socket on port " + std::to_string(port));
    EXPECT_EQ(server_->tcpSocket(), 0);
    EXPECT_FALSE(server_->bound());
    server_->startOnPort(0);
    EXPECT_TRUE(server_->bound());
    EXPECT_NE(server_->getPort(), port);
}

TEST_F(PZServerSocketTest, close_neverStarted_deliversNothing) {
    server_->close();
    PZRunLoop::current()->runOnce(20ms);
    EXPECT_EQ(delegate_->closed, 0);
    EXPECT_TRUE(server_->isValid());
    server_->startOnPort(0); // still startable
    EXPECT_TRUE(server_->bound());
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

TEST_F(PZServerSocketTest, descriptors_launchedChild_inheritsNone) {
    server_->startOnPort(0);
    const int client = RawListener::connectTo(static_cast<std::uint16_t>(server_->getPort()));
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 1; }));
    auto connection = std::make_shared<PZSocket>(delegate_->accepted[0].descriptor, std::nullopt);
    delegate_->accepted.clear();
    connection->scheduleInRunLoop(PZRunLoop::current());
    connection->start();

    std::vector<std::string> ours = {descriptorTarget(server_->tcpSocket()),
                                     descriptorTarget(connection->tcpSocket()),
                                     descriptorTarget(PZRunLoop::current()->wakeDescriptor())};
    const std::string listing = runChild({"/bin/ls", "-l", "/proc/self/fd/"});
    ASSERT_NE(listing.find("->"), std::string::npos) << listing; // the child did list its descriptors
    for (const auto& target : ours) {
        ASSERT_FALSE(target.empty());
        EXPECT_EQ(listing.find(target), std::string::npos) << target << " leaked into\n" << listing;
    }
    connection->close();
    ::close(client);
}
