#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/PZDictionary.h"
#include "protocol/PZValue.h"

// One message of the server as a phone decodes it. The same message reads the same in both
// encodings: string values are raw-URL-decoded, and the content of an XML element is stored under the
// member name its JSON form uses ("information" for info, "text" for request, "instruction" for cmd,
// "message" for error, "name" for process; "content" for other elements).
struct VXPhoneMessage {
    // How the message was written on the wire.
    enum class Encoding { JSON, XML };

    // The wire encoding it arrived in.
    Encoding encoding = Encoding::JSON;
    // The top-level key (JSON) or element name (XML): "info", "error", "file", "screenshot", "processList",
    // ...
    std::string kind;
    // The decoded "type" member when it is a string; for "info" the "subject"; otherwise empty.
    std::string type;
    // The members (JSON) or attributes and content (XML), decoded; the "stream" member is left out.
    PZDictionary fields;
    // The raw bytes after "stream": (JSON) or the content of a "file" element (XML), exactly as sent.
    std::vector<std::uint8_t> stream;
    // Whether the message carried a stream (a "stream" member or a "file" element).
    bool hasStream = false;

    // The string member key, or nothing when absent or not a string.
    std::optional<std::string> string(std::string_view key) const;
    // The number member key (XML attributes holding a decimal text count too), or nothing.
    std::optional<double> number(std::string_view key) const;
    // True for an "error" message.
    bool isError() const { return kind == "error"; }
    // True for an "info" message with the given subject.
    bool isInfo(std::string_view subject) const { return kind == "info" && type == subject; }
    // True for a "request" message of the given type.
    bool isRequest(std::string_view requestType) const { return kind == "request" && type == requestType; }

    // Standard JSON of the decoded message, on one line: {"<kind>":{<fields>}}, strings escaped; a
    // stream appears as "stream":{"bytes":N}.
    std::string toJSON() const;
    // Standard JSON of one decoded value (strings escaped, numbers in the C locale).
    static std::string jsonOfValue(const PZValue& value);
    // A JSON string literal of text (quotes, backslashes and control characters escaped).
    static std::string jsonString(std::string_view text);
};
