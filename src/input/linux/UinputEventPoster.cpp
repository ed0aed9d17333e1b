#include "input/linux/UinputEventPoster.h"

#include "input/linux/UinputDevice.h"

#include <algorithm>
#include <fstream>

namespace {

input_event makeEvent(int type, int code, int value) {
    input_event event{};
    event.type = static_cast<__u16>(type);
    event.code = static_cast<__u16>(code);
    event.value = value;
    return event;
}

// The framebuffer's size ("1920,1080" in virtual_size), else a common screen size.
VXSize framebufferSize() {
    std::ifstream in("/sys/class/graphics/fb0/virtual_size");
    int width = 0;
    int height = 0;
    char comma = 0;
    if (in >> width >> comma >> height && comma == ',' && width > 0 && height > 0) {
        return VXSize{static_cast<double>(width), static_cast<double>(height)};
    }
    return VXSize{1920, 1080};
}

} // namespace

UinputEventPoster::UinputEventPoster(std::unique_ptr<UinputDeviceWriter> keyboardAndMouse,
                                     std::unique_ptr<UinputDeviceWriter> absolutePointer, VXSize screenSize)
    : keyboardAndMouse_(std::move(keyboardAndMouse)), absolutePointer_(std::move(absolutePointer)),
      screenSize_(screenSize) {}

UinputEventPoster::~UinputEventPoster() = default;

std::shared_ptr<UinputEventPoster> UinputEventPoster::create() {
    if (!UinputDevice::isAvailable()) {
        return nullptr;
    }
    const VXSize size = framebufferSize();
    auto keyboard = UinputDevice::create(UinputDevice::Kind::keyboardAndMouse, 0, 0);
    auto pointer = UinputDevice::create(UinputDevice::Kind::absolutePointer, static_cast<int>(size.width),
                                        static_cast<int>(size.height));
    if (!keyboard || !pointer) {
        return nullptr;
    }
    return std::make_shared<UinputEventPoster>(std::move(keyboard), std::move(pointer), size);
}

int UinputEventPoster::send(UinputDeviceWriter& device, std::vector<input_event> events) {
    events.push_back(makeEvent(EV_SYN, SYN_REPORT, 0));
    return device.write(events) ? 0 : writeFailedStatus;
}

int UinputEventPoster::placePointer(int x, int y) {
    std::lock_guard<std::mutex> lock(mutex_);
    // The device's range is the screen: a point outside lands on its edge, as on a real screen.
    const int cx = std::clamp(x, 0, std::max(0, static_cast<int>(screenSize_.width) - 1));
    const int cy = std::clamp(y, 0, std::max(0, static_cast<int>(screenSize_.height) - 1));
    const int status = send(*absolutePointer_, {makeEvent(EV_ABS, ABS_X, cx), makeEvent(EV_ABS, ABS_Y, cy)});
    if (status == 0) {
        location_ = VXPoint{static_cast<double>(cx), static_cast<double>(cy)};
    }
    return status;
}

int UinputEventPoster::postPointerMotion(int x, int y) {
    return placePointer(x, y);
}

int UinputEventPoster::postButton(Button button, bool down) {
    std::lock_guard<std::mutex> lock(mutex_);
    return send(*keyboardAndMouse_,
                {makeEvent(EV_KEY, button == Button::left ? BTN_LEFT : BTN_RIGHT, down ? 1 : 0)});
}

int UinputEventPoster::postScroll(int vertical, int horizontal) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<input_event> events;
    if (vertical != 0) {
        events.push_back(makeEvent(EV_REL, REL_WHEEL, vertical > 0 ? 1 : -1)); // positive: up
    }
    if (horizontal != 0) {
        events.push_back(makeEvent(EV_REL, REL_HWHEEL, horizontal > 0 ? -1 : 1)); // positive: right
    }
    return events.empty() ? 0 : send(*keyboardAndMouse_, std::move(events));
}

int UinputEventPoster::postKey(int evdevCode, bool down) {
    std::lock_guard<std::mutex> lock(mutex_);
    return send(*keyboardAndMouse_, {makeEvent(EV_KEY, evdevCode, down ? 1 : 0)});
}

std::optional<VXPoint> UinputEventPoster::pointerLocation() {
    std::lock_guard<std::mutex> lock(mutex_);
    return location_;
}
