#pragma once

#include "input/KeyboardLayout.h"

#include <array>
#include <linux/input-event-codes.h>
#include <map>
#include <string>

// A layout given as a table: per evdev key, the texts plain, shift, option and shift+option. The
// default content is a small US layout with a third level on Q (@) and E (€).
class FakeKeyboardLayout : public KeyboardLayout {
public:
    FakeKeyboardLayout() {
        const int letterKeys[] = {KEY_A, KEY_B, KEY_C, KEY_D, KEY_E, KEY_F, KEY_G, KEY_H, KEY_I,
                                  KEY_J, KEY_K, KEY_L, KEY_M, KEY_N, KEY_O, KEY_P, KEY_Q, KEY_R,
                                  KEY_S, KEY_T, KEY_U, KEY_V, KEY_W, KEY_X, KEY_Y, KEY_Z};
        for (int i = 0; i < 26; ++i) {
            const std::string small(1, static_cast<char>('a' + i)), capital(1, static_cast<char>('A' + i));
            keys[letterKeys[i]] = {small, capital, small, capital};
        }
        keys[KEY_Q][2] = "@";
        keys[KEY_E][2] = "€";
        const int keypad[] = {KEY_KP0, KEY_KP1, KEY_KP2, KEY_KP3, KEY_KP4,
                              KEY_KP5, KEY_KP6, KEY_KP7, KEY_KP8, KEY_KP9};
        for (int i = 0; i < 10; ++i) {
            const std::string digit(1, "1234567890"[i]), shifted(1, "!@#$%^&*()"[i]);
            keys[KEY_1 + i] = {digit, shifted, digit, shifted};
            keys[keypad[i]] = {std::to_string(i), "", std::to_string(i), ""};
        }
        const std::pair<int, std::string> sameOnAllLevels[] = {
            {KEY_SPACE, " "},  {KEY_ENTER, "\r"},   {KEY_TAB, "\t"},  {KEY_BACKSPACE, "\b"},
            {KEY_ESC, "\x1b"}, {KEY_KPENTER, "\r"}, {KEY_KPPLUS, "+"}};
        for (const auto& [key, text] : sameOnAllLevels) {
            keys[key] = {text, text, text, text};
        }
        keys[KEY_COMMA] = {",", "<", ",", "<"};
        keys[KEY_DOT] = {".", ">", ".", ">"};
    }

    bool available() override { return isAvailable; }
    std::string keyText(int evdevCode, bool shift, bool option) override {
        auto it = keys.find(evdevCode);
        return it == keys.end() ? std::string() : it->second[(shift ? 1 : 0) + (option ? 2 : 0)];
    }
    std::optional<int> keyForKeysym(std::uint32_t keysym) override {
        auto it = keysyms.find(keysym);
        return it == keysyms.end() ? std::nullopt : std::optional<int>(it->second);
    }
    bool layoutChanged() override {
        const bool was = changed;
        changed = false;
        return was;
    }
    std::optional<LockState> lockState() override { return locks; }
    std::optional<int> bindTemporaryKey(std::uint32_t keysym) override {
        if (!canBind) {
            return std::nullopt;
        }
        boundKeysyms.push_back(keysym);
        return temporaryKey;
    }
    void releaseTemporaryKeys(bool) override {}

    std::map<int, std::array<std::string, 4>> keys;
    std::map<std::uint32_t, int> keysyms{{0xffe1, KEY_LEFTSHIFT},
                                         {0xffe3, KEY_LEFTCTRL},
                                         {0xfe03, KEY_RIGHTALT},
                                         {0xffe5, KEY_CAPSLOCK},
                                         {0xff7f, KEY_NUMLOCK}};
    bool isAvailable = true;
    bool changed = false;
    std::optional<LockState> locks = LockState{false, true};
    bool canBind = false;
    int temporaryKey = 200;
    std::vector<std::uint32_t> boundKeysyms;
};
