#include "input/KeyEventSender.h"

#include "input/EventPoster.h"
#include "input/KeyboardLayout.h"
#include "input/VirtualKeyTable.h"

#include <linux/input-event-codes.h>

std::atomic<std::uint32_t> KeyEventSender::modifierFlags_{0};

namespace {

// X keysyms of the keys that are found by what they produce.
constexpr std::uint32_t xkShiftL = 0xffe1;
constexpr std::uint32_t xkControlL = 0xffe3;
constexpr std::uint32_t xkCapsLock = 0xffe5;
constexpr std::uint32_t xkAltL = 0xffe9;
constexpr std::uint32_t xkSuperL = 0xffeb;
constexpr std::uint32_t xkIsoLevel3Shift = 0xfe03;
constexpr std::uint32_t xkNumLock = 0xff7f;
constexpr std::uint32_t xf86PowerOff = 0x1008ff2a;
constexpr std::uint32_t xf86Eject = 0x1008ff2c;
constexpr std::uint32_t xf86Sleep = 0x1008ff2f;
constexpr std::uint32_t xf86AudioPlay = 0x1008ff14;
constexpr std::uint32_t xf86AudioNext = 0x1008ff17;

std::uint32_t flagOf(int virtualKey) {
    switch (virtualKey) {
    case VirtualKeyTable::commandKey:
        return KeyEventSender::commandFlag;
    case VirtualKeyTable::shiftKey:
        return KeyEventSender::shiftFlag;
    case VirtualKeyTable::capsLockKey:
        return KeyEventSender::capsLockFlag;
    case VirtualKeyTable::optionKey:
        return KeyEventSender::optionFlag;
    case VirtualKeyTable::controlKey:
        return KeyEventSender::controlFlag;
    default:
        return 0;
    }
}

bool isModifier(int virtualKey) {
    return virtualKey >= 55 && virtualKey <= 59;
}

} // namespace

KeyEventSender::KeyEventSender(std::shared_ptr<EventPoster> poster, std::shared_ptr<KeyboardLayout> layout)
    : poster_(std::move(poster)), layout_(std::move(layout)) {}

void KeyEventSender::setCommandKeyProvider(std::function<std::string()> provider) {
    commandKeyProvider_ = std::move(provider);
}

std::uint32_t KeyEventSender::currentModifierFlags() {
    return modifierFlags_.load(std::memory_order_relaxed);
}

void KeyEventSender::layoutDidChange() {
    keysymKeys_.clear();
}

int KeyEventSender::keyForKeysym(std::uint32_t keysym, int fallbackEvdev) {
    auto it = keysymKeys_.find(keysym);
    if (it != keysymKeys_.end()) {
        return it->second;
    }
    const int key = layout_->keyForKeysym(keysym).value_or(fallbackEvdev);
    keysymKeys_.emplace(keysym, key);
    return key;
}

int KeyEventSender::modifierKey(int virtualKey) {
    switch (virtualKey) {
    case VirtualKeyTable::shiftKey:
        return keyForKeysym(xkShiftL, KEY_LEFTSHIFT);
    case VirtualKeyTable::controlKey:
        return keyForKeysym(xkControlL, KEY_LEFTCTRL);
    case VirtualKeyTable::optionKey:
        return keyForKeysym(xkIsoLevel3Shift, KEY_RIGHTALT);
    case VirtualKeyTable::capsLockKey:
        return keyForKeysym(xkCapsLock, KEY_CAPSLOCK);
    case VirtualKeyTable::commandKey: {
        const std::string choice = commandKeyProvider_ ? commandKeyProvider_() : std::string("control");
        if (choice == "super") {
            return keyForKeysym(xkSuperL, KEY_LEFTMETA);
        }
        if (choice == "alt") {
            return keyForKeysym(xkAltL, KEY_LEFTALT);
        }
        return keyForKeysym(xkControlL, KEY_LEFTCTRL);
    }
    default:
        return VirtualKeyTable::evdevCode(virtualKey).value_or(0);
    }
}

