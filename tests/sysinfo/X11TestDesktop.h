#pragma once

#include <cstdint>
#include <string>
#include <vector>

typedef struct _XDisplay Display;

// Draws on and makes windows on an X server, as a test needs: coloured rectangles on the root
// window, application windows that describe themselves (pid, class, title, type, icon), the pointer.
class X11TestDesktop {
public:
    // Opens `displayName`; ok() tells whether it worked.
    explicit X11TestDesktop(const std::string& displayName);
    ~X11TestDesktop();
    X11TestDesktop(const X11TestDesktop&) = delete;
    X11TestDesktop& operator=(const X11TestDesktop&) = delete;

    bool ok() const { return display_ != nullptr; }

    // Fills a rectangle of the root window with 0xRRGGBB.
    void fillRoot(int x, int y, int width, int height, std::uint32_t rgb);
    // Moves the pointer to (x, y) of the root window.
    void warpPointer(int x, int y);

    struct WindowDescription {
        int pid = 0; // 0: no _NET_WM_PID
        std::string instanceName;
        std::string className;
        std::string title;
        std::string type;                // "" or an EWMH type suffix such as "DOCK", "DIALOG", "UTILITY"
        std::vector<unsigned long> icon; // _NET_WM_ICON cardinals as Xlib takes them
    };
    // _NET_WM_ICON cardinals of two images: 16x16 opaque red and 32x32 opaque green.
    static std::vector<unsigned long> redAndGreenIcon();
    // Makes and maps a window; returns its id.
    unsigned long createWindow(const WindowDescription& description);
    // Unmaps and destroys a window.
    void destroyWindow(unsigned long window);
    // Waits until the window manager lists the window (up to 5 s).
    bool waitUntilManaged(unsigned long window);

private:
    Display* display_ = nullptr;
};
