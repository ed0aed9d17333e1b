// The real velorixhelper advertised through the real avahi-daemon, before and after the daemon restarts
// (also the case of a daemon that is absent when the server starts: the same waiting state).

#include "VelorixHelperE2ETest.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

class VelorixHelperDNSSDTest : public VelorixHelperE2ETest {};

TEST_F(VelorixHelperDNSSDTest, headless_serving_browsableWithItsPortAlsoAfterTheDaemonRestarts) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    auto server = startServer({"--headless", "--port", "0"});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    const auto browsed = apptest::browseForPort(port);
    ASSERT_FALSE(browsed.empty()) << "no resolved _VelorixServer._tcp service on port " << port << "\n"
                                  << server->errors();
    EXPECT_NE(browsed.find("_VelorixServer._tcp"), std::string::npos) << browsed;

    apptest::TestAvahiDaemon daemon;
    if (!daemon.available()) {
        GTEST_SKIP()
            << "the avahi-daemon was not started by the test services (VXH_TEST_AVAHI_PIDFILE unset): "
               "the restart is not tried";
    }
    ASSERT_TRUE(daemon.stop());
    ASSERT_TRUE(server->waitForError("the Avahi daemon is not running", 20s)) << server->errors();
    ASSERT_TRUE(daemon.start());
    EXPECT_FALSE(apptest::browseForPort(port).empty()) << "not published again after the restart\n"
                                                       << server->errors();
    server->signal(SIGTERM);
    EXPECT_EQ(server->wait(30s), 0);
    const auto errors = server->errors();
    std::size_t waits = 0;
    for (auto at = errors.find("daemon is not running"); at != std::string::npos;
         at = errors.find("daemon is not running", at + 1)) {
        ++waits;
    }
    EXPECT_EQ(waits, 1u) << "one line while no daemon runs\n" << errors;
}

} // namespace
