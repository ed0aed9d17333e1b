#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The virtual key codes used throughout the keyboard code (0 = the A key, 36 = Return, 123 = Left
// Arrow...) and the Linux input (evdev) key at the same position of the keyboard. X11 key codes are
// evdev codes + 8. Codes without a Linux key are absent.
class VirtualKeyTable {
public:
    // The modifier keys among the virtual key codes.
    static constexpr int commandKey = 55;
    static constexpr int shiftKey = 56;
    static constexpr int capsLockKey = 57;
    static constexpr int optionKey = 58;
    static constexpr int controlKey = 59;
    // The keypad Enter key.
    static constexpr int keypadEnterKey = 76;

    // The evdev key at the position of `virtualKey` (0..255); nothing when no Linux key is there.
    static std::optional<int> evdevCode(int virtualKey);
    // The virtual key at the position of `evdevCode`; nothing when none is.
    static std::optional<int> virtualKey(int evdevCode);
    // Whether `evdevCode` is a keypad key whose meaning depends on Num Lock (digits, decimal point).
    static bool isNumLockDependent(int evdevCode);
    // The text a key produces where it differs from what the Linux layouts give (keypad Enter
    // produces U+0003); nothing where the layout's own text is kept.
    static std::optional<std::string> fixedText(int virtualKey);
};
