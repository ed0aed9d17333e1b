#include "input/linux/X11ProcessActivator.h"

#include "platform/x11/X11Ewmh.h"
#include "sysinfo/linux/X11ProcessSource.h"

#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <cstdlib>
#include <thread>

X11ProcessActivator::X11ProcessActivator(std::string displayName)
    : connection_("Input focus", std::move(displayName)) {}

X11Display* X11ProcessActivator::display() {
    if (current_ != nullptr) {
        // A server that went away is seen by reading from it: what was watched is void.
        readEvents();
    }
    if (current_ != nullptr && (current_->isLost() || xcb_connection_has_error(current_->xcb()) != 0)) {
        connection_.reset();
        current_ = nullptr;
        focus_ = 0;
        raised_ = 0;
    }
    if (current_ == nullptr) {
        current_ = connection_.get();
        if (current_ != nullptr) {
            XSetEventQueueOwner(current_->display(), XCBOwnsEventQueue);
            // Windows that come and go (client list, top-level windows) make the remembered pids stale.
            const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
            xcb_change_window_attributes(current_->xcb(), static_cast<xcb_window_t>(current_->root()),
                                         XCB_CW_EVENT_MASK, &mask);
            xcb_flush(current_->xcb());
            pids_.clear();
            focus_ = 0;
        }
    }
    return current_;
}

void X11ProcessActivator::readEvents() {
    const auto clientListAtom = static_cast<xcb_atom_t>(current_->atom("_NET_CLIENT_LIST"));
    while (xcb_generic_event_t* event = xcb_poll_for_event(current_->xcb())) {
        const std::uint8_t type = event->response_type & 0x7f;
        if (type == XCB_FOCUS_OUT) {
            const auto* out = reinterpret_cast<xcb_focus_out_event_t*>(event);
            // The focus moving into a child of the window stays with its process.
            if (out->event == focus_ && out->detail != XCB_NOTIFY_DETAIL_INFERIOR) {
                focus_ = 0;
            }
        } else if (type == XCB_DESTROY_NOTIFY || type == XCB_UNMAP_NOTIFY) {
            const auto window = type == XCB_DESTROY_NOTIFY
                                    ? reinterpret_cast<xcb_destroy_notify_event_t*>(event)->window
                                    : reinterpret_cast<xcb_unmap_notify_event_t*>(event)->window;
            if (window == focus_) {
                focus_ = 0;
            }
            pids_.clear();
        } else if (type == XCB_CREATE_NOTIFY || type == XCB_REPARENT_NOTIFY ||
                   (type == XCB_PROPERTY_NOTIFY &&
                    reinterpret_cast<xcb_property_notify_event_t*>(event)->atom == clientListAtom)) {
            pids_.clear();
        }
        std::free(event);
    }
}

int X11ProcessActivator::pidOfWindow(std::uint32_t window) {
    if (window == 0) {
        return 0;
    }
    auto it = pids_.find(window);
    if (it != pids_.end()) {
        return it->second;
    }
    xcb_connection_t* c = current_->xcb();
    X11Ewmh ewmh(*current_);
    int pid = 0;
    std::uint32_t at = window;
    for (int depth = 0; depth < 16 && at != 0 && at != current_->root(); ++depth) {
        const auto infos = ewmh.describe({at});
        if (!infos.empty() && infos.front().pid > 0) {
            pid = infos.front().pid;
            break;
        }
        xcb_query_tree_reply_t* tree = xcb_query_tree_reply(c, xcb_query_tree(c, at), nullptr);
        at = tree != nullptr ? tree->parent : 0;
        std::free(tree);
    }
    if (pids_.size() > 1024) {
        pids_.clear();
    }
    pids_[window] = pid;
    return pid;
}

bool X11ProcessActivator::focusBelongsTo(std::int64_t pid) {
    // The watched window's focus-out may be waiting unread: the focus it remembers is taken only after.
    readEvents();
    if (focus_ != 0) {
        return focusPid_ == pid;
    }
    xcb_connection_t* c = current_->xcb();
    xcb_get_input_focus_reply_t* reply = xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr);
    if (reply == nullptr) {
        return false;
    }
    const xcb_window_t focus = reply->focus;
    std::free(reply);
    if (focus == XCB_NONE || focus == XCB_INPUT_FOCUS_POINTER_ROOT) {
        return false;
    }
    const int focusPid = pidOfWindow(focus);
    if (focusPid > 0) {
        // Watched from now on: a focus-out or its end tells that the focus left it.
        const std::uint32_t mask = XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(c, focus, XCB_CW_EVENT_MASK, &mask);
        // Whether the focus left before the watch began: read again, after it.
        xcb_get_input_focus_reply_t* again = xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr);
        if (again != nullptr && again->focus == focus) {
            focus_ = focus;
            focusPid_ = focusPid;
        }
        std::free(again);
    }
    return focusPid == pid;
}

