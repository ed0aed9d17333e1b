#include "X11TestDesktop.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <chrono>
#include <thread>

X11TestDesktop::X11TestDesktop(const std::string& displayName)
    : display_(XOpenDisplay(displayName.c_str())) {}

X11TestDesktop::~X11TestDesktop() {
    if (display_ != nullptr) {
        XCloseDisplay(display_);
    }
}

void X11TestDesktop::fillRoot(int x, int y, int width, int height, std::uint32_t rgb) {
    const Window root = DefaultRootWindow(display_);
    GC gc = XCreateGC(display_, root, 0, nullptr);
    XSetSubwindowMode(display_, gc, IncludeInferiors);
    XSetForeground(display_, gc, rgb);
    XFillRectangle(display_, root, gc, x, y, static_cast<unsigned>(width), static_cast<unsigned>(height));
    XFreeGC(display_, gc);
    XSync(display_, False);
}

void X11TestDesktop::warpPointer(int x, int y) {
    XWarpPointer(display_, None, DefaultRootWindow(display_), 0, 0, 0, 0, x, y);
    XSync(display_, False);
}

unsigned long X11TestDesktop::createWindow(const WindowDescription& description) {
    const Window window =
        XCreateSimpleWindow(display_, DefaultRootWindow(display_), 20, 20, 160, 90, 0, 0, 0x808080);
    XStoreName(display_, window, description.title.c_str());
    if (!description.instanceName.empty() || !description.className.empty()) {
        XClassHint hint{const_cast<char*>(description.instanceName.c_str()),
                        const_cast<char*>(description.className.c_str())};
        XSetClassHint(display_, window, &hint);
    }
    if (description.pid != 0) {
        const long pid = description.pid;
        XChangeProperty(display_, window, XInternAtom(display_, "_NET_WM_PID", False), XA_CARDINAL, 32,
                        PropModeReplace, reinterpret_cast<const unsigned char*>(&pid), 1);
    }
    if (!description.type.empty()) {
        const Atom type = XInternAtom(display_, ("_NET_WM_WINDOW_TYPE_" + description.type).c_str(), False);
        XChangeProperty(display_, window, XInternAtom(display_, "_NET_WM_WINDOW_TYPE", False), XA_ATOM, 32,
                        PropModeReplace, reinterpret_cast<const unsigned char*>(&type), 1);
    }
    if (!description.icon.empty()) {
        XChangeProperty(display_, window, XInternAtom(display_, "_NET_WM_ICON", False), XA_CARDINAL, 32,
                        PropModeReplace, reinterpret_cast<const unsigned char*>(description.icon.data()),
                        static_cast<int>(description.icon.size()));
    }
    XMapWindow(display_, window);
    XSync(display_, False);
    return window;
}

void X11TestDesktop::destroyWindow(unsigned long window) {
    XDestroyWindow(display_, window);
    XSync(display_, False);
}

bool X11TestDesktop::waitUntilManaged(unsigned long window) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        Atom type = 0;
        int format = 0;
        unsigned long count = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        bool found = false;
        if (XGetWindowProperty(display_, DefaultRootWindow(display_),
                               XInternAtom(display_, "_NET_CLIENT_LIST", False), 0, 4096, False, XA_WINDOW,
                               &type, &format, &count, &after, &data) == Success &&
            data != nullptr) {
            const auto* windows = reinterpret_cast<const unsigned long*>(data);
            for (unsigned long i = 0; i < count; ++i) {
                found = found || windows[i] == window;
            }
            XFree(data);
        }
        if (found) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

std::vector<unsigned long> X11TestDesktop::redAndGreenIcon() {
    std::vector<unsigned long> data{16, 16};
    data.insert(data.end(), 16 * 16, 0xffff0000UL);
    data.push_back(32);
    data.push_back(32);
    data.insert(data.end(), 32 * 32, 0xff00ff00UL);
    return data;
}
