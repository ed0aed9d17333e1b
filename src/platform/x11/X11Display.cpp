#include "platform/x11/X11Display.h"

#include "platform/x11/X11ErrorTrap.h"
#include "transport/PZLogger.h"

#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>

#include <fcntl.h>

namespace {

int nonFatalErrorHandler(Display* display, XErrorEvent* event) {
    X11ErrorTrap::recordOnThisThread(display, event->error_code);
    return 0;
}

// Returning lets the per-display exit handler run instead of the default exit.
int quietIOErrorHandler(Display*) {
    return 0;
}

} // namespace

void X11Display::initThreads() {
    static std::once_flag once;
    std::call_once(once, [] {
        XInitThreads();
        XSetErrorHandler(nonFatalErrorHandler);
        XSetIOErrorHandler(quietIOErrorHandler);
    });
}

std::unique_ptr<X11Display> X11Display::open(const char* name) {
    initThreads();
    Display* display = XOpenDisplay(name);
    if (display == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<X11Display>(new X11Display(display, XDisplayString(display)));
}

X11Display::X11Display(Display* display, std::string name) : display_(display), name_(std::move(name)) {
    xcb_ = XGetXCBConnection(display_);
    screen_ = DefaultScreen(display_);
    root_ = RootWindow(display_, screen_);
    // Programs that are launched later must not inherit the connection.
    const int fd = ConnectionNumber(display_);
    fcntl(fd, F_SETFD, fcntl(fd, F_GETFD) | FD_CLOEXEC);
    XSetIOErrorExitHandler(display_, &X11Display::onConnectionLost, this);
}

X11Display::~X11Display() {
    if (display_ != nullptr) {
        XCloseDisplay(display_);
    }
}

void X11Display::onConnectionLost(Display*, void* userData) {
    auto* self = static_cast<X11Display*>(userData);
    if (!self->lost_.exchange(true)) {
        PZLog("X11: connection to the X server " + self->name_ + " lost");
    }
}

bool X11Display::isLost() const {
    // Requests made through XCB alone never reach Xlib's I/O error handler: a connection that XCB
    // found broken is lost as well.
    return lost_.load(std::memory_order_acquire) || (xcb_ != nullptr && xcb_connection_has_error(xcb_) != 0);
}

unsigned long X11Display::atom(const char* name) {
    std::lock_guard<std::mutex> lock(atomsMutex_);
    auto it = atoms_.find(name);
    if (it != atoms_.end()) {
        return it->second;
    }
    const unsigned long atom = isLost() ? None : XInternAtom(display_, name, False);
    if (atom != None) {
        atoms_.emplace(name, atom);
    }
    return atom;
}
