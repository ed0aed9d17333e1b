#include "protocol/PZJSONValue.h"

#include <algorithm>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "transport/PZLogger.h"

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
    const auto points = std::count(text.begin(), text.end(), '.');
    if (points >= 2) {
        for (std::ptrdiff_t i = 1; i < points; ++i) {
            PZLog("getValue error to get number: too much points");
        }
        return std::nullopt;
    }
    return PZValue(PZNumberText::doubleValue(text));
}
