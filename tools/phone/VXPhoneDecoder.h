#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "phone/VXPhoneMessage.h"

// The phone's reader of the server's byte stream. Messages are split by their own structure: a JSON
// message ends when its outermost object closes (braces counted outside strings), an XML message at
// its end tag; the raw bytes after "stream": (JSON) or inside a "file" element (XML) are read by the
// count of the preceding "length" member. Chunks may split the input anywhere. Input is hostile: any
// bytes give messages or a failure, never a crash; memory grows only with bytes actually received.
// After a failure the decoder stays failed and ignores further input.
class VXPhoneDecoder {
public:
    // Bounds beyond which the input counts as broken.
    struct Limits {
        // Largest message text (the stream bytes not counted).
        std::size_t maxMessageBytes = 16 * 1024 * 1024;
        // Deepest nesting of objects and arrays (JSON) .
        std::size_t maxDepth = 256;
        // Largest declared stream length.
        std::uint64_t maxStreamBytes = 512ull * 1024 * 1024;
    };

    // A decoder with the default limits.
    VXPhoneDecoder();
    // A decoder with the given limits.
    explicit VXPhoneDecoder(Limits limits);

    // Reads the next chunk; returns the messages it completed, in order (nothing once failed).
    std::vector<VXPhoneMessage> decode(std::span<const std::uint8_t> bytes);
    // The same for bytes held in a string.
    std::vector<VXPhoneMessage> decode(std::string_view bytes);
    // Decodes a whole byte sequence with a fresh decoder; a failure ends the list early.
    static std::vector<VXPhoneMessage> decodeAll(std::string_view bytes);
    // The same with the given limits.
    static std::vector<VXPhoneMessage> decodeAll(std::string_view bytes, Limits limits);

    // True once the input was found broken.
    bool failed() const { return !error_.empty(); }
    // Why the input was found broken (empty while not failed).
    const std::string& error() const { return error_; }
    // True when no message is partly read (between messages).
    bool idle() const { return state_ == State::Between; }
    // Bytes held for the message being read (its text and stream so far).
    std::size_t bufferedBytes() const { return text_.size() + stream_.size(); }

private:
    enum class State {
        Between,
        JsonText,
        JsonString,
        JsonStream,
        XmlStartTag,
        XmlContent,
        XmlStream,
        XmlEndTag
    };

    // One open JSON object or array.
    struct Frame {
        bool isObject = false;
        bool expectKey = false; // a key (or the end of the object) comes next
        std::string key;        // the last key read
        std::string lengthText; // the bare text of this object's "length" member
    };

    void jsonTextByte(char byte, std::vector<VXPhoneMessage>& out);
    void jsonStringByte(char byte);
    void startJsonStream();
    void finishJson(std::vector<VXPhoneMessage>& out);
    void xmlStartTagByte(char byte);
    void xmlEndTagByte(char byte, std::vector<VXPhoneMessage>& out);
    void finishXml(std::vector<VXPhoneMessage>& out);
    bool appendText(char byte);
    void fail(std::string reason);
    void reset();

    Limits limits_;
    State state_ = State::Between;
    std::string error_;

    std::string text_;                 // the message text (JSON: the stream left out; XML: the start tag)
    std::vector<std::uint8_t> stream_; // the stream bytes so far
    bool hasStream_ = false;
    std::uint64_t streamRemaining_ = 0; // stream bytes still to come

    std::vector<Frame> frames_; // JSON: the open containers, outermost first
    std::string stringText_;    // JSON: the key being read
    bool stringIsKey_ = false;  // JSON: the string being read is a key

    bool inQuote_ = false;    // XML: inside an attribute value of the start tag
    std::string tagName_;     // XML: the element's name
    PZDictionary attributes_; // XML: the decoded attributes
    std::string content_;     // XML: the content so far
    std::string endTag_;      // XML: the end tag so far
};
