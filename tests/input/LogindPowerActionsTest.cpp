#include "input/linux/LogindPowerActions.h"
#include "support/TestPlatform.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A private message bus (dbus-daemon with the session configuration): nothing on it can suspend,
// reboot or power off anything.
class PrivateBus {
public:
    PrivateBus() {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0) {
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--print-address=1", nullptr);
            _exit(127);
        }
        close(out[1]);
        pollfd fd{out[0], POLLIN, 0};
        char buffer[512];
        std::size_t length = 0;
        while (length < sizeof buffer && poll(&fd, 1, 5000) > 0) {
            const ssize_t n = read(out[0], buffer + length, sizeof buffer - length);
            if (n <= 0) {
                break;
            }
            length += static_cast<std::size_t>(n);
            if (std::string(buffer, length).find('\n') != std::string::npos) {
                break;
            }
        }
        close(out[0]);
        const std::string line(buffer, length);
        address_ = line.substr(0, line.find('\n'));
    }
    ~PrivateBus() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }
    const std::string& address() const { return address_; }

private:
    pid_t pid_ = -1;
    std::string address_;
};

TEST(LogindPowerActionsTest, powerActions_busWithoutLogind_eachReportsWhy) {
    PrivateBus bus;
    VXH_REQUIRE_PLATFORM(!bus.address().empty(), "dbus-daemon could not be started");
    LogindPowerActions power(bus.address());
    for (const auto& refusal : {power.suspend(), power.reboot(), power.powerOff()}) {
        ASSERT_TRUE(refusal.has_value());
        EXPECT_NE(refusal->find("org.freedesktop.login1"), std::string::npos) << *refusal;
    }
}

TEST(LogindPowerActionsTest, powerActions_noBus_reportsWhy) {
    LogindPowerActions power("unix:path=/nonexistent/bus");
    const auto refusal = power.suspend();
    ASSERT_TRUE(refusal.has_value());
    EXPECT_NE(refusal->find("no D-Bus"), std::string::npos) << *refusal;
}

} // namespace
