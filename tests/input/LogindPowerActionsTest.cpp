#include "input/linux/LogindPowerActions.h"
#include "support/TestPlatform.h"

#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>

namespace {

// A private message bus (dbus-daemon with the session configuration): nothing on it can suspend,
// reboot or power off anything.
class PrivateBus {
public:
    PrivateBus() {
        FILE* out = popen("dbus-daemon --session --fork --print-address=1 --print-pid=1", "r");
        char address[512] = "";
        long pid = 0;
        if (out != nullptr && std::fscanf(out, "%511s %ld", address, &pid) == 2) {
            address_ = address;
            pid_ = static_cast<pid_t>(pid);
        }
        if (out != nullptr) {
            pclose(out);
        }
    }
    ~PrivateBus() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
        }
    }
    const std::string& address() const { return address_; }

private:
    pid_t pid_ = -1;
    std::string address_;
};

TEST(LogindPowerActionsTest, powerActions_noBusOrBusWithoutLogind_eachReportsWhy) {
    const auto noBus = LogindPowerActions("unix:path=/nonexistent/bus").suspend();
    ASSERT_TRUE(noBus.has_value());
    EXPECT_NE(noBus->find("no D-Bus"), std::string::npos) << *noBus;
    PrivateBus bus;
    VXH_REQUIRE_PLATFORM(!bus.address().empty(), "dbus-daemon could not be started");
    LogindPowerActions power(bus.address());
    for (const auto& refusal : {power.suspend(), power.reboot(), power.powerOff()}) {
        ASSERT_TRUE(refusal.has_value());
        EXPECT_NE(refusal->find("org.freedesktop.login1"), std::string::npos) << *refusal;
    }
}

} // namespace