std::optional<std::pair<std::uint32_t, int>> KeyEventSender::specialKey(int kind, int code) {
    if (kind == systemDefinedKey) {
        switch (code) {
        case 1:  // power key
        case 12: // restart
        case 13: // shut down
            return std::make_pair(xf86PowerOff, KEY_POWER);
        case 10:
            return std::make_pair(xf86Eject, KEY_EJECTCD);
        case 11:
            return std::make_pair(xf86Sleep, KEY_SLEEP);
        default:
            return std::nullopt;
        }
    }
    if (kind == auxiliaryControlKey) {
        switch (code) {
        case 16:
            return std::make_pair(xf86AudioPlay, KEY_PLAYPAUSE);
        case 17:
            return std::make_pair(xf86AudioNext, KEY_NEXTSONG);
        default:
            return std::nullopt;
        }
    }
    return std::nullopt;
}

void KeyEventSender::keyEvent(int virtualKey, bool down) {
    if (isModifier(virtualKey)) {
        const std::uint32_t flag = flagOf(virtualKey);
        if (down) {
            modifierFlags_.fetch_or(flag, std::memory_order_relaxed);
        } else {
            modifierFlags_.fetch_and(~flag, std::memory_order_relaxed);
        }
        poster_->postKey(modifierKey(virtualKey), down);
        return;
    }
    if (auto evdev = VirtualKeyTable::evdevCode(virtualKey)) {
        poster_->postKey(*evdev, down);
    }
}

void KeyEventSender::tap(int evdevCode) {
    poster_->postKey(evdevCode, true);
    poster_->postKey(evdevCode, false);
}

void KeyEventSender::sendResolved(int evdevCode, bool lockSensitive, const std::vector<int>& modifiers) {
    bool releaseCaps = false;
    bool lockNum = false;
    if (lockSensitive) {
        if (auto locks = layout_->lockState()) {
            releaseCaps = locks->capsLock;
            lockNum = !locks->numLock && VirtualKeyTable::isNumLockDependent(evdevCode);
        }
    }
    const int capsKey = releaseCaps ? keyForKeysym(xkCapsLock, KEY_CAPSLOCK) : 0;
    const int numKey = lockNum ? keyForKeysym(xkNumLock, KEY_NUMLOCK) : 0;
    if (releaseCaps) {
        tap(capsKey);
    }
    if (lockNum) {
        tap(numKey);
    }
    for (int modifier : modifiers) {
        keyEvent(modifier, true);
    }
    tap(evdevCode);
    for (int modifier : modifiers) {
        keyEvent(modifier, false);
    }
    if (lockNum) {
        tap(numKey);
    }
    if (releaseCaps) {
        tap(capsKey);
    }
    if (releaseCaps || lockNum) {
        layout_->lockKeysPressed();
    }
}

bool KeyEventSender::sendKeyCode(int code, int kind, const std::vector<int>& modifiers) {
    if (kind == ordinaryKey && isModifier(code)) {
        // A modifier key typed as a key goes through the key event routine, flags included.
        for (int modifier : modifiers) {
            keyEvent(modifier, true);
        }
        keyEvent(code, true);
        keyEvent(code, false);
        for (int modifier : modifiers) {
            keyEvent(modifier, false);
        }
        return true;
    }
    int evdev = 0;
    bool lockSensitive = false;
    if (kind == ordinaryKey) {
        evdev = VirtualKeyTable::evdevCode(code).value_or(0);
        lockSensitive = true;
    } else if (auto special = specialKey(kind, code)) {
        evdev = keyForKeysym(special->first, special->second);
    }
    if (evdev <= 0) {
        return false;
    }
    sendResolved(evdev, lockSensitive, modifiers);
    return true;
}

void KeyEventSender::sendEvdevKey(int evdevCode, const std::vector<int>& modifiers) {
    sendResolved(evdevCode, true, modifiers);
}