void X11ProcessActivator::raise(std::uint32_t window) {
    focus_ = 0;
    X11Ewmh ewmh(*current_);
    if (ewmh.windowManagerPresent()) {
        ewmh.activateWindow(window);
        return;
    }
    xcb_connection_t* c = current_->xcb();
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(c, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    xcb_set_input_focus(c, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
    xcb_flush(c);
}

std::vector<std::uint32_t> X11ProcessActivator::windowsBottomToTop() {
    X11Ewmh ewmh(*current_);
    auto windows = ewmh.clientListStacking();
    if (windows.empty()) {
        windows = ewmh.clientList();
    }
    if (!windows.empty() || ewmh.windowManagerPresent()) {
        return windows;
    }
    // No window manager: the root's mapped children, in stacking order.
    xcb_connection_t* c = current_->xcb();
    xcb_query_tree_reply_t* tree =
        xcb_query_tree_reply(c, xcb_query_tree(c, static_cast<xcb_window_t>(current_->root())), nullptr);
    if (tree == nullptr) {
        return windows;
    }
    const xcb_window_t* children = xcb_query_tree_children(tree);
    const int count = xcb_query_tree_children_length(tree);
    std::vector<xcb_get_window_attributes_cookie_t> cookies;
    for (int i = 0; i < count; ++i) {
        cookies.push_back(xcb_get_window_attributes(c, children[i]));
    }
    for (int i = 0; i < count; ++i) {
        xcb_get_window_attributes_reply_t* attributes =
            xcb_get_window_attributes_reply(c, cookies[i], nullptr);
        if (attributes != nullptr && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
            attributes->override_redirect == 0) {
            windows.push_back(children[i]);
        }
        std::free(attributes);
    }
    std::free(tree);
    return windows;
}

bool X11ProcessActivator::activateProcess(std::int64_t pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (display() == nullptr) {
        return false;
    }
    if (focusBelongsTo(pid)) {
        return true;
    }
    X11Ewmh ewmh(*current_);
    const auto infos = ewmh.describe(windowsBottomToTop());
    for (auto it = infos.rbegin(); it != infos.rend(); ++it) {
        pids_[it->window] = it->pid;
        if (it->exists && it->pid == pid && ewmh.isNormalOrDialog(*it)) {
            raise(it->window);
            raised_ = it->window;
            raisedPid_ = pid;
            return true;
        }
    }
    return false;
}

std::optional<std::int64_t> X11ProcessActivator::activateProcessNamed(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (display() == nullptr) {
        return std::nullopt;
    }
    X11Ewmh ewmh(*current_);
    const auto infos = ewmh.describe(windowsBottomToTop());
    for (auto it = infos.rbegin(); it != infos.rend(); ++it) {
        pids_[it->window] = it->pid;
        if (it->exists && it->pid > 0 && ewmh.isNormalOrDialog(*it) &&
            X11ProcessSource::executableName(it->pid) == name) {
            if (!focusBelongsTo(it->pid)) {
                raise(it->window);
                raised_ = it->window;
                raisedPid_ = it->pid;
            }
            return it->pid;
        }
    }
    return std::nullopt;
}

bool X11ProcessActivator::waitForFocus(std::int64_t pid, std::chrono::milliseconds timeout) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (display() == nullptr) {
        return false;
    }
    constexpr auto kRepeat = std::chrono::milliseconds(40);
    auto now = std::chrono::steady_clock::now();
    const auto deadline = now + timeout;
    auto repeatAt = now + kRepeat;
    while (true) {
        if (focusBelongsTo(pid)) {
            return true;
        }
        now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            return false;
        }
        if (now >= repeatAt && raised_ != 0 && raisedPid_ == pid) {
            raise(raised_);
            repeatAt = now + kRepeat;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
