// DNS-SD publication against the real avahi-daemon of the test services.

#include <unistd.h>

#include "app/AppTestSupport.h"
#include "app/PZNetService.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

std::string waitForPublishedName(const PZNetService& service) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (service.publishedName().empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
    }
    return service.publishedName();
}

TEST(PZNetServiceTest, publish_namedTakenAndEmptyNames_browsableUnderTheirOwnAlternativeAndHostName) {
    VXH_REQUIRE_PLATFORM(apptest::avahiRunning(), "no avahi-daemon runs (scripts/services start DIR)");
    const int port = apptest::freePort();
    const std::string name = "VXH test " + std::to_string(port);
    PZNetService service(PZNetService::kServerType, name, port);
    ASSERT_TRUE(service.publish());
    EXPECT_EQ(waitForPublishedName(service), name);
    const auto lines = apptest::browseForPort(port);
    ASSERT_FALSE(lines.empty()) << "no resolved _VelorixServer._tcp service with port " << port;
    EXPECT_NE(lines.find("VXH\\032test\\032" + std::to_string(port)), std::string::npos) << lines;

    PZNetService second(PZNetService::kServerType, name, apptest::freePort());
    ASSERT_TRUE(second.publish());
    EXPECT_EQ(waitForPublishedName(second), name + " #2");

    PZNetService unnamed(PZNetService::kServerType, "", apptest::freePort());
    ASSERT_TRUE(unnamed.publish());
    const auto published = waitForPublishedName(unnamed);
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    const std::string shortHost = std::string(host).substr(0, std::string(host).find('.'));
    ASSERT_FALSE(published.empty());
    EXPECT_EQ(published.rfind(shortHost, 0), 0u) << published << " vs " << shortHost;

    service.stop();
    EXPECT_TRUE(service.publishedName().empty());
    ASSERT_TRUE(service.publish());
    EXPECT_EQ(waitForPublishedName(service), name) << "published again after a stop";
}

} // namespace
