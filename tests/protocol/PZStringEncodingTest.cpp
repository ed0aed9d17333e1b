#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <string>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"

namespace {

using namespace std::string_literals;

TEST(PZStringEncoding, stringWithRawURLEncode_table_encodesEveryUTF16Unit) {
    // Plain, one digit, zero, two, three and four UTF-8 bytes, then invalid, truncated, overlong, surrogate.
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"A/b", "%41%2f%62"},
        {"\t", "%9"},
        {"\0"s, "%0"},
        {"\xC3\xA9", "%e9"},
        {"\xE2\x82\xAC", "%20ac"},
        {"\xF0\x9F\x98\x80", "%d83d%de00"},
        {"\xFF", "%fffd"},
        {"\xE2\x82", "%fffd%fffd"},
        {"\xC0\xAF", "%fffd%fffd"},
        {"\xED\xA0\x80", "%fffd%fffd%fffd"},
    };
    for (const auto& [text, encoded] : cases) {
        EXPECT_EQ(PZStringEncoding::stringWithRawURLEncode(text), encoded) << encoded;
    }
}

TEST(PZStringEncoding, stringWithRawURLDecode_table_followsThePieceRules) {
    // Text before the first "%" and after a piece's hex digits is dropped; a piece keeps its low 16 bits;
    // an unpaired surrogate gives U+FFFD.
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"(null)", ""},
        {"%4A%42", "JB"},
        {"x%41", "A"},
        {"%zz", "\0"s},
        {"%41%", "A\0"s},
        {"%41zz%42", "AB"},
        {"%12345", "\xE2\x8D\x85"},
        {"%20ac", "\xE2\x82\xAC"},
        {"%d83d%de00", "\xF0\x9F\x98\x80"},
        {"%d83d", "\xEF\xBF\xBD"},
        {"%d83d%41", "\xEF\xBF\xBD\x41"},
        {"%de00%41", "\xEF\xBF\xBD\x41"},
        {"%d83d%d83d%de00", "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
    };
    for (const auto& [encoded, text] : cases) {
        EXPECT_EQ(PZStringEncoding::stringWithRawURLDecode(encoded), text) << encoded;
    }
}

// Short and long texts are decoded in different places: the pieces that give the most bytes per
// character, on both sides of the boundary, with a lone high surrogate at the very end.
TEST(PZStringEncoding, stringWithRawURLDecode_densestPiecesAroundTheBufferSize_decodeCompletely) {
    for (std::size_t pieces = 50; pieces <= 70; ++pieces) {
        for (const std::string_view tail : {"", "%", "%d83d"}) {
            std::string encoded = "x";
            std::string expected;
            for (std::size_t i = 0; i < pieces; ++i) {
                encoded += i % 2 ? "%800" : "%%7ff";
                expected += i % 2 ? "\xE0\xA0\x80" : "\0"s + "\xDF\xBF";
            }
            encoded += tail;
            expected += tail == "%" ? "\0"s : tail.empty() ? "" : "\xEF\xBF\xBD";
            EXPECT_EQ(PZStringEncoding::stringWithRawURLDecode(encoded), expected) << pieces << tail;
        }
    }
}

TEST(PZStringEncoding, stringHTTPEncode_specialCharacters_onlyThreeAreEncoded) {
    EXPECT_EQ(PZStringEncoding::stringHTTPEncode("a&b+c.d e%f=g"), "a%26b%2bc%2ed e%f=g");
    EXPECT_EQ(PZStringEncoding::stringHTTPEncode(""), "");
}

TEST(PZNumberText, doubleValue_table_readsTheLeadingNumber) {
    const std::pair<const char*, double> cases[] = {
        {"12.5", 12.5},
        {"-2", -2},
        {"+3", 3},
        {"  7", 7},
        {"1e3", 1000},
        {".5", 0.5},
        {"5abc", 5},
        {"inf", 0},
        {"", 0},
        {"-", 0},
        {"1e400", HUGE_VAL},
        {".", 0},
        // The most digits the short reader takes, and one more.
        {"0.123456789012345", 0.123456789012345},
        {"1234567890123456.5", 1234567890123456.5},
    };
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(PZNumberText::doubleValue(text), value) << text;
    }
}

TEST(PZNumberText, formatAndRead_germanLocale_keepThePoint) {
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr) << "the de_DE.UTF-8 locale is needed";
    EXPECT_EQ(PZNumberText::formatFixed(0.5), "0.500000");
    EXPECT_EQ(PZNumberText::formatFixed(-1234.5678, 2), "-1234.57");
    EXPECT_EQ(PZNumberText::formatNumber(1.5), "1.5");
    EXPECT_EQ(PZNumberText::formatNumber(3), "3");
    EXPECT_EQ(PZNumberText::doubleValue("0.25"), 0.25);
    EXPECT_EQ(PZNumberText::doubleValue("1e400"), HUGE_VAL);
    std::setlocale(LC_ALL, previous.c_str());
}

TEST(PZNumberText, intValueAndIntegerValue_extremes_saturate) {
    EXPECT_EQ(PZNumberText::intValue("42"), 42);
    EXPECT_EQ(PZNumberText::intValue(" -17x"), -17);
    EXPECT_EQ(PZNumberText::intValue("abc"), 0);
    EXPECT_EQ(PZNumberText::intValue("99999999999"), 2147483647);
    EXPECT_EQ(PZNumberText::intValue("-99999999999"), -2147483647 - 1);
    EXPECT_EQ(PZNumberText::intValue("1.9"), 1);
    EXPECT_EQ(PZNumberText::integerValue(3.9), 3);
    EXPECT_EQ(PZNumberText::integerValue(-3.9), -3);
    EXPECT_EQ(PZNumberText::integerValue(1e300), INT64_MAX);
    EXPECT_EQ(PZNumberText::integerValue(-HUGE_VAL), INT64_MIN);
    EXPECT_EQ(PZNumberText::integerValue(NAN), 0);
}

} // namespace
