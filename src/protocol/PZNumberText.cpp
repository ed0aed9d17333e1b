#include "protocol/PZNumberText.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale.h>

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// The "C" locale for the rare reads std::from_chars cannot finish (values out of range).
locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

} // namespace

void PZNumberText::appendFixed(std::string& out, double value, int decimals) {
    char buffer[400];
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    if (result.ec == std::errc()) {
        out.append(buffer, result.ptr);
        return;
    }
    // Only values beyond the buffer (above 1e300 or so) come here.
    std::string big(4096, '\0');
    const auto second =
        std::to_chars(big.data(), big.data() + big.size(), value, std::chars_format::fixed, decimals);
    out.append(big.data(), second.ptr);
}

std::string PZNumberText::formatFixed(double value, int decimals) {
    std::string out;
    appendFixed(out, value, decimals);
    return out;
}

void PZNumberText::appendInteger(std::string& out, std::int64_t value) {
    char buffer[24];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

std::string PZNumberText::formatNumber(double value) {
    std::string out;
    if (std::isfinite(value) && value == std::trunc(value) && std::fabs(value) < 9.2e18) {
        appendInteger(out, static_cast<std::int64_t>(value));
        return out;
    }
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
    return out;
}

double PZNumberText::doubleValue(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && isSpace(text[i])) {
        ++i;
    }
    std::size_t start = i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        ++i;
    }
    // Only a digit or a point may start the number ("inf", "nan" and the like read as 0).
    if (i >= text.size() || !((text[i] >= '0' && text[i] <= '9') || text[i] == '.')) {
        return 0;
    }
    if (text[start] == '+') {
        ++start;
    }
    // Fast path for the usual short decimal ("12", "-2.500000"): a mantissa below 2^53 divided by an
    // exact power of ten is correctly rounded, so it equals what the general reader gives.
    {
        static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                             1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                             1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
        std::size_t k = i;
        std::uint64_t mantissa = 0;
        int digits = 0;
        int decimals = 0;
        bool point = false;
        for (; k < text.size(); ++k) {
            const char c = text[k];
            if (c >= '0' && c <= '9') {
                mantissa = mantissa * 10 + static_cast<std::uint64_t>(c - '0');
                digits += (mantissa != 0) ? 1 : 0;
                decimals += point ? 1 : 0;
            } else if (c == '.' && !point) {
                point = true;
            } else {
                break;
            }
        }
        const bool exponent = k < text.size() && (text[k] == 'e' || text[k] == 'E');
        if (!exponent && digits <= 15 && decimals <= 22 && (k > i + 1 || text[i] != '.')) {
            const double value = static_cast<double>(mantissa) / kPowers[decimals];
            return text[start] == '-' ? -value : value;
        }
    }
    double value = 0;
    const char* first = text.data() + start;
    const char* last = text.data() + text.size();
    const auto result = std::from_chars(first, last, value, std::chars_format::general);
    if (result.ec == std::errc()) {
        return value;
    }
    if (result.ec == std::errc::result_out_of_range) {
        const std::string copy(first, result.ptr);
        return strtod_l(copy.c_str(), nullptr, cLocale());
    }
    return 0;
}

std::int32_t PZNumberText::intValue(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && isSpace(text[i])) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    std::int64_t value = 0;
    constexpr std::int64_t limit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        value = value * 10 + (text[i] - '0');
        if (value > limit) {
            value = limit;
        }
        ++i;
    }
    if (negative) {
        value = -value;
    }
    if (value > std::numeric_limits<std::int32_t>::max()) {
        return std::numeric_limits<std::int32_t>::max();
    }
    return static_cast<std::int32_t>(value);
}

std::int64_t PZNumberText::integerValue(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 9223372036854775807.0) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (value <= -9223372036854775808.0) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return static_cast<std::int64_t>(value);
}
