#include "input/linux/X11KeyboardLayout.h"

#include "input/linux/X11InputConnection.h"
#include "input/linux/XkbKeymap.h"
#include "transport/PZLogger.h"

#include <algorithm>
#include <cstdlib>
// xcb/xkb.h names a field "explicit", a C++ keyword.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>

namespace {

// At most this many key codes are used for temporary keys at once.
constexpr std::size_t maxTemporaryKeys = 8;

template <typename T> struct Reply {
    T* p = nullptr;
    explicit Reply(T* reply) : p(reply) {}
    ~Reply() { std::free(p); }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;
    T* operator->() const { return p; }
    explicit operator bool() const { return p != nullptr; }
};

// The fields that every XKB event starts with.
struct XkbAnyEvent {
    std::uint8_t response_type;
    std::uint8_t xkbType;
    std::uint16_t sequence;
    xcb_timestamp_t time;
    std::uint8_t deviceID;
};

} // namespace

X11KeyboardLayout::X11KeyboardLayout(std::shared_ptr<X11InputConnection> connection)
    : connection_(std::move(connection)) {}

X11KeyboardLayout::~X11KeyboardLayout() {
    releaseTemporaryKeys(true);
}

bool X11KeyboardLayout::ensure() {
    X11Display* display = connection_->display();
    if (display == nullptr) {
        return false;
    }
    if (connection_->generation() != generation_) {
        // A new connection (the first one too): a layout to build the maps from.
        generation_ = connection_->generation();
        temporary_.clear();
        setUp();
        changed_ = true;
    }
    return keymap_ != nullptr;
}

void X11KeyboardLayout::setUp() {
    xcb_connection_t* c = connection_->display()->xcb();
    keymap_.reset();
    deviceId_ = -1;
    if (xkb_x11_setup_xkb_extension(c, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                    XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &xkbEventBase_,
                                    nullptr) == 0) {
        PZLog("Input: the X server has no XKB extension; keyboard layout unknown");
        return;
    }
    deviceId_ = xkb_x11_get_core_keyboard_device_id(c);
    if (deviceId_ < 0) {
        return;
    }
    constexpr std::uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                                     XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    constexpr std::uint16_t mapParts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                       XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS |
                                       XCB_XKB_MAP_PART_KEY_ACTIONS | XCB_XKB_MAP_PART_VIRTUAL_MODS |
                                       XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_LOCK;
    details.stateDetails = XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_LOCK;
    xcb_xkb_select_events_aux(c, static_cast<xcb_xkb_device_spec_t>(deviceId_), events, 0, 0, mapParts,
                              mapParts, &details);
    loadKeymap();
}

