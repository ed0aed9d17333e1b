#include "sysinfo/linux/X11ProcessSource.h"

#include "X11TestDesktop.h"
#include "support/TestPlatform.h"
#include "support/XvfbProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

// A `sleep`, so that a window can carry a live pid that is not the test's.
class SleepingProcess {
public:
    SleepingProcess() {
        char* argv[] = {const_cast<char*>("sleep"), const_cast<char*>("120"), nullptr};
        if (posix_spawnp(&pid_, "sleep", nullptr, nullptr, argv, environ) != 0) {
            pid_ = -1;
        }
    }
    ~SleepingProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    int pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

// Polls until the list has `count` entries (the window manager adopts windows asynchronously).
std::vector<VXRunningProcess> waitForList(X11ProcessSource& source, size_t count) {
    std::vector<VXRunningProcess> list;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while ((list = source.uiProcesses()).size() != count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return list;
}

TEST(X11ProcessSourceTest, managedWindows_onePerPidInListOrder_withTitlesAndIcons) {
    VXH_REQUIRE_PLATFORM(std::system("command -v Xvfb >/dev/null && command -v openbox >/dev/null") == 0,
                         "Xvfb or openbox is not installed");
    XvfbProcess xvfb;
    ASSERT_TRUE(xvfb.start(1280, 800));
    ASSERT_TRUE(xvfb.startWindowManager());
    X11TestDesktop desktop(xvfb.name());
    ASSERT_TRUE(desktop.ok());
    auto source = std::make_shared<X11ProcessSource>(xvfb.name());

    SleepingProcess first;
    SleepingProcess dialogOwner;
    SleepingProcess dockOwner;
    ASSERT_GT(first.pid(), 0);
    const int self = static_cast<int>(getpid());
    const auto a =
        desktop.createWindow({first.pid(), "oneapp", "OneApp", "One", "", X11TestDesktop::redAndGreenIcon()});
    ASSERT_TRUE(desktop.waitUntilManaged(a));
    const auto b = desktop.createWindow({self, "selfish", "Selfish", "Me", "", {}});
    ASSERT_TRUE(desktop.waitUntilManaged(b));
    desktop.createWindow({first.pid(), "oneapp", "OneApp", "One, second window", "", {}});
    desktop.createWindow({0, "nopid", "NoPid", "No pid", "", {}});
    desktop.createWindow({dockOwner.pid(), "panel", "Panel", "Dock", "DOCK", {}});
    const auto dialog = desktop.createWindow({dialogOwner.pid(), "ask", "Ask", "Question", "DIALOG", {}});
    ASSERT_TRUE(desktop.waitUntilManaged(dialog));

    const auto list = waitForList(*source, 3);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].pid, first.pid());
    EXPECT_EQ(list[0].executableName, "sleep");
    EXPECT_EQ(list[0].className, "OneApp");
    EXPECT_EQ(list[0].instanceName, "oneapp");
    EXPECT_EQ(list[0].windowTitle, "One");
    EXPECT_EQ(list[1].pid, self);
    EXPECT_EQ(list[1].executableName, X11ProcessSource::executableName(self));
    EXPECT_EQ(list[2].pid, dialogOwner.pid());
    EXPECT_EQ(source->processWithPid(self)->className, "Selfish");
    EXPECT_FALSE(source->processWithPid(dockOwner.pid()));
    EXPECT_FALSE(source->processWithPid(0));

    // The choice among a window's icons is tested with the X11 plumbing.
    const auto large = source->windowIcon(first.pid(), 24);
    ASSERT_TRUE(large);
    EXPECT_EQ(large->width, 32);
    EXPECT_EQ(large->argb.back(), 0xff00ff00u);
    EXPECT_FALSE(source->windowIcon(first.pid() + 100000, 16));
}

TEST(X11ProcessSourceNoDisplayTest, everyOperation_noServer_givesNothing) {
    X11ProcessSource source(":4093");
    EXPECT_TRUE(source.uiProcesses().empty());
    EXPECT_FALSE(source.processWithPid(1));
    EXPECT_FALSE(source.windowIcon(1, 16));
    EXPECT_EQ(X11ProcessSource::executableName(getpid()), "sysinfo_x11_tests");
    EXPECT_EQ(X11ProcessSource::executableName(999999999), "");
}

} // namespace
