// A window for the input tests and benchmarks. It records what the toolkit decodes and reports it on
// standard output, one line per event, with the monotonic clock in nanoseconds:
//   ready WINDOW
//   focus in|out
//   key press|release KEYCODE STATE KEYSYM TEXT-HEX NS      (TEXT: Xutf8LookupString, presses only)
//   button press|release BUTTON X Y NS
//   motion X Y NS
// Options: --display NAME, --title TEXT, --geometry WxH+X+Y. The end of standard input ends it.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace {

long long nowNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

std::string hex(const char* bytes, int length) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (int i = 0; i < length; ++i) {
        const auto b = static_cast<unsigned char>(bytes[i]);
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out.empty() ? "-" : out;
}

} // namespace

int main(int argc, char** argv) {
    const char* display = nullptr;
    std::string title = "vxh test window";
    unsigned width = 400;
    unsigned height = 300;
    int x = 20;
    int y = 20;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--display") == 0) {
            display = argv[i + 1];
        } else if (std::strcmp(argv[i], "--title") == 0) {
            title = argv[i + 1];
        } else if (std::strcmp(argv[i], "--geometry") == 0) {
            std::sscanf(argv[i + 1], "%ux%u+%d+%d", &width, &height, &x, &y);
        }
    }
    // UTF-8 text whatever the caller's locale; no input method (the first setting wins over XMODIFIERS).
    if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr || !XSupportsLocale()) {
        std::setlocale(LC_ALL, "");
    }
    XSetLocaleModifiers("@im=none");
    Display* dpy = XOpenDisplay(display);
    if (dpy == nullptr) {
        std::fprintf(stderr, "vxh_test_window: no display\n");
        return 1;
    }
    const Window window = XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), x, y, width, height, 0, 0,
                                              WhitePixel(dpy, DefaultScreen(dpy)));
    XStoreName(dpy, window, title.c_str());
    XChangeProperty(dpy, window, XInternAtom(dpy, "_NET_WM_NAME", False),
                    XInternAtom(dpy, "UTF8_STRING", False), 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(title.c_str()), static_cast<int>(title.size()));
    XClassHint classHint{const_cast<char*>("vxhtestwindow"), const_cast<char*>("VxhTestWindow")};
    XSetClassHint(dpy, window, &classHint);
    // Where the test asked for it: the window manager keeps a user-given position.
    XSizeHints sizeHints{};
    sizeHints.flags = USPosition | USSize;
    sizeHints.x = x;
    sizeHints.y = y;
    sizeHints.width = static_cast<int>(width);
    sizeHints.height = static_cast<int>(height);
    XSetWMNormalHints(dpy, window, &sizeHints);
    XWMHints hints{};
    hints.flags = InputHint;
    hints.input = True;
    XSetWMHints(dpy, window, &hints);
    const long pid = getpid();
    XChangeProperty(dpy, window, XInternAtom(dpy, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&pid), 1);
    XSelectInput(dpy, window,
                 KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask | PointerMotionMask |
                     FocusChangeMask | StructureNotifyMask);

    XIM im = XOpenIM(dpy, nullptr, nullptr, nullptr);
    XIC ic = nullptr;
    if (im != nullptr) {
        ic = XCreateIC(im, XNInputStyle, XIMPreeditNothing | XIMStatusNothing, XNClientWindow, window,
                       XNFocusWindow, window, nullptr);
    }
    if (ic == nullptr) {
        std::fprintf(stderr, "vxh_test_window: no input context\n");
        return 1;
    }
    XSetICFocus(ic);
    XMapWindow(dpy, window);
    XFlush(dpy);
    setvbuf(stdout, nullptr, _IOLBF, 0);

    pollfd fds[2] = {{ConnectionNumber(dpy), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    bool running = true;
    while (running) {
        while (XPending(dpy) > 0) {
            XEvent event;
            XNextEvent(dpy, &event);
            const long long t = nowNs();
            if (XFilterEvent(&event, None)) {
                continue;
            }
            switch (event.type) {
            case MapNotify:
                std::printf("ready %lu\n", window);
                break;
            case FocusIn:
                std::printf("focus in\n");
                break;
            case FocusOut:
                std::printf("focus out\n");
                break;
            case KeyPress: {
                char buffer[64];
                KeySym keysym = NoSymbol;
                Status status = 0;
                const int length =
                    Xutf8LookupString(ic, &event.xkey, buffer, sizeof buffer - 1, &keysym, &status);
                const bool hasText = status == XLookupChars || status == XLookupBoth;
                std::printf("key press %u %u %lu %s %lld\n", event.xkey.keycode, event.xkey.state, keysym,
                            hex(buffer, hasText ? length : 0).c_str(), t);
                break;
            }
            case KeyRelease: {
                char buffer[64];
                KeySym keysym = NoSymbol;
                XLookupString(&event.xkey, buffer, sizeof buffer, &keysym, nullptr);
                std::printf("key release %u %u %lu - %lld\n", event.xkey.keycode, event.xkey.state, keysym,
                            t);
                break;
            }
            case ButtonPress:
            case ButtonRelease:
                std::printf("button %s %u %d %d %lld\n", event.type == ButtonPress ? "press" : "release",
                            event.xbutton.button, event.xbutton.x_root, event.xbutton.y_root, t);
                break;
            case MotionNotify:
                std::printf("motion %d %d %lld\n", event.xmotion.x_root, event.xmotion.y_root, t);
                break;
            case MappingNotify:
                XRefreshKeyboardMapping(&event.xmapping);
                break;
            default:
                break;
            }
        }
        if (poll(fds, 2, -1) < 0 && errno != EINTR) {
            break;
        }
        if ((fds[1].revents & (POLLIN | POLLHUP)) != 0) {
            char buffer[256];
            running = read(STDIN_FILENO, buffer, sizeof buffer) > 0; // the input itself is not used
        }
    }
    XDestroyIC(ic);
    XCloseIM(im);
    XCloseDisplay(dpy);
    return 0;
}
