#include "platform/x11/X11ErrorTrap.h"

#include <X11/Xlib.h>

namespace {
thread_local X11ErrorTrap* currentTrap = nullptr;
}

X11ErrorTrap::X11ErrorTrap(Display* display) : display_(display), previous_(currentTrap) {
    // Errors of requests made before the trap belong to nobody.
    XSync(display_, False);
    currentTrap = this;
}

X11ErrorTrap::~X11ErrorTrap() {
    currentTrap = previous_;
}

bool X11ErrorTrap::failed() {
    XSync(display_, False);
    return errorCode_ != Success;
}

bool X11ErrorTrap::recordOnThisThread(Display* display, int errorCode) {
    for (X11ErrorTrap* trap = currentTrap; trap != nullptr; trap = trap->previous_) {
        if (trap->display_ == display) {
            if (trap->errorCode_ == Success) {
                trap->errorCode_ = errorCode;
            }
            return true;
        }
    }
    return false;
}
