#include "platform/x11/X11Ewmh.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using PropertyReply = std::unique_ptr<xcb_get_property_reply_t, FreeDeleter>;

xcb_get_property_cookie_t askProperty(xcb_connection_t* c, xcb_window_t w, xcb_atom_t property,
                                      xcb_atom_t type, std::uint32_t longLength = 1024) {
    return xcb_get_property(c, 0, w, property, type, 0, longLength);
}

PropertyReply takeProperty(xcb_connection_t* c, xcb_get_property_cookie_t cookie) {
    return PropertyReply(xcb_get_property_reply(c, cookie, nullptr));
}

std::string propertyString(const PropertyReply& reply) {
    if (!reply || reply->format != 8) {
        return {};
    }
    const int length = xcb_get_property_value_length(reply.get());
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       static_cast<size_t>(length));
}

} // namespace

X11Ewmh::X11Ewmh(X11Display& display) : display_(display) {}

std::vector<xcb_window_t> X11Ewmh::windowListProperty(const char* name) {
    xcb_connection_t* c = display_.xcb();
    auto reply =
        takeProperty(c, askProperty(c, display_.root(), display_.atom(name), XCB_ATOM_WINDOW, 65536));
    std::vector<xcb_window_t> windows;
    if (reply && reply->format == 32) {
        const auto* values = static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
        windows.assign(values, values + xcb_get_property_value_length(reply.get()) / 4);
    }
    return windows;
}

bool X11Ewmh::windowManagerPresent() {
    return !windowListProperty("_NET_SUPPORTING_WM_CHECK").empty();
}

std::vector<xcb_window_t> X11Ewmh::clientList() {
    return windowListProperty("_NET_CLIENT_LIST");
}

std::vector<xcb_window_t> X11Ewmh::clientListStacking() {
    return windowListProperty("_NET_CLIENT_LIST_STACKING");
}

std::vector<X11WindowInfo> X11Ewmh::describe(const std::vector<xcb_window_t>& windows) {
    xcb_connection_t* c = display_.xcb();
    const xcb_atom_t pidAtom = display_.atom("_NET_WM_PID");
    const xcb_atom_t typeAtom = display_.atom("_NET_WM_WINDOW_TYPE");
    const xcb_atom_t nameAtom = display_.atom("_NET_WM_NAME");
    const xcb_atom_t utf8Atom = display_.atom("UTF8_STRING");

    struct Cookies {
        xcb_get_property_cookie_t pid, wmClass, type, netName, name, transient;
    };
    std::vector<Cookies> cookies;
    cookies.reserve(windows.size());
    for (xcb_window_t w : windows) {
        cookies.push_back(Cookies{askProperty(c, w, pidAtom, XCB_ATOM_CARDINAL),
                                  askProperty(c, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING),
                                  askProperty(c, w, typeAtom, XCB_ATOM_ATOM),
                                  askProperty(c, w, nameAtom, utf8Atom),
                                  askProperty(c, w, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY),
                                  askProperty(c, w, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW)});
    }

    std::vector<X11WindowInfo> infos(windows.size());
    for (size_t i = 0; i < windows.size(); ++i) {
        X11WindowInfo& info = infos[i];
        info.window = windows[i];
        auto pid = takeProperty(c, cookies[i].pid);
        auto wmClass = takeProperty(c, cookies[i].wmClass);
        auto type = takeProperty(c, cookies[i].type);
        auto netName = takeProperty(c, cookies[i].netName);
        auto name = takeProperty(c, cookies[i].name);
        auto transient = takeProperty(c, cookies[i].transient);
        // A vanished window answers every request with an error, so no reply at all.
        info.exists = pid || wmClass || type || netName || name || transient;
        if (pid && pid->format == 32 && xcb_get_property_value_length(pid.get()) >= 4) {
            info.pid =
                static_cast<int>(*static_cast<const std::uint32_t*>(xcb_get_property_value(pid.get())));
        }
        const std::string classValue = propertyString(wmClass);
        const size_t separator = classValue.find('\0');
        info.instanceName = classValue.substr(0, separator);
        if (separator != std::string::npos) {
            const std::string rest = classValue.substr(separator + 1);
            info.className = rest.substr(0, rest.find('\0'));
        }
        if (type && type->format == 32) {
            const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(type.get()));
            info.types.assign(atoms, atoms + xcb_get_property_value_length(type.get()) / 4);
        }
        info.title = propertyString(netName);
        if (info.title.empty()) {
            info.title = propertyString(name);
        }
        info.transient = transient && transient->value_len > 0;
    }
    return infos;
}

bool X11Ewmh::isNormalOrDialog(const X11WindowInfo& info) {
    if (info.types.empty()) {
        return true;
    }
    const xcb_atom_t normal = display_.atom("_NET_WM_WINDOW_TYPE_NORMAL");
    const xcb_atom_t dialog = display_.atom("_NET_WM_WINDOW_TYPE_DIALOG");
    // The first type the window manager understands counts; these two are understood everywhere.
    return info.types.front() == normal || info.types.front() == dialog;
}

xcb_window_t X11Ewmh::activeWindow() {
    const auto windows = windowListProperty("_NET_ACTIVE_WINDOW");
    return windows.empty() ? 0 : windows.front();
}

bool X11Ewmh::activateWindow(xcb_window_t window) {
    xcb_connection_t* c = display_.xcb();
    std::unique_ptr<xcb_get_window_attributes_reply_t, FreeDeleter> attributes(
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
    if (!attributes) {
        return false;
    }
    xcb_client_message_event_t event;
    std::memset(&event, 0, sizeof event);
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = display_.atom("_NET_ACTIVE_WINDOW");
    event.data.data32[0] = 2; // source indication: a pager or similar tool acting for the user
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(c, 0, display_.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(c);
    return true;
}

std::optional<X11Icon> X11Ewmh::windowIcon(xcb_window_t window, int size) {
    xcb_connection_t* c = display_.xcb();
    // Icons can be large (several sizes up to 256x256): ask for up to 4 MiB of cardinals.
    auto reply =
        takeProperty(c, askProperty(c, window, display_.atom("_NET_WM_ICON"), XCB_ATOM_CARDINAL, 1u << 20));
    if (!reply || reply->format != 32) {
        return std::nullopt;
    }
    const auto* data = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
    const size_t count = static_cast<size_t>(xcb_get_property_value_length(reply.get())) / 4;
    const std::uint32_t* best = nullptr;
    std::uint32_t bestWidth = 0;
    std::uint32_t bestHeight = 0;
    for (size_t i = 0; i + 2 <= count;) {
        const std::uint32_t w = data[i];
        const std::uint32_t h = data[i + 1];
        const size_t pixels = static_cast<size_t>(w) * h;
        if (w == 0 || h == 0 || w > 4096 || h > 4096 || pixels > count - i - 2) {
            break; // malformed: stop at what is readable
        }
        const bool fits = static_cast<int>(w) >= size;
        const bool bestFits = best != nullptr && static_cast<int>(bestWidth) >= size;
        if (best == nullptr || (fits && (!bestFits || w < bestWidth)) ||
            (!fits && !bestFits && w > bestWidth)) {
            best = data + i + 2;
            bestWidth = w;
            bestHeight = h;
        }
        i += 2 + pixels;
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    X11Icon icon;
    icon.width = static_cast<int>(bestWidth);
    icon.height = static_cast<int>(bestHeight);
    icon.argb.assign(best, best + static_cast<size_t>(bestWidth) * bestHeight);
    return icon;
}
