#include "sysinfo/linux/X11ProcessSource.h"
#include "protocol/VXProcess.h"
#include "sysinfo/VXSystemInfo.h"
#include "sysinfo/fakes/FakeDesktopSettings.h"
#include "sysinfo/linux/QtImageRenderer.h"

#include "IconFixture.h"
#include "X11TestDesktop.h"
#include "support/TestPlatform.h"
#include "support/XvfbProcess.h"

#include <QImage>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

bool platformInstalled() {
    return std::system("command -v Xvfb >/dev/null 2>&1 && command -v openbox >/dev/null 2>&1") == 0;
}

// A real process of its own (so a window can carry a pid that is not the test's): `sleep`.
class SleepingProcess {
public:
    SleepingProcess() {
        char program[] = "sleep";
        char seconds[] = "120";
        char* argv[] = {program, seconds, nullptr};
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

class X11ProcessSourceTest : public testing::Test {
protected:
    void SetUp() override {
        VXH_REQUIRE_PLATFORM(platformInstalled(), "Xvfb or openbox is not installed");
        ASSERT_TRUE(xvfb_.startRestartable(1280, 800));
        ASSERT_TRUE(xvfb_.startWindowManager());
        desktop_ = std::make_unique<X11TestDesktop>(xvfb_.name());
        ASSERT_TRUE(desktop_->ok());
        source_ = std::make_shared<X11ProcessSource>(xvfb_.name());
    }

    // Polls until the list has `count` entries (the window manager adopts windows asynchronously).
    std::vector<VXRunningProcess> waitForList(size_t count) {
        std::vector<VXRunningProcess> list;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        do {
            list = source_->uiProcesses();
            if (list.size() == count) {
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        } while (std::chrono::steady_clock::now() < deadline);
        return list;
    }

    XvfbProcess xvfb_;
    std::unique_ptr<X11TestDesktop> desktop_;
    std::shared_ptr<X11ProcessSource> source_;
};

TEST_F(X11ProcessSourceTest, uiProcesses_managedWindows_oneEntryPerPidInListOrder) {
    SleepingProcess first;
    SleepingProcess dialogOwner;
    SleepingProcess dockOwner;
    ASSERT_GT(first.pid(), 0);
    const int self = static_cast<int>(getpid());
    const auto a = desktop_->createWindow({first.pid(), "oneapp", "OneApp", "One", "", {}});
    ASSERT_TRUE(desktop_->waitUntilManaged(a));
    const auto b = desktop_->createWindow({self, "selfish", "Selfish", "Me", "", {}});
    ASSERT_TRUE(desktop_->waitUntilManaged(b));
    desktop_->createWindow({first.pid(), "oneapp", "OneApp", "One, second window", "", {}});
    desktop_->createWindow({0, "nopid", "NoPid", "No pid", "", {}});
    desktop_->createWindow({dockOwner.pid(), "panel", "Panel", "Dock", "DOCK", {}});
    desktop_->createWindow({dockOwner.pid(), "tools", "Tools", "Utility", "UTILITY", {}});
    const auto dialog = desktop_->createWindow({dialogOwner.pid(), "ask", "Ask", "Question", "DIALOG", {}});
    ASSERT_TRUE(desktop_->waitUntilManaged(dialog));

    const auto list = waitForList(3);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0].pid, first.pid());
    EXPECT_EQ(list[0].executableName, "sleep");
    EXPECT_EQ(list[0].className, "OneApp");
    EXPECT_EQ(list[0].instanceName, "oneapp");
    EXPECT_EQ(list[0].windowTitle, "One");
    EXPECT_EQ(list[1].pid, self);
    EXPECT_EQ(list[1].executableName, X11ProcessSource::executableName(self));
    EXPECT_FALSE(list[1].executableName.empty());
    EXPECT_EQ(list[2].pid, dialogOwner.pid());

    EXPECT_EQ(source_->processWithPid(self)->className, "Selfish");
    EXPECT_FALSE(source_->processWithPid(dockOwner.pid()));
    EXPECT_FALSE(source_->processWithPid(0));
    EXPECT_FALSE(source_->processWithPid(-1));
}

TEST_F(X11ProcessSourceTest, windowIcon_twoSizes_closestNotSmaller) {
    SleepingProcess owner;
    const auto window = desktop_->createWindow(
        {owner.pid(), "icons", "Icons", "With icon", "", X11TestDesktop::redAndGreenIcon()});
    ASSERT_TRUE(desktop_->waitUntilManaged(window));
    const auto small = source_->windowIcon(owner.pid(), 16);
    ASSERT_TRUE(small);
    EXPECT_EQ(small->width, 16);
    EXPECT_EQ(small->argb.front(), 0xffff0000u);
    const auto large = source_->windowIcon(owner.pid(), 24);
    ASSERT_TRUE(large);
    EXPECT_EQ(large->width, 32);
    EXPECT_EQ(large->argb.back(), 0xff00ff00u);
    EXPECT_FALSE(source_->windowIcon(owner.pid() + 100000, 16));
}

TEST_F(X11ProcessSourceTest, systemInfo_windowsWithGoodAndHostileIcons_titlesAndIconsAnswered) {
    IconFixture icons;
    icons.tree().write("data/applications/oneapp.desktop",
                       "[Desktop Entry]\nType=Application\nName=The One App\nIcon=app-one\n");
    VXSystemInfoBackEnds backEnds;
    backEnds.processes = source_;
    backEnds.images = std::make_shared<QtImageRenderer>();
    backEnds.dataDirs = {icons.tree().path("data")};
    backEnds.iconDirs = icons.iconDirs();
    backEnds.homeDirectory = icons.tree().path();
    auto desktop = std::make_shared<FakeDesktopSettings>();
    desktop->setIconTheme("TestTheme");
    backEnds.desktop = desktop;
    VXSystemInfo info(std::move(backEnds));

    SleepingProcess good;
    SleepingProcess broken;
    // Broken icon data: a size far beyond the data, then a zero size, then garbage.
    const std::vector<unsigned long> brokenIcon{100000, 100000, 1, 2, 3, 0, 0, 0xdeadbeef};
    desktop_->createWindow({good.pid(), "icons", "Icons", "Good", "", X11TestDesktop::redAndGreenIcon()});
    const auto last = desktop_->createWindow({broken.pid(), "oneapp", "OneApp", "Broken", "", brokenIcon});
    ASSERT_TRUE(desktop_->waitUntilManaged(last));
    ASSERT_EQ(waitForList(2).size(), 2u);

    const auto processes = info.getUIElementProcesses();
    ASSERT_EQ(processes.size(), 2u);
    EXPECT_EQ(processes[1]->name(), "sleep");
    EXPECT_EQ(processes[1]->mainWindowTitle(), "The One App");
    EXPECT_EQ(processes[0]->mainWindowTitle(), "Icons");

    const auto decode = [](const std::optional<std::vector<std::uint8_t>>& png) {
        return png ? QImage::fromData(QByteArray(reinterpret_cast<const char*>(png->data()),
                                                 static_cast<qsizetype>(png->size())),
                                      "PNG")
                   : QImage();
    };
    const QImage windowIcon = decode(info.getDataOfIconForProcessSize(*processes[0], 32, 32));
    ASSERT_FALSE(windowIcon.isNull());
    EXPECT_EQ(windowIcon.pixelColor(16, 16), QColor(Qt::green));
    // openbox gives a window without a usable icon its own default one, so whichever of that or the
    // desktop entry's icon answers, it is a whole image of the size asked for.
    const QImage hostile = decode(info.getDataOfIconForProcessSize(*processes[1], 48, 40));
    ASSERT_FALSE(hostile.isNull());
    EXPECT_EQ(hostile.size(), QSize(48, 40));
}

TEST_F(X11ProcessSourceTest, uiProcesses_serverRestarted_emptyThenRecovers) {
    SleepingProcess owner;
    const auto window = desktop_->createWindow({owner.pid(), "a", "A", "A", "", {}});
    ASSERT_TRUE(desktop_->waitUntilManaged(window));
    ASSERT_EQ(waitForList(1).size(), 1u);

    const int number = xvfb_.number();
    desktop_.reset();
    xvfb_.stop();
    EXPECT_TRUE(source_->uiProcesses().empty());
    EXPECT_FALSE(source_->processWithPid(owner.pid()));
    EXPECT_FALSE(source_->windowIcon(owner.pid(), 16));

    ASSERT_TRUE(xvfb_.start(800, 600, number));
    ASSERT_TRUE(xvfb_.startWindowManager());
    desktop_ = std::make_unique<X11TestDesktop>(xvfb_.name());
    const auto again = desktop_->createWindow({owner.pid(), "b", "B", "B", "", {}});
    ASSERT_TRUE(desktop_->waitUntilManaged(again));
    const auto list = waitForList(1);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].className, "B");
}

TEST(X11ProcessSourceNoDisplayTest, everyOperation_noServer_givesNothing) {
    X11ProcessSource source(":4093");
    EXPECT_TRUE(source.uiProcesses().empty());
    EXPECT_FALSE(source.processWithPid(1));
    EXPECT_FALSE(source.windowIcon(1, 16));
}

TEST(X11ProcessSourceNoDisplayTest, executableName_ownProcess_isTheTestProgram) {
    EXPECT_EQ(X11ProcessSource::executableName(getpid()), "sysinfo_x11_tests");
    EXPECT_EQ(X11ProcessSource::executableName(999999999), "");
}

} // namespace
