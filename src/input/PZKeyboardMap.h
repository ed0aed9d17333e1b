#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class KeyboardLayout;

// One table, for one combination of held modifier keys, from every character that the current
// layout produces to the virtual key code that produces it. Immutable once built.
class PZKeyboardMap {
public:
    // Builds a map of the key codes 0 .. numberOfKeys - 1 from `layout`, with the modifier keys
    // `modifiers` held (virtual codes: 56 shift, 57 caps lock, 58 option; others take no part).
    // A layout without data gives an empty map and one log line.
    static std::shared_ptr<PZKeyboardMap>
    keyboardMapWithModifierWithNumberOfKeys(KeyboardLayout& layout, std::optional<std::vector<int>> modifiers,
                                            int numberOfKeys);
    // The same with 256 keys (key codes 0 to 255).
    static std::shared_ptr<PZKeyboardMap> keyboardMapWithModifier(KeyboardLayout& layout,
                                                                  std::optional<std::vector<int>> modifiers);
    // A map of the given entries, index i of both sets describing one key.
    static std::shared_ptr<PZKeyboardMap>
    keyboardMapWithCharSetKeySetModifiers(std::vector<std::string> charSet, std::vector<std::uint16_t> keySet,
                                          std::optional<std::vector<int>> modifiers);
    PZKeyboardMap(std::vector<std::string> charSet, std::vector<std::uint16_t> keySet,
                  std::optional<std::vector<int>> modifiers);

    // The key code producing exactly `string`: without `numpad` the first entry (upwards) with a
    // code in 0..50, with `numpad` the last entry (downwards) with a code in 51..92. Raises
    // PZException "PZKeyboardMap getKeyCodeForString:" when none matches.
    std::uint16_t getKeyCodeForStringNumpad(const std::string& string, bool numpad) const;
    // The same lookup without the exception: nothing when no entry matches.
    std::optional<std::uint16_t> findKeyCodeForStringNumpad(const std::string& string,
                                                            bool numpad) const noexcept;
    // The same for one UTF-16 unit.
    std::uint16_t getKeyCodeForCharNumpad(char16_t character, bool numpad) const;

    // The modifier key codes held for this map; nothing for the map without modifiers.
    const std::optional<std::vector<int>>& modifiers() const { return modifiers_; }
    const std::vector<std::string>& charSet() const { return charSet_; }
    const std::vector<std::uint16_t>& keySet() const { return keySet_; }

    // The dump: identity, the modifiers, then "string (first unit) = key code" per entry.
    std::string description() const;

private:
    std::optional<std::vector<int>> modifiers_;
    std::vector<std::string> charSet_;
    std::vector<std::uint16_t> keySet_;
};
