#include "input/linux/XTestEventPoster.h"

#include "input/linux/X11InputConnection.h"
#include "platform/x11/X11ScreenGeometry.h"

#include <cstdlib>
#include <xcb/xtest.h>

XTestEventPoster::XTestEventPoster(std::shared_ptr<X11InputConnection> connection)
    : connection_(std::move(connection)) {}

bool XTestEventPoster::available() {
    auto lock = connection_->lock();
    return connection_->display() != nullptr && connection_->hasXTest();
}

int XTestEventPoster::fake(std::uint8_t type, std::uint8_t detail, int x, int y, bool flush) {
    auto lock = connection_->lock();
    X11Display* display = connection_->display();
    if (display == nullptr) {
        return noDisplayStatus;
    }
    if (!connection_->hasXTest()) {
        return noXTestStatus;
    }
    xcb_test_fake_input(display->xcb(), type, detail, XCB_CURRENT_TIME,
                        static_cast<xcb_window_t>(display->root()), static_cast<std::int16_t>(x),
                        static_cast<std::int16_t>(y), 0);
    if (flush) {
        xcb_flush(display->xcb());
    }
    // A server that went away shows here first; the next use connects again.
    return xcb_connection_has_error(display->xcb()) != 0 ? noDisplayStatus : 0;
}

int XTestEventPoster::placePointer(int x, int y) {
    auto lock = connection_->lock();
    X11Display* display = connection_->display();
    if (display == nullptr) {
        return noDisplayStatus;
    }
    xcb_warp_pointer(display->xcb(), XCB_NONE, static_cast<xcb_window_t>(display->root()), 0, 0, 0, 0,
                     static_cast<std::int16_t>(x), static_cast<std::int16_t>(y));
    xcb_flush(display->xcb());
    return xcb_connection_has_error(display->xcb()) != 0 ? noDisplayStatus : 0;
}

int XTestEventPoster::postPointerMotion(int x, int y) {
    return fake(XCB_MOTION_NOTIFY, 0, x, y);
}

int XTestEventPoster::postButton(Button button, bool down) {
    return fake(down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, static_cast<std::uint8_t>(button));
}

int XTestEventPoster::postScroll(int vertical, int horizontal) {
    auto lock = connection_->lock();
    int status = 0;
    const auto step = [&](std::uint8_t button) {
        if (status == 0) {
            status = fake(XCB_BUTTON_PRESS, button);
        }
        if (status == 0) {
            status = fake(XCB_BUTTON_RELEASE, button);
        }
    };
    if (vertical != 0) {
        step(vertical > 0 ? 4 : 5);
    }
    if (horizontal != 0) {
        step(horizontal > 0 ? 6 : 7);
    }
    return status;
}

int XTestEventPoster::postKey(int evdevCode, bool down) {
    const int keycode = evdevCode + 8;
    if (keycode < 8 || keycode > 255) {
        return badKeyStatus;
    }
    // A key press goes out with the release that follows it: one write per key instead of two.
    return fake(down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, static_cast<std::uint8_t>(keycode), 0, 0, !down);
}

std::optional<VXPoint> XTestEventPoster::pointerLocation() {
    auto lock = connection_->lock();
    X11Display* display = connection_->display();
    if (display == nullptr) {
        return std::nullopt;
    }
    xcb_connection_t* c = display->xcb();
    xcb_query_pointer_reply_t* reply =
        xcb_query_pointer_reply(c, xcb_query_pointer(c, static_cast<xcb_window_t>(display->root())), nullptr);
    if (reply == nullptr) {
        return std::nullopt;
    }
    const VXPoint point{static_cast<double>(reply->root_x), static_cast<double>(reply->root_y)};
    std::free(reply);
    return point;
}

std::optional<VXSize> XTestEventPoster::mainScreenSize() {
    auto lock = connection_->lock();
    X11Display* display = connection_->display();
    if (display == nullptr) {
        return std::nullopt;
    }
    const X11Rect screen = X11ScreenGeometry::mainScreen(*display);
    return VXSize{static_cast<double>(screen.width), static_cast<double>(screen.height)};
}
