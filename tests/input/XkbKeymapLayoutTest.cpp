#include "input/linux/XkbKeymapLayout.h"
#include "input/KeyEventSender.h"
#include "input/PZKeyboard.h"
#include "input/PZKeyboardMap.h"
#include "transport/PZException.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

namespace {

// The virtual key and map (0 plain, 1 shift, 2 option, 3 shift+option) that type `text`.
std::pair<int, int> lookup(const std::shared_ptr<KeyboardLayout>& layout, const std::string& text,
                           bool keypad = false) {
    const std::optional<std::vector<int>> modifiers[] = {std::nullopt, std::vector<int>{56},
                                                         std::vector<int>{58}, std::vector<int>{56, 58}};
    for (int i = 0; i < 4; ++i) {
        try {
            return {PZKeyboardMap::keyboardMapWithModifier(*layout, modifiers[i])
                        ->getKeyCodeForStringNumpad(text, keypad),
                    i};
        } catch (const PZException&) {
        }
    }
    return {-1, -1};
}

TEST(XkbKeymapLayoutTest, maps_realLayouts_charactersFoundOnTheirKeysKeypadWithNumLockDeadKeysAbsent) {
    struct Case {
        const char* layout;
        const char* text;
        int key; // -1: on no key
        int map;
        bool keypad = false;
    };
    const Case cases[] = {{"us", "a", 0, 0},           {"us", "A", 0, 1},  {"de", "z", 16, 0},
                          {"de", "@", 12, 2},          {"fr", "a", 12, 0}, {"de", "5", 87, 0, true},
                          {"de", "\x03", 76, 0, true}, // the keypad with Num Lock, keypad Enter
                          {"de", "^", -1, -1},         // dead_circumflex produces no text
                          {"us", "ő", -1, -1}};
    for (const Case& c : cases) {
        const auto layout = XkbKeymapLayout::fromNames(c.layout);
        ASSERT_TRUE(layout->available()) << c.layout;
        EXPECT_EQ(lookup(layout, c.text, c.keypad), std::make_pair(c.key, c.map))
            << c.layout << " " << c.text;
    }
}

TEST(XkbKeymapLayoutTest, keyForKeysym_modifierKeys_realKeysPreferred) {
    const auto de = XkbKeymapLayout::fromNames("de");
    EXPECT_EQ(de->keyForKeysym(0xfe03), KEY_RIGHTALT); // AltGr, not the key without a position
    EXPECT_EQ(de->keyForKeysym(0x1008ff14), KEY_PLAYPAUSE);
    EXPECT_EQ(de->keyForKeysym(0x01000151), std::nullopt);
    const auto us = XkbKeymapLayout::fromNames("us");
    ASSERT_TRUE(us->keyForKeysym(0xfe03).has_value()); // only the level-three key without a position
    EXPECT_NE(*us->keyForKeysym(0xfe03), KEY_RIGHTALT);
}

TEST(XkbKeymapLayoutTest, fromSystemSettings_configuredLayoutOrNone) {
    char pattern[] = "/tmp/vxh-keyboard-XXXXXX";
    const int fd = mkstemp(pattern);
    ASSERT_GE(fd, 0);
    close(fd);
    {
        std::ofstream out(pattern);
        out << "# KEYBOARD CONFIGURATION FILE\nXKBMODEL=\"pc105\"\nXKBLAYOUT=\"fr,us\"\nXKBVARIANT=\"\"\n";
    }
    const std::shared_ptr<KeyboardLayout> fr = XkbKeymapLayout::fromSystemSettings(pattern);
    EXPECT_EQ(lookup(fr, "a"), std::make_pair(12, 0));
    std::remove(pattern);
    EXPECT_FALSE(XkbKeymapLayout::fromNames("no-such-layout")->available());
}

} // namespace
