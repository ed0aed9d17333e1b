#include "input/linux/XkbKeymap.h"

#include "input/VirtualKeyTable.h"

#include <algorithm>

#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

void XkbKeymap::Deleter::operator()(xkb_context* p) const {
    xkb_context_unref(p);
}

void XkbKeymap::Deleter::operator()(xkb_keymap* p) const {
    xkb_keymap_unref(p);
}

void XkbKeymap::Deleter::operator()(xkb_state* p) const {
    xkb_state_unref(p);
}

std::unique_ptr<XkbKeymap> XkbKeymap::fromNames(const std::string& layout, const std::string& variant,
                                                const std::string& options, const std::string& model) {
    std::unique_ptr<xkb_context, Deleter> context(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    if (!context) {
        return nullptr;
    }
    xkb_rule_names names{};
    names.layout = layout.empty() ? nullptr : layout.c_str();
    names.variant = variant.empty() ? nullptr : variant.c_str();
    names.options = options.empty() ? nullptr : options.c_str();
    names.model = model.empty() ? nullptr : model.c_str();
    std::unique_ptr<xkb_keymap, Deleter> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap) {
        return nullptr;
    }
    return std::unique_ptr<XkbKeymap>(new XkbKeymap(std::move(context), std::move(keymap)));
}

std::unique_ptr<XkbKeymap> XkbKeymap::fromX11Device(xcb_connection_t* connection, std::int32_t deviceId) {
    std::unique_ptr<xkb_context, Deleter> context(xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES));
    if (!context) {
        return nullptr;
    }
    std::unique_ptr<xkb_keymap, Deleter> keymap(
        xkb_x11_keymap_new_from_device(context.get(), connection, deviceId, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap) {
        return nullptr;
    }
    return std::unique_ptr<XkbKeymap>(new XkbKeymap(std::move(context), std::move(keymap)));
}

XkbKeymap::XkbKeymap(std::unique_ptr<xkb_context, Deleter> context,
                     std::unique_ptr<xkb_keymap, Deleter> keymap)
    : context_(std::move(context)), keymap_(std::move(keymap)), query_(xkb_state_new(keymap_.get())) {
    // The modifier masks are what pressing the layout's own modifier keys sets, so that virtual
    // modifiers (LevelThree, NumLock) resolve as the layout maps them.
    shiftMask_ = pressedMask(XKB_KEY_Shift_L);
    level3Mask_ = pressedMask(XKB_KEY_ISO_Level3_Shift);
    if (auto numLock = keyForKeysym(XKB_KEY_Num_Lock, 0)) {
        std::unique_ptr<xkb_state, Deleter> state(xkb_state_new(keymap_.get()));
        xkb_state_update_key(state.get(), static_cast<xkb_keycode_t>(*numLock + 8), XKB_KEY_DOWN);
        xkb_state_update_key(state.get(), static_cast<xkb_keycode_t>(*numLock + 8), XKB_KEY_UP);
        numLockMask_ = xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_LOCKED);
    }
}

XkbKeymap::~XkbKeymap() = default;

std::uint32_t XkbKeymap::pressedMask(std::uint32_t keysym) const {
    const auto key = keyForKeysym(keysym, 0);
    if (!key) {
        return 0;
    }
    std::unique_ptr<xkb_state, Deleter> state(xkb_state_new(keymap_.get()));
    xkb_state_update_key(state.get(), static_cast<xkb_keycode_t>(*key + 8), XKB_KEY_DOWN);
    return xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_DEPRESSED);
}

unsigned XkbKeymap::groupCount() const {
    return xkb_keymap_num_layouts(keymap_.get());
}

std::string XkbKeymap::keyText(int evdevCode, bool shift, bool option, unsigned group) const {
    const xkb_mod_mask_t depressed = (shift ? shiftMask_ : 0) | (option ? level3Mask_ : 0);
    xkb_state_update_mask(query_.get(), depressed, 0, numLockMask_, 0, 0, group);
    char buffer[64];
    const int length = xkb_state_key_get_utf8(query_.get(), static_cast<xkb_keycode_t>(evdevCode + 8), buffer,
                                              sizeof buffer);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof buffer) {
        return {};
    }
    return std::string(buffer, static_cast<std::size_t>(length));
}

std::optional<int> XkbKeymap::keyForKeysym(std::uint32_t keysym, unsigned group) const {
    const xkb_keycode_t min = xkb_keymap_min_keycode(keymap_.get());
    const xkb_keycode_t max = xkb_keymap_max_keycode(keymap_.get());
    std::optional<int> other;
    for (xkb_keycode_t keycode = min; keycode <= max && keycode >= 8; ++keycode) {
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap_.get(), keycode);
        if (layouts == 0) {
            continue;
        }
        const xkb_layout_index_t layout = group < layouts ? group : 0;
        const xkb_keysym_t* syms = nullptr;
        const int count = xkb_keymap_key_get_syms_by_level(keymap_.get(), keycode, layout, 0, &syms);
        if (count == 1 && syms[0] == keysym) {
            const int evdev = static_cast<int>(keycode) - 8;
            if (VirtualKeyTable::virtualKey(evdev)) {
                return evdev;
            }
            if (!other) {
                other = evdev;
            }
        }
    }
    return other;
}

bool XkbKeymap::keyHasSymbols(int evdevCode) const {
    const auto keycode = static_cast<xkb_keycode_t>(evdevCode + 8);
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap_.get(), keycode);
    for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
        const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap_.get(), keycode, layout);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t* syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap_.get(), keycode, layout, level, &syms) > 0) {
                return true;
            }
        }
    }
    return false;
}

std::string XkbKeymap::fingerprint(const std::vector<int>& ignoredKeycodes) const {
    std::string text = std::to_string(xkb_keymap_num_layouts(keymap_.get())) + ";";
    const xkb_keycode_t min = xkb_keymap_min_keycode(keymap_.get());
    const xkb_keycode_t max = xkb_keymap_max_keycode(keymap_.get());
    for (xkb_keycode_t keycode = min; keycode <= max && keycode >= 8; ++keycode) {
        if (std::find(ignoredKeycodes.begin(), ignoredKeycodes.end(), static_cast<int>(keycode)) !=
            ignoredKeycodes.end()) {
            continue;
        }
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap_.get(), keycode);
        for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
            const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap_.get(), keycode, layout);
            for (xkb_level_index_t level = 0; level < levels; ++level) {
                const xkb_keysym_t* syms = nullptr;
                const int count =
                    xkb_keymap_key_get_syms_by_level(keymap_.get(), keycode, layout, level, &syms);
                text += std::to_string(keycode) + "/" + std::to_string(layout) + "/" + std::to_string(level) +
                        ":";
                for (int i = 0; i < count; ++i) {
                    text += std::to_string(syms[i]) + ",";
                }
            }
        }
    }
    return text + std::to_string(shiftMask_) + "," + std::to_string(level3Mask_) + "," +
           std::to_string(numLockMask_);
}
