#include "phone/VXPhoneMessage.h"

#include <charconv>
#include <cmath>
#include <type_traits>
#include <variant>

#include "protocol/PZNumberText.h"

std::optional<std::string> VXPhoneMessage::string(std::string_view key) const {
    if (const auto* value = fields.findString(key)) {
        return *value;
    }
    return std::nullopt;
}

std::optional<double> VXPhoneMessage::number(std::string_view key) const {
    if (const auto* value = fields.findNumber(key)) {
        return *value;
    }
    if (const auto* text = fields.findString(key)) {
        double value = 0;
        const auto* first = text->data();
        const auto* last = text->data() + text->size();
        const auto result = std::from_chars(first, last, value);
        if (result.ec == std::errc() && result.ptr == last && first != last) {
            return value;
        }
    }
    return std::nullopt;
}

std::string VXPhoneMessage::jsonString(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size() + 2);
    out.push_back('"');
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (byte < 0x20 || byte == 0x7f) {
                out += "\\u00";
                out.push_back(kHex[byte >> 4]);
                out.push_back(kHex[byte & 0xF]);
            } else {
                out.push_back(c);
            }
        }
    }
    out.push_back('"');
    return out;
}

std::string VXPhoneMessage::jsonOfValue(const PZValue& value) {
    return std::visit(
        [](const auto& v) -> std::string {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, PZValue::Null>) {
                return "null";
            } else if constexpr (std::is_same_v<T, bool>) {
                return v ? "true" : "false";
            } else if constexpr (std::is_same_v<T, double>) {
                return std::isfinite(v) ? PZNumberText::formatNumber(v) : "null";
            } else if constexpr (std::is_same_v<T, std::string>) {
                return jsonString(v);
            } else if constexpr (std::is_same_v<T, PZArray>) {
                std::string out = "[";
                for (std::size_t i = 0; i < v.size(); ++i) {
                    if (i > 0) {
                        out.push_back(',');
                    }
                    out += jsonOfValue(v[i]);
                }
                out.push_back(']');
                return out;
            } else {
                std::string out = "{";
                for (std::size_t i = 0; i < v.size(); ++i) {
                    if (i > 0) {
                        out.push_back(',');
                    }
                    out += jsonString(v.keyAt(i));
                    out.push_back(':');
                    out += jsonOfValue(v.valueAt(i));
                }
                out.push_back('}');
                return out;
            }
        },
        value.storage());
}

std::string VXPhoneMessage::toJSON() const {
    std::string body = jsonOfValue(PZValue(fields));
    if (hasStream) {
        body.pop_back(); // the closing brace
        if (!fields.empty()) {
            body.push_back(',');
        }
        body += "\"stream\":{\"bytes\":";
        PZNumberText::appendInteger(body, static_cast<std::int64_t>(stream.size()));
        body += "}}";
    }
    return "{" + jsonString(kind) + ":" + body + "}";
}
