#include "input/PZKeyboardMap.h"
#include "fakes/FakeKeyboardLayout.h"
#include "support/LogCapture.h"
#include "transport/PZException.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

TEST(PZKeyboardMapTest, getKeyCodeForString_usLayout_exactPerModifierMapAndKeypadFlag) {
    FakeKeyboardLayout layout;
    using Mods = std::optional<std::vector<int>>;
    using V = std::vector<int>;
    struct Case {
        Mods modifiers;
        const char* text;
        bool keypad;
        int key; // -1: not found, raises
    };
    const Case cases[] = {
        {std::nullopt, "a", false, 0},     {std::nullopt, "A", false, -1}, {V{56}, "A", false, 0},
        {V{57}, "Q", false, 12},     // Caps Lock counts as shift
        {V{58}, "@", false, 12},     // option reaches the third level
        {V{55, 59}, "q", false, 12}, // command and control take no part in the translation
        {std::nullopt, "1", true, 83},     {std::nullopt, "1", false, 18}, {std::nullopt, "9", true, 92},
        {std::nullopt, "\x03", true, 76}, // keypad Enter keeps its own text
        {std::nullopt, "\x03", false, -1}, {std::nullopt, "a", true, -1},
    };
    for (const Case& c : cases) {
        const auto map = PZKeyboardMap::keyboardMapWithModifier(layout, c.modifiers);
        if (c.key < 0) {
            try {
                map->getKeyCodeForStringNumpad(c.text, c.keypad);
                ADD_FAILURE() << c.text;
            } catch (const PZException& e) {
                EXPECT_EQ(e.name() + " " + e.reason(),
                          "PZKeyboardMap getKeyCodeForString: Impossible to find the string keyCode");
            }
        } else {
            EXPECT_EQ(map->getKeyCodeForStringNumpad(c.text, c.keypad), c.key) << c.text << " " << c.keypad;
        }
    }
    EXPECT_EQ(PZKeyboardMap::keyboardMapWithModifier(layout, V{56})->getKeyCodeForCharNumpad(u'!', false),
              18);
}

TEST(PZKeyboardMapTest, getKeyCodeForString_sameTextOnSeveralKeys_rangesAndScanDirections) {
    const auto map = PZKeyboardMap::keyboardMapWithCharSetKeySetModifiers(
        {"x", "x", "x", "x", "x", "x"}, {93, 7, 3, 60, 80, 50}, std::nullopt);
    EXPECT_EQ(map->getKeyCodeForStringNumpad("x", false), 7); // first upwards within 0..50
    EXPECT_EQ(map->getKeyCodeForStringNumpad("x", true), 80); // first downwards within 51..92
    // Only the entries both sets describe take part.
    const auto uneven =
        PZKeyboardMap::keyboardMapWithCharSetKeySetModifiers({"x", "y", "z"}, {1, 2}, std::nullopt);
    EXPECT_EQ(uneven->getKeyCodeForStringNumpad("y", false), 2);
    EXPECT_THROW(uneven->getKeyCodeForStringNumpad("z", false), PZException);
}

TEST(PZKeyboardMapTest, keyboardMapWithModifier_keysWithoutLinuxKeyOrText_absent) {
    FakeKeyboardLayout layout;
    const auto map = PZKeyboardMap::keyboardMapWithModifierWithNumberOfKeys(layout, std::nullopt, 1000);
    for (std::uint16_t code : map->keySet()) {
        EXPECT_LT(code, 128);
        EXPECT_NE(code, 52);  // no key at that position
        EXPECT_NE(code, 123); // the arrows produce no text
    }
    EXPECT_EQ(map->charSet().size(), map->keySet().size());
    EXPECT_TRUE(
        PZKeyboardMap::keyboardMapWithModifierWithNumberOfKeys(layout, std::nullopt, 0)->charSet().empty());
}

TEST(PZKeyboardMapTest, keyboardMapWithModifier_noLayoutData_emptyMapAndOneLogLine) {
    FakeKeyboardLayout layout;
    layout.isAvailable = false;
    LogCapture log;
    const auto map = PZKeyboardMap::keyboardMapWithModifier(layout, std::nullopt);
    const auto lines = log.lines();
    EXPECT_TRUE(map->keySet().empty());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("(mglCharToKeycode) Could not get UnicodeKeyLayoutData", 0), 0u);
}

TEST(PZKeyboardMapTest, description_entriesWithFirstUnitAndModifiers) {
    const auto map = PZKeyboardMap::keyboardMapWithCharSetKeySetModifiers({"a", "😀", ""}, {0, 5, 9},
                                                                          std::vector<int>{56, 58});
    const std::string text = map->description();
    EXPECT_EQ(text.rfind("<PZKeyboardMap: 0x", 0), 0u);
    EXPECT_NE(text.find(">\nmodifiers:\n(\n    56,\n    58\n)\na (97) = 0\n😀 (55357) = 5\n (-1) = 9\n"),
              std::string::npos)
        << text;
    const auto plain = PZKeyboardMap::keyboardMapWithCharSetKeySetModifiers({}, {}, std::nullopt);
    EXPECT_NE(plain->description().find("modifiers:\n(null)\n"), std::string::npos);
}

} // namespace
