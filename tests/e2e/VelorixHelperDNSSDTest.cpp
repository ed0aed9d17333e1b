// The real velorixhelper advertised through the real avahi-daemon, before and after the daemon restarts.

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>

#include "E2ESubprocess.h"
#include "app/AppTestSupport.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

TEST(VelorixHelperDNSSDTest, headless_serving_browsableWithItsPortAlsoAfterTheDaemonRestarts) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    apptest::TemporaryFolder home;
    E2ESubprocess server(
        VXH_VELORIXHELPER_PATH, {"--headless", "--port", "0"},
        {{"HOME", home.path().string()}, {"XDG_CONFIG_HOME", (home.path() / "config").string()}});
    const auto line = server.waitForError("Waiting for connections on port ", 30s);
    ASSERT_TRUE(line.has_value()) << server.errors();
    const int port = std::stoi(line->substr(line->rfind(' ') + 1));

    const auto browsed = apptest::browseForPort(port);
    ASSERT_FALSE(browsed.empty()) << "no resolved _VelorixServer._tcp service on port " << port << "\n"
                                  << server.errors();
    EXPECT_NE(browsed.find("_VelorixServer._tcp"), std::string::npos) << browsed;

    apptest::TestAvahiDaemon daemon;
    if (!daemon.available()) {
        GTEST_SKIP()
            << "the avahi-daemon was not started by the test services (VXH_TEST_AVAHI_PIDFILE unset): "
               "the restart is not tried";
    }
    ASSERT_TRUE(daemon.stop());
    ASSERT_TRUE(server.waitForError("the Avahi daemon is not running", 20s)) << server.errors();
    ASSERT_TRUE(daemon.start());
    EXPECT_FALSE(apptest::browseForPort(port).empty()) << "not published again after the restart\n"
                                                       << server.errors();
    server.signal(SIGTERM);
    EXPECT_EQ(server.wait(30s), 0);
}

} // namespace
