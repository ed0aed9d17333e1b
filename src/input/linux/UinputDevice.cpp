#include "input/linux/UinputDevice.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/uinput.h>
#include <sys/ioctl.h>
#include <unistd.h>

bool UinputDevice::isAvailable(const std::string& path) {
    return access(path.c_str(), W_OK) == 0;
}

std::unique_ptr<UinputDevice> UinputDevice::create(Kind kind, int width, int height,
                                                   const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    std::unique_ptr<UinputDevice> device(new UinputDevice(fd));
    bool ok = ioctl(fd, UI_SET_EVBIT, EV_SYN) == 0 && ioctl(fd, UI_SET_EVBIT, EV_KEY) == 0;
    uinput_setup setup{};
    setup.id.bustype = BUS_VIRTUAL;
    setup.id.vendor = 0x1209;
    if (kind == Kind::keyboardAndMouse) {
        std::strncpy(setup.name, "VelorixHelper keyboard and mouse", UINPUT_MAX_NAME_SIZE - 1);
        setup.id.product = 1;
        for (int key = 1; key < 256 && ok; ++key) {
            ok = ioctl(fd, UI_SET_KEYBIT, key) == 0;
        }
        for (int button : {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE}) {
            ok = ok && ioctl(fd, UI_SET_KEYBIT, button) == 0;
        }
        ok = ok && ioctl(fd, UI_SET_EVBIT, EV_REL) == 0;
        for (int axis : {REL_X, REL_Y, REL_WHEEL, REL_HWHEEL}) {
            ok = ok && ioctl(fd, UI_SET_RELBIT, axis) == 0;
        }
    } else {
        std::strncpy(setup.name, "VelorixHelper pointer", UINPUT_MAX_NAME_SIZE - 1);
        setup.id.product = 2;
        ok = ok && ioctl(fd, UI_SET_KEYBIT, BTN_LEFT) == 0 && ioctl(fd, UI_SET_EVBIT, EV_ABS) == 0 &&
             ioctl(fd, UI_SET_PROPBIT, INPUT_PROP_POINTER) == 0;
        for (int axis : {ABS_X, ABS_Y}) {
            uinput_abs_setup abs{};
            abs.code = static_cast<__u16>(axis);
            abs.absinfo.minimum = 0;
            abs.absinfo.maximum = (axis == ABS_X ? width : height) - 1;
            ok = ok && ioctl(fd, UI_SET_ABSBIT, axis) == 0 && ioctl(fd, UI_ABS_SETUP, &abs) == 0;
        }
    }
    ok = ok && ioctl(fd, UI_DEV_SETUP, &setup) == 0 && ioctl(fd, UI_DEV_CREATE) == 0;
    return ok ? std::move(device) : nullptr;
}

UinputDevice::~UinputDevice() {
    if (fd_ >= 0) {
        ioctl(fd_, UI_DEV_DESTROY);
        close(fd_);
    }
}

bool UinputDevice::write(const std::vector<input_event>& events) {
    const auto size = static_cast<ssize_t>(events.size() * sizeof(input_event));
    ssize_t written;
    while ((written = ::write(fd_, events.data(), static_cast<size_t>(size))) < 0 && errno == EINTR) {
    }
    return written == size;
}
