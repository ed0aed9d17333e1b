#include "input/linux/X11ProcessActivator.h"

#include "platform/x11/X11Ewmh.h"
#include "sysinfo/linux/X11ProcessSource.h"

#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <cstdlib>
#include <poll.h>

X11ProcessActivator::X11ProcessActivator(std::string displayName)
    : connection_("Input focus", std::move(displayName)) {}

X11Display* X11ProcessActivator::display() {
    if (current_ != nullptr && (current_->isLost() || xcb_connection_has_error(current_->xcb()) != 0)) {
        connection_.reset();
        current_ = nullptr;
    }
    if (current_ == nullptr) {
        current_ = connection_.get();
        if (current_ != nullptr) {
            XSetEventQueueOwner(current_->display(), XCBOwnsEventQueue);
            const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
            xcb_change_window_attributes(current_->xcb(), static_cast<xcb_window_t>(current_->root()),
                                         XCB_CW_EVENT_MASK, &mask);
            xcb_flush(current_->xcb());
            activeStale_ = true;
            pids_.clear();
        }
    }
    return current_;
}

void X11ProcessActivator::readEvents() {
    const auto activeAtom = static_cast<xcb_atom_t>(current_->atom("_NET_ACTIVE_WINDOW"));
    while (xcb_generic_event_t* event = xcb_poll_for_event(current_->xcb())) {
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY &&
            reinterpret_cast<xcb_property_notify_event_t*>(event)->atom == activeAtom) {
            activeStale_ = true;
        }
        std::free(event);
    }
}

std::uint32_t X11ProcessActivator::activeWindow() {
    if (activeStale_) {
        activeStale_ = false;
        active_ = X11Ewmh(*current_).activeWindow();
    }
    return active_;
}

int X11ProcessActivator::pidOfWindow(std::uint32_t window) {
    if (window == 0) {
        return 0;
    }
    auto it = pids_.find(window);
    if (it != pids_.end()) {
        return it->second;
    }
    const auto infos = X11Ewmh(*current_).describe({window});
    const int pid = infos.empty() || !infos.front().exists ? 0 : infos.front().pid;
    if (pids_.size() > 1024) {
        pids_.clear();
    }
    pids_[window] = pid;
    return pid;
}

bool X11ProcessActivator::activeBelongsTo(std::int64_t pid) {
    return pidOfWindow(activeWindow()) == pid;
}

bool X11ProcessActivator::focusBelongsTo(std::int64_t pid) {
    xcb_connection_t* c = current_->xcb();
    xcb_get_input_focus_reply_t* reply = xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr);
    if (reply == nullptr) {
        return false;
    }
    const xcb_window_t focus = reply->focus;
    std::free(reply);
    return focus != XCB_NONE && focus != XCB_INPUT_FOCUS_POINTER_ROOT && pidOfWindow(focus) == pid;
}

void X11ProcessActivator::raise(std::uint32_t window) {
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

bool X11ProcessActivator::activateProcess(std::int64_t pid) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (display() == nullptr) {
        return false;
    }
    readEvents();
    if (activeBelongsTo(pid)) {
        return true;
    }
    X11Ewmh ewmh(*current_);
    auto windows = ewmh.clientListStacking();
    if (windows.empty()) {
        windows = ewmh.clientList();
    }
    const auto infos = ewmh.describe(windows);
    for (auto it = infos.rbegin(); it != infos.rend(); ++it) {
        pids_[it->window] = it->pid;
        if (it->exists && it->pid == pid && ewmh.isNormalOrDialog(*it)) {
            raise(it->window);
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
    readEvents();
    X11Ewmh ewmh(*current_);
    auto windows = ewmh.clientListStacking();
    if (windows.empty()) {
        windows = ewmh.clientList();
    }
    const auto infos = ewmh.describe(windows);
    for (auto it = infos.rbegin(); it != infos.rend(); ++it) {
        pids_[it->window] = it->pid;
        if (it->exists && it->pid > 0 && ewmh.isNormalOrDialog(*it) &&
            X11ProcessSource::executableName(it->pid) == name) {
            if (!activeBelongsTo(it->pid)) {
                raise(it->window);
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
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    readEvents();
    if (activeBelongsTo(pid)) {
        return true;
    }
    if (!X11Ewmh(*current_).windowManagerPresent()) {
        return focusBelongsTo(pid); // the focus was set directly, already in effect
    }
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        pollfd fd{xcb_get_file_descriptor(current_->xcb()), POLLIN, 0};
        poll(&fd, 1, static_cast<int>(left.count()));
        readEvents();
        if (activeBelongsTo(pid)) {
            return true;
        }
    }
}
