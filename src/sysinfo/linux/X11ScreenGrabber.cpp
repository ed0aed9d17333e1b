#include "sysinfo/linux/X11ScreenGrabber.h"

#include "platform/x11/X11ErrorTrap.h"
#include "platform/x11/X11ScreenGeometry.h"
#include "transport/PZLogger.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>

namespace {

struct XImageDeleter {
    void operator()(XImage* image) const { XDestroyImage(image); }
};
using XImagePointer = std::unique_ptr<XImage, XImageDeleter>;

// Copies an X image into a BGRX buffer: row by row when the server's pixels already are BGRX
// (32 bits, masks ff0000/ff00/ff, least significant byte first), pixel by pixel otherwise.
void copyImage(XImage& image, VXPixelBuffer& into) {
    into.width = image.width;
    into.height = image.height;
    into.bytesPerRow = image.width * 4;
    into.pixels.resize(static_cast<std::size_t>(into.bytesPerRow) * into.height);
    const bool direct = image.bits_per_pixel == 32 && image.byte_order == LSBFirst &&
                        image.red_mask == 0xff0000 && image.green_mask == 0xff00 && image.blue_mask == 0xff;
    if (direct) {
        for (int y = 0; y < image.height; ++y) {
            std::memcpy(into.at(0, y), image.data + static_cast<std::size_t>(y) * image.bytes_per_line,
                        static_cast<std::size_t>(into.bytesPerRow));
        }
        return;
    }
    const auto channel = [](unsigned long pixel, unsigned long mask) -> std::uint8_t {
        if (mask == 0) {
            return 0;
        }
        int shift = 0;
        while (((mask >> shift) & 1) == 0) {
            ++shift;
        }
        const unsigned long maximum = mask >> shift;
        return static_cast<std::uint8_t>(((pixel & mask) >> shift) * 255 / maximum);
    };
    for (int y = 0; y < image.height; ++y) {
        std::uint8_t* out = into.at(0, y);
        for (int x = 0; x < image.width; ++x) {
            const unsigned long pixel = XGetPixel(&image, x, y);
            out[x * 4 + 0] = channel(pixel, image.blue_mask);
            out[x * 4 + 1] = channel(pixel, image.green_mask);
            out[x * 4 + 2] = channel(pixel, image.red_mask);
            out[x * 4 + 3] = 255;
        }
    }
}

} // namespace

// A shared-memory segment attached to the X server, with the image that describes it.
struct X11ScreenGrabber::SharedImage {
    Display* display = nullptr;
    XShmSegmentInfo info{};
    XImagePointer image;
    bool attached = false;
    bool removed = false;
    bool connectionAlive = true;

    ~SharedImage() {
        if (attached && connectionAlive) {
            XShmDetach(display, &info);
            XSync(display, False);
        }
        if (image) {
            // The data is the segment, released below, not by XDestroyImage.
            image->data = nullptr;
            image.reset();
        }
        if (info.shmaddr != nullptr && info.shmaddr != reinterpret_cast<char*>(-1)) {
            shmdt(info.shmaddr);
        }
        if (info.shmid >= 0 && !removed) {
            shmctl(info.shmid, IPC_RMID, nullptr);
        }
    }
};

X11ScreenGrabber::X11ScreenGrabber(std::string displayName)
    : connection_("screen capture", std::move(displayName)) {}

X11ScreenGrabber::~X11ScreenGrabber() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (shared_ && shmDisplay_ != nullptr && shmDisplay_->isLost()) {
        shared_->connectionAlive = false;
    }
    shared_.reset();
}

X11Display* X11ScreenGrabber::display() {
    // The segment belongs to the connection it was attached on: let it go before a lost
    // connection is replaced.
    if (shmDisplay_ != nullptr && shmDisplay_->isLost()) {
        if (shared_) {
            shared_->connectionAlive = false;
        }
        shared_.reset();
        shmDisplay_ = nullptr;
        shmBroken_ = false;
    }
    X11Display* current = connection_.get();
    if (current != shmDisplay_) {
        shared_.reset();
        shmDisplay_ = current;
        shmBroken_ = false;
    }
    return current;
}

bool X11ScreenGrabber::canCaptureRect() {
    std::lock_guard<std::mutex> lock(mutex_);
    return display() != nullptr;
}

std::optional<VXPixelRect> X11ScreenGrabber::rootBounds(X11Display& display) {
    // Asked each time: the screen's size changes with RandR while the connection stays.
    ::Window root = 0;
    int x = 0;
    int y = 0;
    unsigned width = 0;
    unsigned height = 0;
    unsigned border = 0;
    unsigned depth = 0;
    if (!XGetGeometry(display.display(), display.root(), &root, &x, &y, &width, &height, &border, &depth)) {
        return std::nullopt;
    }
    return VXPixelRect{0, 0, static_cast<int>(width), static_cast<int>(height)};
}

std::optional<VXPixelRect> X11ScreenGrabber::mainScreenFrame() {
    std::lock_guard<std::mutex> lock(mutex_);
    X11Display* current = display();
    if (current == nullptr) {
        return std::nullopt;
    }
    const X11Rect rect = X11ScreenGeometry::mainScreen(*current);
    if (current->isLost()) {
        return std::nullopt;
    }
    return VXPixelRect{rect.x, rect.y, rect.width, rect.height};
}

