#include <gtest/gtest.h>

#include <charconv>
#include <clocale>
#include <random>
#include <string>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"

namespace {

struct EncodeCase {
    const char* name;
    std::string text;
    std::string encoded;
};

TEST(PZStringEncoding, stringWithRawURLEncode_table_encodesEveryUTF16Unit) {
    const EncodeCase cases[] = {
        {"empty", "", ""},
        {"slash", "A/b", "%41%2f%62"},
        {"tabHasOneDigit", "\t", "%9"},
        {"nul", std::string(1, '\0'), "%0"},
        {"latin1", "\xC3\xA9", "%e9"},
        {"euro", "\xE2\x82\xAC", "%20ac"},
        {"nonBmpIsTwoUnits", "\xF0\x9F\x98\x80", "%d83d%de00"},
        {"invalidUTF8Byte", "\xFF", "%fffd"},
        {"truncatedSequence", "\xE2\x82", "%fffd%fffd"},
        {"overlongSlash", "\xC0\xAF", "%fffd%fffd"},
        {"encodedSurrogate", "\xED\xA0\x80", "%fffd%fffd%fffd"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(PZStringEncoding::stringWithRawURLEncode(c.text), c.encoded) << c.name;
    }
}

TEST(PZStringEncoding, stringWithRawURLDecode_table_followsThePieceRules) {
    const EncodeCase cases[] = {
        {"empty", "", ""},
        {"twoLettersAnyCaseHex", "JB", "%4A%42"},
        {"textBeforeFirstPercentDropped", "A", "x%41"},
        {"noHexDigitGivesNul", std::string(1, '\0'), "%zz"},
        {"loneTrailingPercentGivesNul", std::string("A") + '\0', "%41%"},
        {"trailingGarbageIgnored", "AB", "%41zz%42"},
        {"lowSixteenBitsKept", "\xE2\x8D\x85", "%12345"},
        {"euro", "\xE2\x82\xAC", "%20ac"},
        {"surrogatePair", "\xF0\x9F\x98\x80", "%d83d%de00"},
        {"loneHighSurrogate", "\xEF\xBF\xBD", "%d83d"},
        {"highThenLetter", "\xEF\xBF\xBD\x41", "%d83d%41"},
        {"loneLowSurrogate", "\xEF\xBF\xBD\x41", "%de00%41"},
        {"twoHighSurrogates", "\xEF\xBF\xBD\xF0\x9F\x98\x80", "%d83d%d83d%de00"},
        {"nullMarkerDecodesEmpty", "", "(null)"},
    };
    for (const auto& c : cases) {
        // Here .text holds the expected decoding and .encoded the input.
        EXPECT_EQ(PZStringEncoding::stringWithRawURLDecode(c.encoded), c.text) << c.name;
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
                expected += i % 2 ? "\xE0\xA0\x80" : std::string(1, '\0') + "\xDF\xBF";
            }
            encoded += tail;
            expected += tail == "%" ? std::string(1, '\0') : tail.empty() ? "" : "\xEF\xBF\xBD";
            EXPECT_EQ(PZStringEncoding::stringWithRawURLDecode(encoded), expected) << pieces << tail;
        }
    }
}

TEST(PZStringEncoding, encodeThenDecode_randomUnicodeText_givesTheSameText) {
    std::mt19937 random(12345);
    const std::string pieces[] = {"", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "%", "\xEF\xBF\xBF"};
    for (int round = 0; round < 500; ++round) {
        std::string text;
        for (int i = 0; i < 20; ++i) {
            const std::size_t piece = random() % 6;
            text += piece == 0 ? std::string(1, static_cast<char>(random() % 128)) : pieces[piece];
        }
        const std::string encoded = PZStringEncoding::stringWithRawURLEncode(text);
        EXPECT_EQ(encoded.find_first_not_of("%0123456789abcdef"), std::string::npos);
        EXPECT_EQ(PZStringEncoding::stringWithRawURLDecode(encoded), text);
    }
}

TEST(PZStringEncoding, stringHTTPEncode_specialCharacters_onlyThreeAreEncoded) {
    EXPECT_EQ(PZStringEncoding::stringHTTPEncode("a&b+c.d e%f=g"), "a%26b%2bc%2ed e%f=g");
    EXPECT_EQ(PZStringEncoding::stringHTTPEncode(""), "");
}

TEST(PZNumberText, doubleValue_table_readsTheLeadingNumber) {
    const std::pair<const char*, double> cases[] = {
        {"12.5", 12.5}, {"-2", -2}, {"+3", 3}, {"  7", 7}, {"1e3", 1000},       {".5", 0.5},
        {"5abc", 5},    {"inf", 0}, {"", 0},   {"-", 0},   {"1e400", HUGE_VAL},
    };
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(PZNumberText::doubleValue(text), value) << text;
    }
}

TEST(PZNumberText, doubleValue_randomDecimals_matchTheGeneralReader) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 200000; ++round) {
        const auto digits = [&](std::uint64_t most) {
            std::string out(random() % (most + 1), '0');
            for (char& c : out) {
                c = static_cast<char>('0' + random() % 10);
            }
            return out;
        };
        std::string text = (random() % 2 ? "-" : "") + digits(11);
        if (random() % 3) {
            text += "." + digits(25);
        }
        double expected = 0;
        if (std::from_chars(text.data(), text.data() + text.size(), expected).ec != std::errc()) {
            expected = 0;
        }
        ASSERT_EQ(PZNumberText::doubleValue(text), expected) << text;
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
