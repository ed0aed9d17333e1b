#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Text helpers of the input layer: UTF-8 code points, lowering, comparisons without regard to case,
// and the textual forms used in the logs and dumps. Numbers are always written in the "C" locale.
class InputText {
public:
    // The code points of UTF-8 text; an invalid sequence gives U+FFFD for each bad byte.
    static std::vector<char32_t> codePoints(std::string_view text);
    // UTF-8 of one code point (U+FFFD for surrogates and values beyond U+10FFFF).
    static std::string fromCodePoint(char32_t codePoint);
    // UTF-8 of one UTF-16 unit (a lone surrogate gives U+FFFD).
    static std::string fromUtf16Unit(char16_t unit);
    // The first UTF-16 unit of the text, -1 when it is empty.
    static int firstUtf16Unit(std::string_view text);
    // The text in small letters (full Unicode where the C.UTF-8 locale is available, else ASCII).
    static std::string lowercase(std::string_view text);
    // Equality without regard to case.
    static bool equalsIgnoringCase(std::string_view a, std::string_view b);
    // Whether `text` contains `word` (ASCII letters compared without regard to case).
    static bool containsIgnoringCase(std::string_view text, std::string_view word);
    // `text` with every occurrence of `word` (ASCII case ignored) removed, in one left-to-right pass.
    static std::string removingIgnoringCase(std::string_view text, std::string_view word);
    // The pieces of `text` between single `separator` characters (empty pieces kept).
    static std::vector<std::string> split(std::string_view text, char separator);
    // A number in its shortest exact form ("1920", "0.5").
    static std::string number(double value);
    // "{x, y}"
    static std::string point(double x, double y);
    // "{width, height}"
    static std::string size(double width, double height);
    // An array of numbers as a list dump "(\n    56,\n    58\n)", "(null)" for nothing.
    static std::string describeNumbers(const std::optional<std::vector<int>>& numbers);
};
