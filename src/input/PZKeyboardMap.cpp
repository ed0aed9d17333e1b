#include "input/PZKeyboardMap.h"

#include "input/InputText.h"
#include "input/KeyboardLayout.h"
#include "input/VirtualKeyTable.h"
#include "transport/PZException.h"
#include "transport/PZLogger.h"

#include <algorithm>
#include <cstdio>

namespace {

// The modifier state given to the translation: the held keys' bits shifted down by 8.
std::uint8_t modifierState(const std::optional<std::vector<int>>& modifiers) {
    unsigned state = 0;
    if (modifiers) {
        for (int code : *modifiers) {
            switch (code) {
            case 55:
                state += 256;
                break;
            case 56:
            case 57:
                state += 512;
                break;
            case 58:
                state += 2048;
                break;
            case 59:
                state += 4096;
                break;
            default:
                break;
            }
        }
    }
    return static_cast<std::uint8_t>(state >> 8);
}

constexpr std::uint8_t shiftBit = 512 >> 8;
constexpr std::uint8_t optionBit = 2048 >> 8;

} // namespace

PZKeyboardMap::PZKeyboardMap(std::vector<std::string> charSet, std::vector<std::uint16_t> keySet,
                             std::optional<std::vector<int>> modifiers)
    : modifiers_(std::move(modifiers)), charSet_(std::move(charSet)), keySet_(std::move(keySet)) {}

std::shared_ptr<PZKeyboardMap>
PZKeyboardMap::keyboardMapWithCharSetKeySetModifiers(std::vector<std::string> charSet,
                                                     std::vector<std::uint16_t> keySet,
                                                     std::optional<std::vector<int>> modifiers) {
    return std::make_shared<PZKeyboardMap>(std::move(charSet), std::move(keySet), std::move(modifiers));
}

std::shared_ptr<PZKeyboardMap>
PZKeyboardMap::keyboardMapWithModifier(KeyboardLayout& layout, std::optional<std::vector<int>> modifiers) {
    return keyboardMapWithModifierWithNumberOfKeys(layout, std::move(modifiers), 256);
}

std::shared_ptr<PZKeyboardMap> PZKeyboardMap::keyboardMapWithModifierWithNumberOfKeys(
    KeyboardLayout& layout, std::optional<std::vector<int>> modifiers, int numberOfKeys) {
    const std::uint8_t state = modifierState(modifiers);
    const bool shift = (state & shiftBit) != 0;
    const bool option = (state & optionBit) != 0;
    std::vector<std::string> charSet;
    std::vector<std::uint16_t> keySet;
    if (!layout.available()) {
        PZLog("(mglCharToKeycode) Could not get UnicodeKeyLayoutData\n");
    } else {
        for (int code = 0; code < numberOfKeys; ++code) {
            std::string text;
            if (auto fixed = VirtualKeyTable::fixedText(code)) {
                text = *fixed;
            } else if (auto evdev = VirtualKeyTable::evdevCode(code)) {
                text = layout.keyText(*evdev, shift, option);
            }
            if (!text.empty()) {
                keySet.push_back(static_cast<std::uint16_t>(code));
                charSet.push_back(std::move(text));
            }
        }
    }
    return keyboardMapWithCharSetKeySetModifiers(std::move(charSet), std::move(keySet), std::move(modifiers));
}

std::optional<std::uint16_t> PZKeyboardMap::findKeyCodeForStringNumpad(const std::string& string,
                                                                       bool numpad) const noexcept {
    const std::size_t n = std::min(charSet_.size(), keySet_.size());
    if (!numpad) {
        for (std::size_t i = 0; i < n; ++i) {
            if (keySet_[i] <= 50 && charSet_[i] == string) {
                return keySet_[i];
            }
        }
    } else {
        for (std::size_t i = n; i-- > 0;) {
            if (keySet_[i] >= 51 && keySet_[i] <= 92 && charSet_[i] == string) {
                return keySet_[i];
            }
        }
    }
    return std::nullopt;
}

std::uint16_t PZKeyboardMap::getKeyCodeForStringNumpad(const std::string& string, bool numpad) const {
    if (auto code = findKeyCodeForStringNumpad(string, numpad)) {
        return *code;
    }
    throw PZException("PZKeyboardMap getKeyCodeForString:", "Impossible to find the string keyCode");
}

std::uint16_t PZKeyboardMap::getKeyCodeForCharNumpad(char16_t character, bool numpad) const {
    return getKeyCodeForStringNumpad(InputText::fromUtf16Unit(character), numpad);
}

std::string PZKeyboardMap::description() const {
    char identity[64];
    std::snprintf(identity, sizeof identity, "<PZKeyboardMap: %p>", static_cast<const void*>(this));
    std::string text = std::string(identity) + "\nmodifiers:\n";
    text += InputText::describeNumbers(modifiers_) + "\n";
    const std::size_t n = std::min(charSet_.size(), keySet_.size());
    for (std::size_t i = 0; i < n; ++i) {
        text += charSet_[i] + " (" + std::to_string(InputText::firstUtf16Unit(charSet_[i])) +
                ") = " + std::to_string(keySet_[i]) + "\n";
    }
    return text;
}
