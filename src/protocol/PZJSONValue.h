#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "protocol/PZValue.h"

// A bare (unquoted) JSON value under construction: null, true, false or a number.
class PZJSONValue {
public:
    // Appends one character.
    void addChar(char c) { string_.push_back(c); }
    // Appends several characters.
    void addChars(const char* chars, std::size_t count) { string_.append(chars, count); }
    // Replaces the text by its raw URL decoding.
    void decodeWithRawdecoding();
    // The text as received.
    const std::string& string() const noexcept { return string_; }
    // "null", "true", "false", or the number read from the text; nothing (logged) for two or more points.
    std::optional<PZValue> getValue() const;
    // getValue of a value whose text is text.
    static std::optional<PZValue> valueOfText(std::string_view text);

private:
    std::string string_;
};
