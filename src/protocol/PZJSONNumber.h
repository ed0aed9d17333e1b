#pragma once

#include <optional>
#include <string>

#include "protocol/PZValue.h"

// A number under construction. Kept for completeness; nothing creates one and getNumber gives nothing.
class PZJSONNumber {
public:
    // Appends one character.
    void addChar(char c) { numberString_.push_back(c); }
    // Replaces the text by its raw URL decoding.
    void decodeWithRawdecoding();
    // The text as received.
    const std::string& numberString() const noexcept { return numberString_; }
    // Always nothing.
    std::optional<PZValue> getNumber() const { return std::nullopt; }

private:
    std::string numberString_;
};