std::optional<VXPixelRect> X11ScreenGrabber::screenBounds() {
    std::lock_guard<std::mutex> lock(mutex_);
    X11Display* current = display();
    return current != nullptr ? rootBounds(*current) : std::nullopt;
}

std::optional<VXPixelPoint> X11ScreenGrabber::pointerLocation() {
    std::lock_guard<std::mutex> lock(mutex_);
    X11Display* current = display();
    if (current == nullptr) {
        return std::nullopt;
    }
    ::Window root = 0;
    ::Window child = 0;
    int rootX = 0;
    int rootY = 0;
    int windowX = 0;
    int windowY = 0;
    unsigned mask = 0;
    if (!XQueryPointer(current->display(), current->root(), &root, &child, &rootX, &rootY, &windowX, &windowY,
                       &mask)) {
        return std::nullopt;
    }
    return VXPixelPoint{rootX, rootY};
}

bool X11ScreenGrabber::captureShared(X11Display& display, const VXPixelRect& rect, VXPixelBuffer& into) {
    Display* dpy = display.display();
    if (!shared_ || shared_->image->width != rect.width || shared_->image->height != rect.height) {
        shared_.reset();
        auto segment = std::make_unique<SharedImage>();
        segment->display = dpy;
        segment->info.shmid = -1;
        Visual* visual = DefaultVisual(dpy, display.screenNumber());
        const int depth = DefaultDepth(dpy, display.screenNumber());
        segment->image.reset(XShmCreateImage(dpy, visual, static_cast<unsigned>(depth), ZPixmap, nullptr,
                                             &segment->info, static_cast<unsigned>(rect.width),
                                             static_cast<unsigned>(rect.height)));
        if (!segment->image) {
            return false;
        }
        segment->info.shmid =
            shmget(IPC_PRIVATE, static_cast<std::size_t>(segment->image->bytes_per_line) * rect.height,
                   IPC_CREAT | 0600);
        if (segment->info.shmid < 0) {
            return false;
        }
        segment->info.shmaddr = static_cast<char*>(shmat(segment->info.shmid, nullptr, 0));
        if (segment->info.shmaddr == reinterpret_cast<char*>(-1)) {
            return false;
        }
        segment->image->data = segment->info.shmaddr;
        segment->info.readOnly = False;
        X11ErrorTrap trap(dpy);
        const bool sent = XShmAttach(dpy, &segment->info);
        if (!sent || trap.failed()) {
            // A server that cannot see this machine's memory (a remote display).
            return false;
        }
        segment->attached = true;
        // Marked for removal now, so that it goes away with both attachments whatever happens.
        shmctl(segment->info.shmid, IPC_RMID, nullptr);
        segment->removed = true;
        shared_ = std::move(segment);
    }
    X11ErrorTrap trap(dpy);
    if (!XShmGetImage(dpy, display.root(), shared_->image.get(), rect.x, rect.y, AllPlanes) ||
        trap.failed()) {
        return false;
    }
    copyImage(*shared_->image, into);
    return true;
}

bool X11ScreenGrabber::captureCopied(X11Display& display, const VXPixelRect& rect, VXPixelBuffer& into) {
    X11ErrorTrap trap(display.display());
    XImagePointer image(XGetImage(display.display(), display.root(), rect.x, rect.y,
                                  static_cast<unsigned>(rect.width), static_cast<unsigned>(rect.height),
                                  AllPlanes, ZPixmap));
    if (!image || trap.failed()) {
        return false;
    }
    copyImage(*image, into);
    return true;
}

std::optional<VXPixelRect> X11ScreenGrabber::captureRect(const VXPixelRect& rect, VXPixelBuffer& into) {
    std::lock_guard<std::mutex> lock(mutex_);
    X11Display* current = display();
    if (current == nullptr) {
        return std::nullopt;
    }
    const auto bounds = rootBounds(*current);
    if (!bounds) {
        return std::nullopt;
    }
    // In 64 bits: a hostile rectangle near the integer limits must not overflow.
    const long long left = std::max<long long>(rect.x, 0);
    const long long top = std::max<long long>(rect.y, 0);
    const long long right = std::min<long long>(static_cast<long long>(rect.x) + rect.width, bounds->width);
    const long long bottom =
        std::min<long long>(static_cast<long long>(rect.y) + rect.height, bounds->height);
    if (rect.width <= 0 || rect.height <= 0 || right <= left || bottom <= top) {
        return std::nullopt;
    }
    const VXPixelRect area{static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
                           static_cast<int>(bottom - top)};
    lastUsedShm_ = false;
    if (shmAllowed_ && !shmBroken_ && XShmQueryExtension(current->display())) {
        if (captureShared(*current, area, into)) {
            lastUsedShm_ = true;
            return area;
        }
        if (current->isLost()) {
            return std::nullopt;
        }
        shared_.reset();
        shmBroken_ = true;
        PZLog("Screen capture: shared memory is not available on " + current->name() + ", using XGetImage");
    }
    if (!captureCopied(*current, area, into)) {
        return std::nullopt;
    }
    return area;
}
