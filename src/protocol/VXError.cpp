#include "protocol/VXError.h"

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"

VXError::VXError(std::optional<std::string> type, std::int64_t code, std::optional<std::string> message)
    : type_(std::move(type)), code_(code), message_(std::move(message)) {}

std::shared_ptr<VXError> VXError::errorWithTypeCodeMessage(std::optional<std::string> type, std::int64_t code,
                                                           std::optional<std::string> message) {
    return std::make_shared<VXError>(std::move(type), code, std::move(message));
}

std::shared_ptr<VXError> VXError::compatibilityError() {
    return errorWithTypeCodeMessage("user", 0, "CLIENT_IS_NOT_COMPATIBLE_ERROR");
}

std::shared_ptr<VXError> VXError::unableToSatisfyRequestError() {
    return errorWithTypeCodeMessage("user", 0, "UNABLE_TO_SATISFY_REQUEST_ERROR");
}

std::shared_ptr<VXError> VXError::unableToRecognizeRequestError() {
    return errorWithTypeCodeMessage("user", 0, "UNABLE_TO_RECOGNIZE_REQEUST_ERROR");
}

std::shared_ptr<VXError> VXError::unableToExecuteCommandError() {
    return errorWithTypeCodeMessage("user", 0, "UNABLE_TO_EXECUTE_COMMAND_ERROR");
}

std::shared_ptr<VXError> VXError::unableToRecognizeCommandError() {
    return errorWithTypeCodeMessage("user", 0, "UNABLE_TO_RECOGNIZE_COMMAND_ERROR");
}

std::string VXError::getJSONString() const {
    std::string out = "{\"type\":\"";
    appendEncoded(out, type_);
    out += "\",\"code\":";
    PZNumberText::appendInteger(out, code_);
    out += ",\"message\":\"";
    appendEncoded(out, message_);
    out += "\"}";
    return out;
}

std::vector<std::uint8_t> VXError::getJSONData() const {
    return asciiData("{\"error\":" + getJSONString() + "}");
}

std::optional<std::string> VXError::getXMLString() const {
    std::string code;
    PZNumberText::appendInteger(code, code_);
    std::string out = "<error type=\"";
    appendEncoded(out, type_);
    out += "\" code=\"";
    PZStringEncoding::appendRawURLEncode(code, out);
    out += "\">";
    appendEncoded(out, message_);
    out += "</error>";
    return out;
}

std::optional<std::vector<std::uint8_t>> VXError::getXMLData() const {
    return asciiData(*getXMLString());
}
