#include "platform/x11/X11Connection.h"
#include "platform/x11/X11ErrorTrap.h"
#include "platform/x11/X11Ewmh.h"
#include "platform/x11/X11ScreenGeometry.h"
#include "support/TestPlatform.h"
#include "support/XvfbProcess.h"
#include "sysinfo/X11TestDesktop.h"

#include <X11/Xlib.h>

#include <chrono>
#include <thread>

namespace {

bool xvfbInstalled() {
    return std::system("command -v Xvfb >/dev/null 2>&1") == 0;
}

template <typename Predicate> bool waitFor(Predicate predicate, int milliseconds = 5000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (predicate()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return predicate();
}

class X11Plumbing : public ::testing::Test {
protected:
    void SetUp() override {
        VXH_REQUIRE_PLATFORM(xvfbInstalled(), "Xvfb is not installed");
        ASSERT_TRUE(server_.start(1280, 800));
        display_ = X11Display::open(server_.name().c_str());
        ASSERT_NE(display_, nullptr);
    }

    XvfbProcess server_;
    std::unique_ptr<X11Display> display_;
};

} // namespace

TEST(X11Rect, intersected_table) {
    const X11Rect screen{0, 0, 1280, 800};
    struct Case {
        X11Rect rect;
        X11Rect expected;
    } cases[] = {
        {{-10, -20, 100, 50}, {0, 0, 90, 30}},
        {{1200, 700, 200, 200}, {1200, 700, 80, 100}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.rect.intersected(screen), c.expected);
    }
    EXPECT_TRUE((X11Rect{2000, 0, 10, 10}.intersected(screen).empty()));
    EXPECT_TRUE((X11Rect{10, 10, 0, 10}.intersected(screen).empty()));
}

TEST_F(X11Plumbing, noWindowManager_geometryErrorTrapAndBadIcons_answeredSafely) {
    EXPECT_EQ(X11ScreenGeometry::rootRect(*display_), (X11Rect{0, 0, 1280, 800}));
    EXPECT_EQ(X11ScreenGeometry::mainScreen(*display_), (X11Rect{0, 0, 1280, 800}));

    Display* dpy = display_->display();
    {
        X11ErrorTrap trap(dpy);
        XMapWindow(dpy, 0x7fffff0);
        EXPECT_TRUE(trap.failed());
        EXPECT_EQ(trap.errorCode(), BadWindow);
    }
    XMapWindow(dpy, 0x7fffff1); // an error outside any trap is ignored, not fatal
    XSync(dpy, False);
    X11ErrorTrap trap(dpy);
    XSync(dpy, False);
    EXPECT_FALSE(trap.failed());
    EXPECT_FALSE(display_->isLost());

    X11TestDesktop desktop(server_.name());
    const Window bogus = // 100x100 pixels claimed, four carried
        desktop.createWindow({1, "testapp", "TestApp", "Bogus icon", "", {100, 100, 1, 2, 3, 4}});
    // openbox gives icon-less windows a default icon, so this one is checked without a window manager.
    const Window plain = desktop.createWindow({1, "testapp", "TestApp", "No icon", "", {}});
    X11Ewmh ewmh(*display_);
    EXPECT_FALSE(ewmh.windowIcon(static_cast<xcb_window_t>(bogus), 32).has_value());
    EXPECT_FALSE(ewmh.windowIcon(static_cast<xcb_window_t>(plain), 32).has_value());
}

TEST_F(X11Plumbing, ewmh_windowsOfAnApplication_areListedDescribedAndActivated) {
    ASSERT_TRUE(server_.startWindowManager());
    X11Ewmh ewmh(*display_);
    EXPECT_TRUE(ewmh.windowManagerPresent());

    X11TestDesktop desktop(server_.name());
    const Window first = desktop.createWindow(
        {4242, "testapp", "TestApp", "First window", "", X11TestDesktop::redAndGreenIcon()});
    const Window second = desktop.createWindow({4243, "testapp", "TestApp", "Second window", "", {}});
    ASSERT_TRUE(waitFor([&] { return ewmh.clientList().size() == 2; })) << ewmh.clientList().size();
    EXPECT_EQ(ewmh.clientList(), (std::vector<xcb_window_t>{static_cast<xcb_window_t>(first),
                                                            static_cast<xcb_window_t>(second)}));

    const auto infos =
        ewmh.describe({static_cast<xcb_window_t>(first), static_cast<xcb_window_t>(second), 0x7fffff0});
    ASSERT_EQ(infos.size(), 3u);
    EXPECT_TRUE(infos[0].exists);
    EXPECT_EQ(infos[0].pid, 4242);
    EXPECT_TRUE(ewmh.isNormalOrDialog(infos[0]));
    EXPECT_EQ(infos[1].pid, 4243);
    EXPECT_FALSE(infos[2].exists);

    // The smallest icon not below the wanted size, else the largest.
    auto icon = ewmh.windowIcon(static_cast<xcb_window_t>(first), 24);
    ASSERT_TRUE(icon.has_value());
    EXPECT_EQ(icon->width, 32);
    EXPECT_EQ(icon->argb.size(), 32u * 32u);
    EXPECT_EQ(icon->argb.front(), 0xff00ff00u);
    icon = ewmh.windowIcon(static_cast<xcb_window_t>(first), 8);
    ASSERT_TRUE(icon.has_value());
    EXPECT_EQ(icon->width, 16);
    EXPECT_EQ(ewmh.windowIcon(static_cast<xcb_window_t>(first), 64)->width, 32);

    EXPECT_TRUE(ewmh.activateWindow(static_cast<xcb_window_t>(first)));
    EXPECT_TRUE(waitFor([&] { return ewmh.activeWindow() == first; }));
    EXPECT_TRUE(ewmh.activateWindow(static_cast<xcb_window_t>(second)));
    EXPECT_TRUE(waitFor([&] { return ewmh.activeWindow() == second; }));
    EXPECT_FALSE(ewmh.activateWindow(0x7fffff0));
}

TEST(X11ConnectionLoss, serverGoesAway_displayMarkedLostThenReconnects) {
    VXH_REQUIRE_PLATFORM(xvfbInstalled(), "Xvfb is not installed");
    XvfbProcess server;
    ASSERT_TRUE(server.startRestartable(640, 480));
    const int number = server.number();

    X11Connection connection("test", server.name());
    connection.setRetryInterval(std::chrono::milliseconds(0));
    X11Display* display = connection.get();
    ASSERT_NE(display, nullptr);

    server.stop();
    // The next round trip finds the connection gone: no exit.
    XSync(display->display(), False);
    EXPECT_TRUE(display->isLost());
    EXPECT_EQ(connection.get(), nullptr);

    XvfbProcess restarted;
    ASSERT_TRUE(restarted.start(800, 600, number));
    X11Display* again = nullptr;
    ASSERT_TRUE(waitFor([&] { return (again = connection.get()) != nullptr; }));
    EXPECT_EQ(X11ScreenGeometry::rootRect(*again), (X11Rect{0, 0, 800, 600}));
}
