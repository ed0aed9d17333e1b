#include "input/PZMouse.h"

#include "input/EventPoster.h"
#include "input/InputText.h"

#include <cmath>
#include <cstdlib>

namespace {

// A double truncated toward zero to a 32-bit integer (NaN gives 0, values beyond the range the nearest end).
std::int32_t truncated(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    const double whole = std::trunc(value);
    if (whole >= 2147483647.0) {
        return 2147483647;
    }
    if (whole <= -2147483648.0) {
        return -2147483647 - 1;
    }
    return static_cast<std::int32_t>(whole);
}

// A coordinate as the driver takes it: truncated toward zero, then its low 16 bits.
int driverCoordinate(double value) {
    return static_cast<std::int16_t>(
        static_cast<std::uint16_t>(static_cast<std::uint32_t>(truncated(value)) & 0xFFFFu));
}

std::string statusLine(const char* prefix, int status) {
    return std::string(prefix) + " return " + std::to_string(status) + " != KERN_SUCCESS\n";
}

} // namespace

PZMouse::PZMouse(std::shared_ptr<EventPoster> poster) : eventDriver_(std::move(poster)) {
    log_ = screenSizeLine();
}

PZMouse::~PZMouse() {
    eventDriver_->postButton(EventPoster::Button::left, false);
    eventDriver_->postButton(EventPoster::Button::right, false);
}

std::string PZMouse::screenSizeLine() {
    const auto size = eventDriver_->mainScreenSize().value_or(VXSize{});
    return "Main screen size " + InputText::size(size.width, size.height) + "\n";
}

std::string PZMouse::log() const {
    std::lock_guard<std::mutex> lock(logMutex_);
    return log_;
}

void PZMouse::addLogMessage(const std::string& text) {
    std::lock_guard<std::mutex> lock(logMutex_);
    if (log_.size() > logLimit) {
        std::size_t cut = log_.size() - logLimit;
        // Never leave half a UTF-8 sequence at the start.
        while (cut < log_.size() && (static_cast<unsigned char>(log_[cut]) & 0xC0) == 0x80) {
            ++cut;
        }
        log_.erase(0, cut);
        log_ += screenSizeLine();
    }
    log_ += text;
}

VXPoint PZMouse::getLocation() {
    return eventDriver_->pointerLocation().value_or(VXPoint{});
}

void PZMouse::moveToPoint(VXPoint point) {
    const int x = driverCoordinate(point.x);
    const int y = driverCoordinate(point.y);
    const int placed = eventDriver_->placePointer(x, y);
    if (placed != 0) {
        addLogMessage(statusLine("IOHIDSetMouseLocation", placed));
    } else {
        const VXPoint at = getLocation();
        if (at.x >= point.x - 50 && at.x <= point.x + 50 && at.y >= point.y - 50 && at.y <= point.y + 50) {
            return;
        }
        addLogMessage("IOHIDSetMouseLocation set mouse at " + InputText::point(at.x, at.y) +
                      " when request is " + InputText::point(point.x, point.y) + "\n");
    }
    const int moved = eventDriver_->postPointerMotion(x, y);
    if (moved != 0) {
        addLogMessage(statusLine("IOHIDPostEvent(mouse move)", moved));
        return;
    }
    const VXPoint at = getLocation();
    if (at.x >= point.x - 50 && at.x <= point.x + 50 && at.y >= point.y - 1 && at.y <= point.y + 50) {
        return;
    }
    addLogMessage("IOHIDPostEvent(mouse move) set mouse at " + InputText::point(at.x, at.y) +
                  " when request is " + InputText::point(point.x, point.y) + "\n");
}

void PZMouse::translateOf(VXPoint displacement) {
    const VXPoint at = getLocation();
    moveToPoint(VXPoint{at.x + displacement.x, at.y + displacement.y});
}

void PZMouse::postButton(int button, bool down, const char* eventName) {
    // Button events happen where the pointer is; the back ends need no position for them.
    const int status =
        eventDriver_->postButton(button == 1 ? EventPoster::Button::left : EventPoster::Button::right, down);
    if (status != 0) {
        addLogMessage(statusLine(eventName, status));
    }
}

void PZMouse::leftMouseDown() {
    postButton(1, true, "IOHIDPostEvent(NX_LMOUSEDOWN)");
}

void PZMouse::leftMouseUp() {
    postButton(1, false, "IOHIDPostEvent(NX_LMOUSEUP)");
}

void PZMouse::rightMouseDown() {
    postButton(3, true, "IOHIDPostEvent(NX_RMOUSEDOWN)");
}

void PZMouse::rightMouseUp() {
    postButton(3, false, "IOHIDPostEvent(NX_RMOUSEUP)");
}

void PZMouse::click() {
    leftMouseDown();
    leftMouseUp();
}

void PZMouse::rightClick() {
    rightMouseDown();
    rightMouseUp();
}

void PZMouse::doubleClick() {
    click();
    click();
}

void PZMouse::scrollWheel(VXPoint displacement) {
    if (displacement.x == 0 && displacement.y == 0) {
        return;
    }
    const std::int64_t ax = std::abs(static_cast<std::int64_t>(truncated(displacement.x)));
    const std::int64_t ay = std::abs(static_cast<std::int64_t>(truncated(displacement.y)));
    const std::int64_t s = scrollWheelSensibility_;
    if (s > ax && s > ay) {
        return;
    }
    int first = 0;  // vertical
    int second = 0; // horizontal
    if (ax > s) {
        second = displacement.x > 0 ? -1 : 1;
    }
    if (ay > s) {
        first = displacement.y > 0 ? -1 : 1;
    }
    const int status = eventDriver_->postScroll(first, second);
    if (status != 0) {
        addLogMessage(statusLine("IOHIDPostEvent(NX_SCROLLWHEELMOVED)", status));
    }
}
