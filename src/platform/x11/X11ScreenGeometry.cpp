#include "platform/x11/X11ScreenGeometry.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>
#include <memory>

X11Rect X11Rect::intersected(const X11Rect& other) const {
    const int left = std::max(x, other.x);
    const int top = std::max(y, other.y);
    const int right = std::min(x + width, other.x + other.width);
    const int bottom = std::min(y + height, other.y + other.height);
    if (right <= left || bottom <= top) {
        return X11Rect{left, top, 0, 0};
    }
    return X11Rect{left, top, right - left, bottom - top};
}

X11Rect X11ScreenGeometry::rootRect(X11Display& display) {
    Display* dpy = display.display();
    return X11Rect{0, 0, DisplayWidth(dpy, display.screenNumber()),
                   DisplayHeight(dpy, display.screenNumber())};
}

namespace {

struct ResourcesDeleter {
    void operator()(XRRScreenResources* resources) const { XRRFreeScreenResources(resources); }
};
struct OutputDeleter {
    void operator()(XRROutputInfo* info) const { XRRFreeOutputInfo(info); }
};
struct CrtcDeleter {
    void operator()(XRRCrtcInfo* info) const { XRRFreeCrtcInfo(info); }
};

// The rectangle of an output that is connected and shows something.
bool outputRect(Display* dpy, XRRScreenResources* resources, RROutput output, X11Rect& rect) {
    std::unique_ptr<XRROutputInfo, OutputDeleter> info(XRRGetOutputInfo(dpy, resources, output));
    if (!info || info->crtc == 0) {
        return false;
    }
    std::unique_ptr<XRRCrtcInfo, CrtcDeleter> crtc(XRRGetCrtcInfo(dpy, resources, info->crtc));
    if (!crtc || crtc->width == 0 || crtc->height == 0) {
        return false;
    }
    rect = X11Rect{crtc->x, crtc->y, static_cast<int>(crtc->width), static_cast<int>(crtc->height)};
    return true;
}

} // namespace

X11Rect X11ScreenGeometry::mainScreen(X11Display& display) {
    Display* dpy = display.display();
    int eventBase = 0;
    int errorBase = 0;
    if (!XRRQueryExtension(dpy, &eventBase, &errorBase)) {
        return rootRect(display);
    }
    std::unique_ptr<XRRScreenResources, ResourcesDeleter> resources(
        XRRGetScreenResourcesCurrent(dpy, display.root()));
    if (!resources) {
        return rootRect(display);
    }
    X11Rect rect;
    const RROutput primary = XRRGetOutputPrimary(dpy, display.root());
    if (primary != 0 && outputRect(dpy, resources.get(), primary, rect)) {
        return rect;
    }
    for (int i = 0; i < resources->noutput; ++i) {
        if (outputRect(dpy, resources.get(), resources->outputs[i], rect)) {
            return rect;
        }
    }
    return rootRect(display);
}
