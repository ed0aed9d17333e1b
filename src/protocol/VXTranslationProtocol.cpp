#include "protocol/VXTranslationProtocol.h"

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "protocol/PZValue.h"

std::vector<std::uint8_t> VXTranslationProtocol::asciiData(const std::string& text) {
    std::vector<std::uint8_t> data;
    data.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (byte == 0) {
            break;
        }
        if (byte >= 0x80) {
            return {};
        }
        data.push_back(byte);
    }
    return data;
}

void VXTranslationProtocol::appendEncoded(std::string& out, const std::optional<std::string>& value) {
    if (value) {
        PZStringEncoding::appendRawURLEncode(*value, out);
    } else {
        out += "(null)";
    }
}

void VXTranslationProtocol::appendJSONMembers(std::string& out, const PZDictionary& members) {
    for (std::size_t i = 0; i < members.size(); ++i) {
        const PZValue& value = members.valueAt(i);
        if (const std::string* text = value.asString()) {
            out += ",\"";
            out += members.keyAt(i);
            out += "\":\"";
            PZStringEncoding::appendRawURLEncode(*text, out);
            out += '"';
        } else if (const double* number = value.asNumber()) {
            out += ",\"";
            out += members.keyAt(i);
            out += "\":";
            out += PZNumberText::formatNumber(*number);
        }
    }
}

void VXTranslationProtocol::appendXMLAttributes(std::string& out, const PZDictionary& attributes) {
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        const PZValue& value = attributes.valueAt(i);
        const std::string* text = value.asString();
        const double* number = value.asNumber();
        if (!text && !number) {
            continue;
        }
        out += ' ';
        out += attributes.keyAt(i);
        out += "=\"";
        PZStringEncoding::appendRawURLEncode(text ? *text : PZNumberText::formatNumber(*number), out);
        out += '"';
    }
}
