#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <xcb/xcb.h>

struct xkb_context;
struct xkb_keymap;
struct xkb_state;

// One compiled keyboard layout (xkbcommon), asked what each key produces. Keys are evdev codes
// (xkb key code = evdev + 8). Immutable; a new layout is a new XkbKeymap.
class XkbKeymap {
public:
    // The layout made from rules names ("de", "fr"...; empty parts take xkbcommon's defaults).
    static std::unique_ptr<XkbKeymap> fromNames(const std::string& layout, const std::string& variant = {},
                                                const std::string& options = {},
                                                const std::string& model = {});
    // The layout of the core keyboard of an X server (the XKB extension must be set up on `connection`).
    static std::unique_ptr<XkbKeymap> fromX11Device(xcb_connection_t* connection, std::int32_t deviceId);

    ~XkbKeymap();
    XkbKeymap(const XkbKeymap&) = delete;
    XkbKeymap& operator=(const XkbKeymap&) = delete;

    // The characters of a key-down of `evdevCode` in layout group `group`, with shift and/or the third
    // level held, Caps Lock off and Num Lock on; empty when none.
    std::string keyText(int evdevCode, bool shift, bool option, unsigned group) const;
    // A key whose first level in `group` is `keysym`; keys at known keyboard positions come first.
    std::optional<int> keyForKeysym(std::uint32_t keysym, unsigned group) const;
    // The real modifiers that a locked Num Lock sets (0 when the layout has no Num Lock key).
    std::uint32_t numLockMask() const { return numLockMask_; }
    // The number of layout groups.
    unsigned groupCount() const;
    // Whether the key (evdev code) has any symbol.
    bool keyHasSymbols(int evdevCode) const;
    // Every symbol of every key, level and group, except the keys `ignoredKeycodes` (X key codes):
    // two keymaps with the same fingerprint type the same.
    std::string fingerprint(const std::vector<int>& ignoredKeycodes) const;

private:
    struct Deleter {
        void operator()(xkb_context* p) const;
        void operator()(xkb_keymap* p) const;
        void operator()(xkb_state* p) const;
    };

    XkbKeymap(std::unique_ptr<xkb_context, Deleter> context, std::unique_ptr<xkb_keymap, Deleter> keymap);
    std::uint32_t pressedMask(std::uint32_t keysym) const;

    std::unique_ptr<xkb_context, Deleter> context_;
    std::unique_ptr<xkb_keymap, Deleter> keymap_;
    std::unique_ptr<xkb_state, Deleter> query_;
    std::uint32_t shiftMask_ = 0;
    std::uint32_t level3Mask_ = 0;
    std::uint32_t numLockMask_ = 0;
};
