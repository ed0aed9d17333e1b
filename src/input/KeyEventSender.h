#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class EventPoster;
class KeyboardLayout;

// Turns virtual key codes into key events of the event poster: the key at the code's position,
// modifier keys found by their keysym in the current layout (command presses Control unless the
// "command_key" preference says "super" or "alt"), the system-defined keys through their XF86 keys,
// and the modifier-flags bookkeeping shared by every key event of the process. A locked Caps Lock is
// released around a key and restored; Num Lock is locked around keypad keys when it is off. Used
// under the executor's lock.
class KeyEventSender {
public:
    // Key kinds.
    static constexpr int ordinaryKey = 1;
    static constexpr int systemDefinedKey = 2;
    static constexpr int auxiliaryControlKey = 3;

    // Modifier flags of the virtual modifier keys.
    static constexpr std::uint32_t commandFlag = 0x100000;
    static constexpr std::uint32_t shiftFlag = 0x20000;
    static constexpr std::uint32_t capsLockFlag = 0x10000;
    static constexpr std::uint32_t optionFlag = 0x80000;
    static constexpr std::uint32_t controlFlag = 0x40000;

    KeyEventSender(std::shared_ptr<EventPoster> poster, std::shared_ptr<KeyboardLayout> layout);

    // Where the command modifier's key comes from: a function giving "control", "super" or "alt"
    // (anything else: control). Asked at each press of the command modifier.
    void setCommandKeyProvider(std::function<std::string()> provider);

    // The modifier flags as the last modifier press or release left them (process-wide).
    static std::uint32_t currentModifierFlags();

    // The key event routine: presses or releases one virtual key; a modifier key (55..59) also
    // updates the modifier flags. A code without a Linux key posts nothing.
    void keyEvent(int virtualKey, bool down);
    // Presses the modifiers in order, then the key (kind 1: press and release; kinds 2 and 3: the
    // system-defined key `code` as a press and a release), then releases the modifiers in the same
    // order. False, with nothing posted, when the key has no Linux key.
    bool sendKeyCode(int code, int kind, const std::vector<int>& modifiers);
    // The same for a key named by its evdev code (a temporarily bound key).
    void sendEvdevKey(int evdevCode, const std::vector<int>& modifiers);
    // Forgets the keys found for keysyms; called when the layout changed.
    void layoutDidChange();

    // The evdev key pressed for a virtual modifier key (55..59), found by keysym.
    int modifierKey(int virtualKey);
    // The keysym and the evdev key (fallback) of a system-defined or auxiliary key; nothing when unknown.
    static std::optional<std::pair<std::uint32_t, int>> specialKey(int kind, int code);

private:
    int keyForKeysym(std::uint32_t keysym, int fallbackEvdev);
    void tap(int evdevCode);
    void sendResolved(int evdevCode, bool lockSensitive, const std::vector<int>& modifiers);

    std::shared_ptr<EventPoster> poster_;
    std::shared_ptr<KeyboardLayout> layout_;
    std::function<std::string()> commandKeyProvider_;
    std::map<std::uint32_t, int> keysymKeys_;

    static std::atomic<std::uint32_t> modifierFlags_;
};
