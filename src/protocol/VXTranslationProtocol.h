#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "protocol/PZDictionary.h"

// The common base of every message object: the two wire encodings. The string forms return the
// message body; the data forms return the bytes written to the socket (normally the body in its
// top-level envelope, as ASCII, never holding a zero byte).
class VXTranslationProtocol {
public:
    virtual ~VXTranslationProtocol() = default;

    // The JSON body of the message.
    virtual std::string getJSONString() const = 0;
    // The JSON bytes sent for the message.
    virtual std::vector<std::uint8_t> getJSONData() const = 0;
    // The XML element of the message, or nothing for classes without an XML form.
    virtual std::optional<std::string> getXMLString() const = 0;
    // The XML bytes sent for the message, or nothing for classes without an XML form.
    virtual std::optional<std::vector<std::uint8_t>> getXMLData() const = 0;
    // Equality used by lists; identity unless a class defines its own.
    virtual bool isEqual(const VXTranslationProtocol& other) const { return this == &other; }

    // The ASCII bytes of text up to its first zero byte; nothing (empty) when it holds a non-ASCII byte.
    static std::vector<std::uint8_t> asciiData(const std::string& text);

protected:
    // Appends the raw URL encoding of value, or "(null)" when it is absent.
    static void appendEncoded(std::string& out, const std::optional<std::string>& value);
    // Appends ,"key":"E(value)" for string values and ,"key":number for numbers; other values are skipped.
    static void appendJSONMembers(std::string& out, const PZDictionary& members);
    // Appends ` key="E(value)"` for string values and ` key="E(number text)"` for numbers; others are
    // skipped.
    static void appendXMLAttributes(std::string& out, const PZDictionary& attributes);

    VXTranslationProtocol() = default;
    VXTranslationProtocol(const VXTranslationProtocol&) = default;
    VXTranslationProtocol& operator=(const VXTranslationProtocol&) = default;
};
