#pragma once

#include <string>
#include <utility>

// An input/output failure as handed to a delegate: a domain, an integer code and a human-readable text.
class PZError {
public:
    PZError() = default;
    PZError(std::string domain, long code, std::string description = {})
        : domain_(std::move(domain)), code_(code), description_(std::move(description)) {}

    // The error's domain ("PZSocket", "PZSocketDomain", or a connect failure's message text).
    const std::string& domain() const noexcept { return domain_; }
    // The error's code (errno for system failures, 1 for read, 2 for write, -1 for no address).
    long code() const noexcept { return code_; }
    // The text for the user; when none was given, one made of the domain and the code.
    std::string description() const {
        if (!description_.empty()) {
            return description_;
        }
        return "The operation could not be completed. (" + domain_ + " error " + std::to_string(code_) + ".)";
    }

    bool operator==(const PZError& other) const = default;

private:
    std::string domain_;
    long code_ = 0;
    std::string description_;
};
