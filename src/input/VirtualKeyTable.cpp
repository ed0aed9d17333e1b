#include "input/VirtualKeyTable.h"

#include <array>
#include <linux/input-event-codes.h>

namespace {

// Index: virtual key code; value: evdev key code, 0 where no key is.
constexpr std::array<std::uint16_t, 128> makeTable() {
    std::array<std::uint16_t, 128> t{};
    // Letters, digits and punctuation of the main block (ANSI positions, ISO and JIS keys).
    t[0] = KEY_A;
    t[1] = KEY_S;
    t[2] = KEY_D;
    t[3] = KEY_F;
    t[4] = KEY_H;
    t[5] = KEY_G;
    t[6] = KEY_Z;
    t[7] = KEY_X;
    t[8] = KEY_C;
    t[9] = KEY_V;
    t[10] = KEY_102ND; // the ISO key beside the left shift
    t[11] = KEY_B;
    t[12] = KEY_Q;
    t[13] = KEY_W;
    t[14] = KEY_E;
    t[15] = KEY_R;
    t[16] = KEY_Y;
    t[17] = KEY_T;
    t[18] = KEY_1;
    t[19] = KEY_2;
    t[20] = KEY_3;
    t[21] = KEY_4;
    t[22] = KEY_6;
    t[23] = KEY_5;
    t[24] = KEY_EQUAL;
    t[25] = KEY_9;
    t[26] = KEY_7;
    t[27] = KEY_MINUS;
    t[28] = KEY_8;
    t[29] = KEY_0;
    t[30] = KEY_RIGHTBRACE;
    t[31] = KEY_O;
    t[32] = KEY_U;
    t[33] = KEY_LEFTBRACE;
    t[34] = KEY_I;
    t[35] = KEY_P;
    t[36] = KEY_ENTER;
    t[37] = KEY_L;
    t[38] = KEY_J;
    t[39] = KEY_APOSTROPHE;
    t[40] = KEY_K;
    t[41] = KEY_SEMICOLON;
    t[42] = KEY_BACKSLASH;
    t[43] = KEY_COMMA;
    t[44] = KEY_SLASH;
    t[45] = KEY_N;
    t[46] = KEY_M;
    t[47] = KEY_DOT;
    t[48] = KEY_TAB;
    t[49] = KEY_SPACE;
    t[50] = KEY_GRAVE;
    t[51] = KEY_BACKSPACE;
    t[53] = KEY_ESC;
    t[54] = KEY_RIGHTMETA;
    t[55] = KEY_LEFTMETA;
    t[56] = KEY_LEFTSHIFT;
    t[57] = KEY_CAPSLOCK;
    t[58] = KEY_LEFTALT;
    t[59] = KEY_LEFTCTRL;
    t[60] = KEY_RIGHTSHIFT;
    t[61] = KEY_RIGHTALT;
    t[62] = KEY_RIGHTCTRL;
    t[64] = KEY_F17;
    // Keypad (the clear key sits where Num Lock is).
    t[65] = KEY_KPDOT;
    t[67] = KEY_KPASTERISK;
    t[69] = KEY_KPPLUS;
    t[71] = KEY_NUMLOCK;
    t[72] = KEY_VOLUMEUP;
    t[73] = KEY_VOLUMEDOWN;
    t[74] = KEY_MUTE;
    t[75] = KEY_KPSLASH;
    t[76] = KEY_KPENTER;
    t[78] = KEY_KPMINUS;
    t[79] = KEY_F18;
    t[80] = KEY_F19;
    t[81] = KEY_KPEQUAL;
    t[82] = KEY_KP0;
    t[83] = KEY_KP1;
    t[84] = KEY_KP2;
    t[85] = KEY_KP3;
    t[86] = KEY_KP4;
    t[87] = KEY_KP5;
    t[88] = KEY_KP6;
    t[89] = KEY_KP7;
    t[90] = KEY_F20;
    t[91] = KEY_KP8;
    t[92] = KEY_KP9;
    // JIS keys.
    t[93] = KEY_YEN;
    t[94] = KEY_RO;
    t[95] = KEY_KPJPCOMMA;
    t[102] = KEY_HANJA;   // Eisu (LANG2)
    t[104] = KEY_HANGEUL; // Kana (LANG1)
    // Function and navigation keys.
    t[96] = KEY_F5;
    t[97] = KEY_F6;
    t[98] = KEY_F7;
    t[99] = KEY_F3;
    t[100] = KEY_F8;
    t[101] = KEY_F9;
    t[103] = KEY_F11;
    t[105] = KEY_F13;
    t[106] = KEY_F16;
    t[107] = KEY_F14;
    t[109] = KEY_F10;
    t[110] = KEY_COMPOSE; // the context menu key
    t[111] = KEY_F12;
    t[113] = KEY_F15;
    t[114] = KEY_INSERT; // Help
    t[115] = KEY_HOME;
    t[116] = KEY_PAGEUP;
    t[117] = KEY_DELETE;
    t[118] = KEY_F4;
    t[119] = KEY_END;
    t[120] = KEY_F2;
    t[121] = KEY_PAGEDOWN;
    t[122] = KEY_F1;
    t[123] = KEY_LEFT;
    t[124] = KEY_RIGHT;
    t[125] = KEY_DOWN;
    t[126] = KEY_UP;
    return t;
}

constexpr std::array<std::uint16_t, 128> table = makeTable();

} // namespace

std::optional<int> VirtualKeyTable::evdevCode(int virtualKey) {
    if (virtualKey < 0 || virtualKey >= static_cast<int>(table.size()) || table[virtualKey] == 0) {
        return std::nullopt;
    }
    return table[virtualKey];
}

std::optional<int> VirtualKeyTable::virtualKey(int evdevCode) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (evdevCode != 0 && table[i] == evdevCode) {
            return static_cast<int>(i);
        }
    }
    return std::nullopt;
}

bool VirtualKeyTable::isNumLockDependent(int evdevCode) {
    switch (evdevCode) {
    case KEY_KP0:
    case KEY_KP1:
    case KEY_KP2:
    case KEY_KP3:
    case KEY_KP4:
    case KEY_KP5:
    case KEY_KP6:
    case KEY_KP7:
    case KEY_KP8:
    case KEY_KP9:
    case KEY_KPDOT:
        return true;
    default:
        return false;
    }
}

std::optional<std::string> VirtualKeyTable::fixedText(int virtualKey) {
    if (virtualKey == keypadEnterKey) {
        return std::string(1, '\x03');
    }
    return std::nullopt;
}
