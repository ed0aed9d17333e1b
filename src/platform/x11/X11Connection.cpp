#include "platform/x11/X11Connection.h"

#include "transport/PZLogger.h"

#include <cstdlib>

X11Connection::X11Connection(std::string owner, std::string displayName)
    : owner_(std::move(owner)), displayName_(std::move(displayName)) {}

X11Display* X11Connection::get() {
    if (display_ && display_->isLost()) {
        display_.reset();
        attempted_ = false;
    }
    if (display_) {
        return display_.get();
    }
    const auto now = std::chrono::steady_clock::now();
    if (attempted_ && now - lastAttempt_ < retryInterval_) {
        return nullptr;
    }
    attempted_ = true;
    lastAttempt_ = now;
    display_ = X11Display::open(displayName_.empty() ? nullptr : displayName_.c_str());
    if (!display_) {
        if (!absenceLogged_) {
            const char* env = std::getenv("DISPLAY");
            const std::string which =
                !displayName_.empty() ? displayName_ : (env != nullptr ? env : "(unset)");
            PZLog(owner_ + ": no X display at " + which + "; will try again on a later use");
            absenceLogged_ = true;
        }
        return nullptr;
    }
    if (absenceLogged_) {
        PZLog(owner_ + ": connected to the X display " + display_->name());
        absenceLogged_ = false;
    }
    return display_.get();
}

void X11Connection::reset() {
    display_.reset();
    attempted_ = false;
}