bool X11KeyboardLayout::loadKeymap() {
    xcb_connection_t* c = connection_->display()->xcb();
    const unsigned previousGroup = group_;
    // The state first: the keymap is read for the group locked now.
    const xcb_xkb_get_state_cookie_t cookie =
        xcb_xkb_get_state(c, static_cast<xcb_xkb_device_spec_t>(deviceId_));
    Reply<xcb_xkb_get_state_reply_t> state(xcb_xkb_get_state_reply(c, cookie, nullptr));
    if (state) {
        group_ = state->lockedGroup;
        lockedMods_ = state->lockedMods;
        lockedModsSequence_ = cookie.sequence;
    }
    keymap_ = XkbKeymap::fromX11Device(c, deviceId_);
    if (!keymap_) {
        PZLog("Input: could not read the keyboard layout of the X server");
        const bool changed = !fingerprint_.empty();
        fingerprint_.clear();
        return changed;
    }
    if (group_ >= keymap_->groupCount()) {
        group_ = 0;
    }
    // The core mapping: the temporary keys still bound, and the spare key codes (those without any
    // symbol, from the top; the temporary keys stay spare).
    const xcb_setup_t* setup = xcb_get_setup(c);
    const int minKeycode = setup->min_keycode;
    const int maxKeycode = setup->max_keycode;
    Reply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        c,
        xcb_get_keyboard_mapping(c, static_cast<xcb_keycode_t>(minKeycode),
                                 static_cast<std::uint8_t>(maxKeycode - minKeycode + 1)),
        nullptr));
    spareKeycodes_.clear();
    if (mapping) {
        const xcb_keysym_t* syms = xcb_get_keyboard_mapping_keysyms(mapping.p);
        const int perKey = mapping->keysyms_per_keycode;
        const auto symsOf = [&](int keycode) {
            return syms + static_cast<std::ptrdiff_t>((keycode - minKeycode) * perKey);
        };
        // A new keyboard description (another layout) has none of them any more.
        std::erase_if(temporary_, [&](const TemporaryKey& key) {
            return key.keycode < minKeycode || key.keycode > maxKeycode || perKey < 1 ||
                   symsOf(key.keycode)[0] != key.keysym;
        });
        for (int keycode = maxKeycode; keycode >= minKeycode && spareKeycodes_.size() < maxTemporaryKeys;
             --keycode) {
            const bool bound = std::any_of(temporary_.begin(), temporary_.end(),
                                           [&](const TemporaryKey& key) { return key.keycode == keycode; });
            if (bound || std::all_of(symsOf(keycode), symsOf(keycode) + perKey,
                                     [](xcb_keysym_t s) { return s == 0; })) {
                spareKeycodes_.push_back(keycode);
            }
        }
    }
    std::string fingerprint = keymap_->fingerprint(spareKeycodes_);
    const bool changed = fingerprint != fingerprint_ || group_ != previousGroup;
    fingerprint_ = std::move(fingerprint);
    return changed;
}

bool X11KeyboardLayout::isOwnMapChange(const void* event) const {
    const auto* map = static_cast<const xcb_xkb_map_notify_event_t*>(event);
    const auto ownRange = [&](int first, int count) {
        for (int keycode = first; keycode < first + count; ++keycode) {
            if (std::find(spareKeycodes_.begin(), spareKeycodes_.end(), keycode) == spareKeycodes_.end()) {
                return false;
            }
        }
        return true;
    };
    return ownRange(map->firstKeySym, map->nKeySyms) && ownRange(map->firstKeyAct, map->nKeyActs) &&
           ownRange(map->firstKeyBehavior, map->nKeyBehavior) &&
           ownRange(map->firstKeyExplicit, map->nKeyExplicit) &&
           ownRange(map->firstModMapKey, map->nModMapKeys) &&
           ownRange(map->firstVModMapKey, map->nVModMapKeys) &&
           (map->nKeySyms > 0 || map->nKeyActs > 0 || map->nKeyExplicit > 0 || map->nModMapKeys > 0);
}

void X11KeyboardLayout::readEvents() {
    xcb_connection_t* c = connection_->display()->xcb();
    while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
        if (xkbEventBase_ != 0 && (event->response_type & 0x7f) == xkbEventBase_) {
            const auto* any = reinterpret_cast<const XkbAnyEvent*>(event);
            switch (any->xkbType) {
            case XCB_XKB_NEW_KEYBOARD_NOTIFY:
                // Also sent when the server copies the keymap between its devices, after a mapping
                // change of our own for example: whether the layout really changed is seen by reading it.
                changed_ = true;
                break;
            case XCB_XKB_MAP_NOTIFY:
                if (!isOwnMapChange(event)) {
                    changed_ = true;
                }
                break;
            case XCB_XKB_STATE_NOTIFY: {
                const auto* state = reinterpret_cast<const xcb_xkb_state_notify_event_t*>(event);
                if (event->full_sequence >= lockedModsSequence_) {
                    lockedMods_ = state->lockedMods;
                }
                if (state->lockedGroup != group_) {
                    changed_ = true;
                }
                break;
            }
            default:
                break;
            }
        }
        std::free(event);
    }
}

bool X11KeyboardLayout::available() {
    auto lock = connection_->lock();
    return ensure();
}

std::string X11KeyboardLayout::keyText(int evdevCode, bool shift, bool option) {
    auto lock = connection_->lock();
    if (!ensure()) {
        return {};
    }
    return keymap_->keyText(evdevCode, shift, option, group_);
}

