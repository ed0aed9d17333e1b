#pragma once

#include <exception>
#include <string>
#include <utility>

// The one exception type of the project: a name (often "Class operation:") and a reason text,
// raised where an impossible state or a programming error is met and caught by the callers
// that can recover.
class PZException : public std::exception {
public:
    PZException(std::string name, std::string reason) : name_(std::move(name)), reason_(std::move(reason)) {
        what_ = name_ + ": " + reason_;
    }

    const std::string& name() const noexcept { return name_; }
    const std::string& reason() const noexcept { return reason_; }
    const char* what() const noexcept override { return what_.c_str(); }

private:
    std::string name_;
    std::string reason_;
    std::string what_;
};
