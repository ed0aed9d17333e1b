#include "protocol/PZJSONValue.h"

#include <algorithm>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "transport/PZLogger.h"

void PZJSONValue::decodeWithRawdecoding() {
    string_ = PZStringEncoding::stringWithRawURLDecode(string_);
}

std::optional<PZValue> PZJSONValue::getValue() const {
    switch (string_.size()) {
    case 4:
        if (string_ == "null") {
            return PZValue();
        }
        if (string_ == "true") {
            return PZValue(true);
        }
        break;
    case 5:
        if (string_ == "false") {
            return PZValue(false);
        }
        break;
    default:
        break;
    }
    const auto points = std::count(string_.begin(), string_.end(), '.');
    if (points >= 2) {
        for (std::ptrdiff_t i = 1; i < points; ++i) {
            PZLog("getValue error to get number: too much points");
        }
        return std::nullopt;
    }
    return PZValue(PZNumberText::doubleValue(string_));
}
