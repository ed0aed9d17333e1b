#include "protocol/VXRequest.h"

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "protocol/PZValue.h"
#include "transport/PZException.h"

VXRequest::VXRequest(std::optional<std::string> type, std::optional<std::string> text,
                     std::optional<PZDictionary> arguments)
    : text_(std::move(text)), arguments_(std::move(arguments)) {
    if (!type) {
        throw PZException("VXRequest initWithType: text:", "type argument can't be NULL");
    }
    type_ = std::move(*type);
}

std::shared_ptr<VXRequest> VXRequest::requestWithTypeTextArguments(std::optional<std::string> type,
                                                                   std::optional<std::string> text,
                                                                   std::optional<PZDictionary> arguments) {
    if (!type) {
        return nullptr;
    }
    return std::make_shared<VXRequest>(std::move(type), std::move(text), std::move(arguments));
}

bool VXRequest::isEqualToRequest(const VXRequest& other) const {
    return type_ == other.type_ && text_ == other.text_ && arguments_ == other.arguments_;
}

std::string VXRequest::getJSONString() const {
    std::string out = "{\"type\":\"";
    PZStringEncoding::appendRawURLEncode(type_, out);
    out += "\",\"text\":\"";
    appendEncoded(out, text_);
    out += '"';
    if (arguments_) {
        appendJSONMembers(out, *arguments_);
    }
    out += '}';
    return out;
}

std::vector<std::uint8_t> VXRequest::getJSONData() const {
    return asciiData("{\"request\":" + getJSONString() + "}");
}

std::optional<std::string> VXRequest::getXMLString() const {
    std::string out = "<request type=\"";
    PZStringEncoding::appendRawURLEncode(type_, out);
    out += '"';
    if (arguments_) {
        appendXMLAttributes(out, *arguments_);
    }
    out += '>';
    if (text_) {
        PZStringEncoding::appendRawURLEncode(*text_, out);
    }
    out += "</request>";
    return out;
}

std::optional<std::vector<std::uint8_t>> VXRequest::getXMLData() const {
    return asciiData(*getXMLString());
}
