// Runs apart from the other server socket tests: while descriptors are used up, the undefined-behaviour
// checker cannot open the pipe it needs to look at an object's type, and reports a fault that is not
// there. The ThreadSanitizer build runs it.
#include "transport/PZServerSocket.h"
#include "transport/PZSocket.h"

#include "TransportTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>

TEST_F(PZServerSocketTest, accept_descriptorsExhausted_keepsServingAndAcceptsLater) {
    LogCapture log;
    server_->startOnPort(0);
    const auto port = static_cast<std::uint16_t>(server_->getPort());
    const int firstClient = RawListener::connectTo(port);
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 1; }));
    auto connectionDelegate = std::make_shared<RecordingSocketDelegate>();
    auto connection = std::make_shared<PZSocket>(delegate_->accepted[0].descriptor, std::nullopt);
    delegate_->accepted.clear(); // now owned by the PZSocket
    connection->setDelegate(connectionDelegate);
    connection->scheduleInRunLoop(PZRunLoop::current());
    connection->start();
    // The connection works before.
    ::send(firstClient, "warm", 4, 0);
    ASSERT_TRUE(runLoopUntil([&] { return connectionDelegate->received.size() == 4; }));

    // Use up every descriptor number below the limit, so that accept fails with EMFILE. Logging is
    // kept quiet meanwhile: syslog may open and close a descriptor of its own.
    ASSERT_TRUE(
        runLoopUntil([&] { return log.count("PZSocket thread 2 ++++++++++++++++++++++++ write") == 1; }));
    PZLogger::setEchoEnabled(false);
    const int primer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int secondClient = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    rlimit saved{};
    ::getrlimit(RLIMIT_NOFILE, &saved);
    const int lowestFree = ::fcntl(0, F_DUPFD_CLOEXEC, 0);
    rlimit tight = saved;
    tight.rlim_cur = static_cast<rlim_t>(lowestFree) + 1;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
    // A blocked accept has already reserved its descriptor number: the primer connection uses it up.
    const sockaddr_in address = RawListener::loopback(port);
    ASSERT_EQ(::connect(primer, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 1; }));
    const int connected =
        ::connect(secondClient, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    PZRunLoop::current()->runUntil(PZRunLoop::Clock::now() + 300ms);
    const auto acceptedWhileExhausted = delegate_->accepted.size();

    // Meanwhile the existing connection keeps working both ways.
    ::send(firstClient, "alive", 5, 0);
    const bool echoed = runLoopUntil([&] { return connectionDelegate->received.size() == 9; }, 5s);
    connection->sendData(std::vector<std::uint8_t>{'y'});
    char reply = 0;
    const ssize_t replied = ::recv(firstClient, &reply, 1, 0);

    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &saved), 0);
    ::close(lowestFree);
    PZLogger::setEchoEnabled(true);
    EXPECT_EQ(connected, 0);
    EXPECT_EQ(acceptedWhileExhausted, 1u);
    EXPECT_TRUE(echoed);
    EXPECT_EQ(replied, 1);
    // With descriptors to spare again, the waiting connection is accepted.
    EXPECT_TRUE(runLoopUntil([&] { return delegate_->accepted.size() == 2; }));
    EXPECT_TRUE(server_->bound());
    connection->close();
    ::close(firstClient);
    ::close(primer);
    ::close(secondClient);
    runLoopUntil([&] { return connectionDelegate->has("disconnected"); });
}
