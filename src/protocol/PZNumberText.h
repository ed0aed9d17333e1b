#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Numbers written to and read from text in the "C" locale, whatever the process locale.
class PZNumberText {
public:
    // printf("%.*f") in the C locale: fixed notation with the given number of decimals.
    static std::string formatFixed(double value, int decimals = 6);
    // Appends formatFixed(value, decimals) to out.
    static void appendFixed(std::string& out, double value, int decimals = 6);
    // The decimal text of a number as the protocol writes it: integral values without a fraction,
    // others in the shortest text that reads back to the same double.
    static std::string formatNumber(double value);
    // Appends the decimal text of an integer to out.
    static void appendInteger(std::string& out, std::int64_t value);
    // The double read from the leading numeric part of text (leading white space and "+" allowed);
    // text with no numeric start gives 0.
    static double doubleValue(std::string_view text);
    // The 32-bit integer read from the leading digits of text (white space, sign), saturating; else 0.
    static std::int32_t intValue(std::string_view text);
    // The integer part of a double, saturating at the 64-bit range; NaN gives 0.
    static std::int64_t integerValue(double value);
};
