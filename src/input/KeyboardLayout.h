#pragma once

#include <cstdint>
#include <optional>
#include <string>

// What the keys of the current keyboard layout produce, and the layout's state, for the keyboard
// maps and the key events. Keys are named by their Linux input (evdev) code. The Linux back ends
// implement it with xkbcommon; tests use a fake. Used under the executor's lock only.
class KeyboardLayout {
public:
    // The locked modifiers of the keyboard as the user left them.
    struct LockState {
        bool capsLock = false;
        bool numLock = false;
    };

    virtual ~KeyboardLayout() = default;

    // Whether layout data is there at all (without it the maps are empty).
    virtual bool available() = 0;
    // The characters (UTF-8) that a key-down of `evdevCode` produces with shift and/or the third
    // level (option) held, Caps Lock off and Num Lock on; empty when it produces none (a dead key,
    // a key without a character in that state).
    virtual std::string keyText(int evdevCode, bool shift, bool option) = 0;
    // The key whose first level is `keysym` (an X keysym: Shift_L, XF86AudioPlay...); nothing when
    // no key of the layout has it.
    virtual std::optional<int> keyForKeysym(std::uint32_t keysym) = 0;
    // Reads what the system reported since the last call; true when the layout changed, so that
    // the maps must be built again. The layout's own temporary keys never count as a change.
    virtual bool layoutChanged() { return false; }
    // The locked modifiers of the real keyboard; nothing when they cannot be known.
    virtual std::optional<LockState> lockState() { return std::nullopt; }
    // Told after the key events pressed a lock key (Caps Lock, Num Lock) themselves, so that the next
    // lockState() does not go by reports from the middle of those presses.
    virtual void lockKeysPressed() {}

    // Binds `keysym` to a spare key until releaseTemporaryKeys gives it back; the evdev code to
    // press, or nothing when no key can be bound (only X11 can).
    virtual std::optional<int> bindTemporaryKey(std::uint32_t keysym) {
        (void)keysym;
        return std::nullopt;
    }
    // Gives back the temporary keys bound long enough ago for their characters to have been read
    // by the receiving programs; every one of them when `all` is set.
    virtual void releaseTemporaryKeys(bool all) { (void)all; }
};