std::optional<int> X11KeyboardLayout::keyForKeysym(std::uint32_t keysym) {
    auto lock = connection_->lock();
    if (!ensure()) {
        return std::nullopt;
    }
    return keymap_->keyForKeysym(keysym, group_);
}

bool X11KeyboardLayout::layoutChanged() {
    auto lock = connection_->lock();
    if (connection_->display() == nullptr) {
        return false;
    }
    const std::uint64_t before = generation_;
    ensure();
    const bool fresh = generation_ != before; // the keymap was read just now
    if (deviceId_ >= 0 && !fresh) {
        readEvents();
    }
    if (!changed_) {
        return false;
    }
    changed_ = false;
    if (fresh) {
        return true;
    }
    return deviceId_ >= 0 && loadKeymap();
}

std::optional<KeyboardLayout::LockState> X11KeyboardLayout::lockState() {
    auto lock = connection_->lock();
    if (!ensure() || deviceId_ < 0) {
        return std::nullopt;
    }
    if (lockStateStale_) {
        // After our own lock key presses the reports come in pairs: ask the server where they ended.
        xcb_connection_t* c = connection_->display()->xcb();
        const xcb_xkb_get_state_cookie_t cookie =
            xcb_xkb_get_state(c, static_cast<xcb_xkb_device_spec_t>(deviceId_));
        Reply<xcb_xkb_get_state_reply_t> reply(xcb_xkb_get_state_reply(c, cookie, nullptr));
        if (reply) {
            lockedMods_ = reply->lockedMods;
            lockedModsSequence_ = cookie.sequence;
            lockStateStale_ = false;
        }
    }
    readEvents();
    LockState state;
    state.capsLock = (lockedMods_ & XCB_MOD_MASK_LOCK) != 0;
    state.numLock = (lockedMods_ & keymap_->numLockMask()) != 0;
    return state;
}

std::optional<int> X11KeyboardLayout::bindTemporaryKey(std::uint32_t keysym) {
    auto lock = connection_->lock();
    if (!ensure()) {
        return std::nullopt;
    }
    const auto now = std::chrono::steady_clock::now();
    for (TemporaryKey& key : temporary_) {
        if (key.keysym == keysym) {
            key.usedAt = now;
            return key.keycode - 8;
        }
    }
    int keycode = 0;
    for (int spare : spareKeycodes_) {
        if (std::none_of(temporary_.begin(), temporary_.end(),
                         [&](const TemporaryKey& key) { return key.keycode == spare; })) {
            keycode = spare;
            break;
        }
    }
    if (keycode == 0) {
        if (temporary_.empty()) {
            return std::nullopt; // no spare key code at all
        }
        // All in use: the one used longest ago is bound again.
        auto oldest = std::min_element(
            temporary_.begin(), temporary_.end(),
            [](const TemporaryKey& a, const TemporaryKey& b) { return a.usedAt < b.usedAt; });
        keycode = oldest->keycode;
        temporary_.erase(oldest);
    }
    xcb_connection_t* c = connection_->display()->xcb();
    const xcb_keysym_t syms[2] = {keysym, keysym};
    xcb_change_keyboard_mapping(c, 1, static_cast<xcb_keycode_t>(keycode), 2, syms);
    xcb_flush(c);
    temporary_.push_back(TemporaryKey{keycode, keysym, now});
    return keycode - 8;
}

void X11KeyboardLayout::restore(int keycode) {
    xcb_connection_t* c = connection_->display()->xcb();
    const xcb_keysym_t none[2] = {0, 0};
    xcb_change_keyboard_mapping(c, 1, static_cast<xcb_keycode_t>(keycode), 2, none);
    xcb_flush(c);
}

void X11KeyboardLayout::releaseTemporaryKeys(bool all) {
    auto lock = connection_->lock();
    if (temporary_.empty() || connection_->display() == nullptr || connection_->generation() != generation_) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    auto it = temporary_.begin();
    while (it != temporary_.end()) {
        if (all || now - it->usedAt >= temporaryKeyGrace) {
            restore(it->keycode);
            it = temporary_.erase(it);
        } else {
            ++it;
        }
    }
}
