#include "input/linux/X11InputConnection.h"

#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <xcb/xtest.h>

X11InputConnection::X11InputConnection(std::string displayName)
    : connection_("Input", std::move(displayName)) {}

X11Display* X11InputConnection::display() {
    if (current_ != nullptr && (current_->isLost() || xcb_connection_has_error(current_->xcb()) != 0)) {
        connection_.reset();
        current_ = nullptr;
    }
    if (current_ != nullptr) {
        return current_;
    }
    current_ = connection_.get();
    if (current_ != nullptr) {
        XSetEventQueueOwner(current_->display(), XCBOwnsEventQueue);
        const xcb_query_extension_reply_t* xtest = xcb_get_extension_data(current_->xcb(), &xcb_test_id);
        hasXTest_ = xtest != nullptr && xtest->present != 0;
        ++generation_;
    }
    return current_;
}
