// DNS-SD publication against the real avahi-daemon of the test services.

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "app/AppTestSupport.h"
#include "app/PZNetService.h"
#include "support/LogCapture.h"
#include "support/TestPlatform.h"
#include "transport/PZLogger.h"

namespace {

using namespace std::chrono_literals;

std::string waitForPublishedName(const PZNetService& service, std::chrono::seconds timeout = 20s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (service.publishedName().empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
    }
    return service.publishedName();
}

TEST(PZNetServiceTest, publish_daemonRunning_serviceIsBrowsableWithItsPort) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    const int port = apptest::freePort();
    PZNetService service(PZNetService::kServerType, "VXH test " + std::to_string(port), port);
    ASSERT_TRUE(service.publish());
    EXPECT_EQ(waitForPublishedName(service), "VXH test " + std::to_string(port));

    const auto lines = apptest::browseForPort(port);
    ASSERT_FALSE(lines.empty()) << "no resolved _VelorixServer._tcp service with port " << port;
    EXPECT_NE(lines.find("VXH\\032test\\032" + std::to_string(port)), std::string::npos) << lines;

    service.stop();
    EXPECT_TRUE(service.publishedName().empty());
}

TEST(PZNetServiceTest, publish_nameAlreadyTaken_takesTheAlternativeName) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    const std::string name = "VXH collision " + std::to_string(apptest::freePort());
    PZNetService first(PZNetService::kServerType, name, apptest::freePort());
    ASSERT_TRUE(first.publish());
    ASSERT_EQ(waitForPublishedName(first), name);

    PZNetService second(PZNetService::kServerType, name, apptest::freePort());
    ASSERT_TRUE(second.publish());
    EXPECT_EQ(waitForPublishedName(second), name + " #2");
}

TEST(PZNetServiceTest, publish_emptyName_usesTheHostName) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    const int port = apptest::freePort();
    PZNetService service(PZNetService::kServerType, "", port);
    ASSERT_TRUE(service.publish());
    const auto published = waitForPublishedName(service);
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const std::string shortHost = std::string(host).substr(0, std::string(host).find('.'));
    ASSERT_FALSE(published.empty());
    EXPECT_EQ(published.rfind(shortHost, 0), 0u) << published << " vs " << shortHost;
}

TEST(PZNetServiceTest, stop_thenPublishAgain_publishesAgain) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    const int port = apptest::freePort();
    PZNetService service(PZNetService::kServerType, "VXH again " + std::to_string(port), port);
    ASSERT_TRUE(service.publish());
    ASSERT_FALSE(waitForPublishedName(service).empty());
    service.stop();
    ASSERT_TRUE(service.publish());
    EXPECT_FALSE(waitForPublishedName(service).empty());
}

TEST(PZNetServiceTest, publish_daemonAbsentThenStartedThenRestarted_publishesEachTime) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    apptest::TestAvahiDaemon daemon;
    if (!daemon.available()) {
        GTEST_SKIP()
            << "the avahi-daemon was not started by the test services (VXH_TEST_AVAHI_PIDFILE unset)";
    }
    LogCapture log;
    ASSERT_TRUE(daemon.stop());
    const int port = apptest::freePort();
    PZNetService service(PZNetService::kServerType, "VXH restart " + std::to_string(port), port);
    ASSERT_TRUE(service.publish());
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(service.publishedName().empty());
    EXPECT_EQ(log.countContaining("DNS-SD"), 1u) << "one line while no daemon runs";

    ASSERT_TRUE(daemon.start());
    EXPECT_FALSE(waitForPublishedName(service).empty()) << "published once the daemon appeared";
    EXPECT_FALSE(apptest::browseForPort(port).empty());

    ASSERT_TRUE(daemon.stop());
    ASSERT_TRUE(daemon.start());
    EXPECT_FALSE(waitForPublishedName(service).empty()) << "published again after the restart";
    EXPECT_FALSE(apptest::browseForPort(port).empty());
}

} // namespace
