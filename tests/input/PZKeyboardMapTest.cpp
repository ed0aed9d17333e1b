#include "input/PZKeyboardMap.h"
#include "fakes/FakeKeyboardLayout.h"
#include "support/LogCapture.h"
#include "transport/PZException.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

TEST(PZKeyboardMapTest, keyboardMapWithModifier_usLayout_letterLookupsExactPerMap) {
    FakeKeyboardLayout layout;
    const auto plain = PZKeyboardMap::keyboardMapWithModifier(layout, std::nullopt);
    const auto shift = PZKeyboardMap::keyboardMapWithModifier(layout, std::vector<int>{56});
    EXPECT_EQ(plain->getKeyCodeForStringNumpad("a", false), 0);
    EXPECT_THROW(plain->getKeyCodeForStringNumpad("A", false), PZException);
    EXPECT_EQ(shift->getKeyCodeForStringNumpad("A", false), 0);
    EXPECT_EQ(shift->getKeyCodeForCharNumpad(u'!', false), 18);
    EXPECT_EQ(plain->modifiers(), std::nullopt);
    EXPECT_EQ(shift->modifiers(), std::vector<int>{56});
}

TEST(PZKeyboardMapTest, keyboardMapWithModifier_capsLockCountsAsShiftAndOptionReachesThirdLevel) {
    FakeKeyboardLayout layout;
    EXPECT_EQ(PZKeyboardMap::keyboardMapWithModifier(layout, std::vector<int>{57})
                  ->getKeyCodeForStringNumpad("Q", false),
              12);
    EXPECT_EQ(PZKeyboardMap::keyboardMapWithModifier(layout, std::vector<int>{58})
                  ->getKeyCodeForStringNumpad("@", false),
              12);
    // Command and control take no part in the translation.
    EXPECT_EQ(PZKeyboardMap::keyboardMapWithModifier(layout, std::vector<int>{55, 59})
                  ->getKeyCodeForStringNumpad("q", false),
              12);
}

TEST(PZKeyboardMapTest, getKeyCodeForString_digitWithKeypadFlag_keypadOrMainRowKey) {
    FakeKeyboardLayout layout;
    const auto plain = PZKeyboardMap::keyboardMapWithModifier(layout, std::nullopt);
    EXPECT_EQ(plain->getKeyCodeForStringNumpad("1", true), 83);
    EXPECT_EQ(plain->getKeyCodeForStringNumpad("1", false), 18);
    EXPECT_EQ(plain->getKeyCodeForStringNumpad("9", true), 92);
    EXPECT_EQ(plain->getKeyCodeForStringNumpad("\x03", true), 76); // keypad Enter keeps its own text
    EXPECT_THROW(plain->getKeyCodeForStringNumpad("\x03", false), PZException);
    EXPECT_THROW(plain->getKeyCodeForStringNumpad("a", true), PZException);
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

TEST(PZKeyboardMapTest, getKeyCodeForString_missing_raisesNamedException) {
    FakeKeyboardLayout layout;
    const auto empty = PZKeyboardMap::keyboardMapWithModifierWithNumberOfKeys(layout, std::nullopt, 0);
    EXPECT_TRUE(empty->charSet().empty());
    try {
        empty->getKeyCodeForStringNumpad("a", false);
        FAIL() << "no exception";
    } catch (const PZException& e) {
        EXPECT_EQ(e.name(), "PZKeyboardMap getKeyCodeForString:");
        EXPECT_EQ(e.reason(), "Impossible to find the string keyCode");
    }
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
