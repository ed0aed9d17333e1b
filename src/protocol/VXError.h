#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "protocol/VXTranslationProtocol.h"

// An error message: type, code and message text, read-only after construction. Errors sent to a
// phone have type "user" and code 0 and are told apart by their message.
class VXError : public VXTranslationProtocol {
public:
    // Makes an error.
    VXError(std::optional<std::string> type, std::int64_t code, std::optional<std::string> message);
    // The class constructor.
    static std::shared_ptr<VXError> errorWithTypeCodeMessage(std::optional<std::string> type,
                                                             std::int64_t code,
                                                             std::optional<std::string> message);
    // "CLIENT_IS_NOT_COMPATIBLE_ERROR".
    static std::shared_ptr<VXError> compatibilityError();
    // "UNABLE_TO_SATISFY_REQUEST_ERROR".
    static std::shared_ptr<VXError> unableToSatisfyRequestError();
    // "UNABLE_TO_RECOGNIZE_REQEUST_ERROR" (spelt as the phones expect it).
    static std::shared_ptr<VXError> unableToRecognizeRequestError();
    // "UNABLE_TO_EXECUTE_COMMAND_ERROR".
    static std::shared_ptr<VXError> unableToExecuteCommandError();
    // "UNABLE_TO_RECOGNIZE_COMMAND_ERROR".
    static std::shared_ptr<VXError> unableToRecognizeCommandError();

    // The error type ("user").
    const std::optional<std::string>& type() const noexcept { return type_; }
    // The error code.
    std::int64_t code() const noexcept { return code_; }
    // The message text.
    const std::optional<std::string>& message() const noexcept { return message_; }

    // {"type":...,"code":N,"message":...}.
    std::string getJSONString() const override;
    // {"error":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;
    // <error type="..." code="...">message</error>.
    std::optional<std::string> getXMLString() const override;
    // The XML element as bytes.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

private:
    std::optional<std::string> type_;
    std::int64_t code_ = 0;
    std::optional<std::string> message_;
};
