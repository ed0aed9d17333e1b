#include "protocol/PZJSONValue.h"

#include <algorithm>
#include <cstdint>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "transport/PZLogger.h"

namespace {

// The number of a text that is nothing but a short plain decimal ("12", "-2.500000"), read as
// PZNumberText::doubleValue reads it (a mantissa of at most 15 digits divided by an exact power of ten);
// nothing for any other text.
std::optional<double> plainDecimal(std::string_view text) {
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const bool negative = !text.empty() && text[0] == '-';
    std::uint64_t mantissa = 0;
    int digits = 0;
    int decimals = 0;
    bool point = false;
    bool anyDigit = false;
    for (std::size_t i = negative ? 1 : 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') {
            mantissa = mantissa * 10 + static_cast<std::uint64_t>(c - '0');
            digits += (mantissa != 0) ? 1 : 0;
            decimals += point ? 1 : 0;
            anyDigit = true;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return std::nullopt;
        }
    }
    if (!anyDigit || digits > 15 || decimals > 22) {
        return std::nullopt;
    }
    const double value = static_cast<double>(mantissa) / kPowers[decimals];
    return negative ? -value : value;
}

} // namespace

void PZJSONValue::decodeWithRawdecoding() {
    string_ = PZStringEncoding::stringWithRawURLDecode(string_);
}

std::optional<PZValue> PZJSONValue::getValue() const {
    return valueOfText(string_);
}

std::optional<PZValue> PZJSONValue::valueOfText(std::string_view text) {
    switch (text.size()) {
    case 4:
        if (text == "null") {
            return PZValue();
        }
        if (text == "true") {
            return PZValue(true);
        }
        break;
    case 5:
        if (text == "false") {
            return PZValue(false);
        }
        break;
    default:
        break;
    }
    if (const std::optional<double> number = plainDecimal(text)) {
        return PZValue(*number);
    }
    const auto points = std::count(text.begin(), text.end(), '.');
    if (points >= 2) {
        for (std::ptrdiff_t i = 1; i < points; ++i) {
            PZLog("getValue error to get number: too much points");
        }
        return std::nullopt;
    }
    return PZValue(PZNumberText::doubleValue(text));
}
