#include "phone/VXPhoneDecoder.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

#include "protocol/PZStringEncoding.h"

namespace {

constexpr std::size_t kStreamReserveCap = 1024 * 1024;
// A message text buffer larger than this is given back after the message.
constexpr std::size_t kKeptTextCapacity = 64 * 1024;

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// A stream length: decimal digits only, no sign, no fraction.
std::optional<std::uint64_t> parseLength(std::string_view text) {
    text = trimmed(text);
    std::uint64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::string hexByte(unsigned char byte) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "0x%02x", byte);
    return buffer;
}

// Reads one complete message text. The protocol has no escapes: a string ends at the next quote.
class TextParser {
public:
    TextParser(std::string_view text, std::size_t maxDepth) : text_(text), maxDepth_(maxDepth) {}

    std::optional<PZValue> parseDocument() {
        auto value = parseValue(0);
        skipSpace();
        if (!value || pos_ != text_.size()) {
            return std::nullopt;
        }
        return value;
    }

private:
    void skipSpace() {
        while (pos_ < text_.size() && isSpace(text_[pos_])) {
            ++pos_;
        }
    }

    std::optional<std::string> rawString() {
        const auto close = text_.find('"', pos_ + 1);
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        std::string raw(text_.substr(pos_ + 1, close - pos_ - 1));
        pos_ = close + 1;
        return raw;
    }

    std::optional<PZValue> parseValue(std::size_t depth) {
        skipSpace();
        if (pos_ >= text_.size()) {
            return std::nullopt;
        }
        const char c = text_[pos_];
        if (c == '{' || c == '[') {
            if (depth >= maxDepth_) {
                return std::nullopt;
            }
            return c == '{' ? parseObject(depth + 1) : parseArray(depth + 1);
        }
        if (c == '"') {
            auto raw = rawString();
            if (!raw) {
                return std::nullopt;
            }
            return PZValue(PZStringEncoding::stringWithRawURLDecode(*raw));
        }
        const auto start = pos_;
        while (pos_ < text_.size() && !isSpace(text_[pos_]) && text_[pos_] != ',' && text_[pos_] != '}' &&
               text_[pos_] != ']' && text_[pos_] != ':' && text_[pos_] != '"') {
            ++pos_;
        }
        const auto token = text_.substr(start, pos_ - start);
        if (token.empty()) {
            return std::nullopt;
        }
        if (token == "null") {
            return PZValue();
        }
        if (token == "true" || token == "false") {
            return PZValue(token == "true");
        }
        double number = 0;
        const auto result = std::from_chars(token.data(), token.data() + token.size(), number);
        if (result.ec == std::errc() && result.ptr == token.data() + token.size()) {
            return PZValue(number);
        }
        return PZValue(std::string(token));
    }

    std::optional<PZValue> parseObject(std::size_t depth) {
        ++pos_; // {
        PZDictionary dictionary;
        skipSpace();
        if (pos_ < text_.size() && text_[pos_] == '}') {
            ++pos_;
            return PZValue(std::move(dictionary));
        }
        while (true) {
            skipSpace();
            if (pos_ >= text_.size() || text_[pos_] != '"') {
                return std::nullopt;
            }
            auto key = rawString();
            skipSpace();
            if (!key || pos_ >= text_.size() || text_[pos_] != ':') {
                return std::nullopt;
            }
            ++pos_;
            auto value = parseValue(depth);
            if (!value) {
                return std::nullopt;
            }
            dictionary.set(std::move(*key), std::move(*value));
            skipSpace();
            if (pos_ >= text_.size()) {
                return std::nullopt;
            }
            if (text_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (text_[pos_] == '}') {
                ++pos_;
                return PZValue(std::move(dictionary));
            }
            return std::nullopt;
        }
    }

    std::optional<PZValue> parseArray(std::size_t depth) {
        ++pos_; // [
        PZArray array;
        skipSpace();
        if (pos_ < text_.size() && text_[pos_] == ']') {
            ++pos_;
            return PZValue(std::move(array));
        }
        while (true) {
            auto value = parseValue(depth);
            if (!value) {
                return std::nullopt;
            }
            array.push_back(std::move(*value));
            skipSpace();
            if (pos_ >= text_.size()) {
                return std::nullopt;
            }
            if (text_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (text_[pos_] == ']') {
                ++pos_;
                return PZValue(std::move(array));
            }
            return std::nullopt;
        }
    }

    std::string_view text_;
    std::size_t maxDepth_;
    std::size_t pos_ = 0;
};

// The member under which an XML element's content is stored, as its JSON form names it.
std::string contentKey(const std::string& kind) {
    if (kind == "info") {
        return "information";
    }
    if (kind == "request") {
        return "text";
    }
    if (kind == "cmd") {
        return "instruction";
    }
    if (kind == "error") {
        return "message";
    }
    if (kind == "process") {
        return "name";
    }
    return "content";
}

// XML attributes that the JSON forms carry as numbers.
bool isNumericAttribute(std::string_view key) {
    return key == "pid" || key == "code" || key == "length" || key == "touch" || key == "fingers" ||
           key == "tapCount" || key == "rotation" || key == "zoom";
}

void setType(VXPhoneMessage& message) {
    const char* key = message.kind == "info" ? "subject" : "type";
    if (const auto* type = message.fields.findString(key)) {
        message.type = *type;
    }
}

} // namespace

VXPhoneDecoder::VXPhoneDecoder() = default;

VXPhoneDecoder::VXPhoneDecoder(Limits limits) : limits_(limits) {}

std::vector<VXPhoneMessage> VXPhoneDecoder::decode(std::string_view bytes) {
    return decode(
        std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

std::vector<VXPhoneMessage> VXPhoneDecoder::decodeAll(std::string_view bytes) {
    return decodeAll(bytes, Limits());
}

std::vector<VXPhoneMessage> VXPhoneDecoder::decodeAll(std::string_view bytes, Limits limits) {
    VXPhoneDecoder decoder(limits);
    return decoder.decode(bytes);
}

std::vector<VXPhoneMessage> VXPhoneDecoder::decode(std::span<const std::uint8_t> bytes) {
    std::vector<VXPhoneMessage> out;
    std::size_t i = 0;
    while (i < bytes.size() && !failed()) {
        if (state_ == State::JsonStream || state_ == State::XmlStream) {
            const auto take = static_cast<std::size_t>(
                std::min<std::uint64_t>(streamRemaining_, static_cast<std::uint64_t>(bytes.size() - i)));
            stream_.insert(stream_.end(), bytes.begin() + static_cast<std::ptrdiff_t>(i),
                           bytes.begin() + static_cast<std::ptrdiff_t>(i + take));
            i += take;
            streamRemaining_ -= take;
            if (streamRemaining_ == 0) {
                state_ = state_ == State::JsonStream ? State::JsonText : State::XmlContent;
            }
            continue;
        }
        const char byte = static_cast<char>(bytes[i++]);
        switch (state_) {
        case State::Between:
            if (isSpace(byte)) {
                break;
            }
            if (byte == '{') {
                reset();
                state_ = State::JsonText;
                jsonTextByte(byte, out);
            } else if (byte == '<') {
                reset();
                state_ = State::XmlStartTag;
            } else {
                fail("unexpected byte " + hexByte(static_cast<unsigned char>(byte)) + " between messages");
            }
            break;
        case State::JsonText:
            jsonTextByte(byte, out);
            break;
        case State::JsonString:
            jsonStringByte(byte);
            break;
        case State::XmlStartTag:
            xmlStartTagByte(byte);
            break;
        case State::XmlContent:
            if (byte == '<') {
                state_ = State::XmlEndTag;
            } else if (text_.size() + content_.size() >= limits_.maxMessageBytes) {
                fail("message larger than the limit");
            } else {
                content_.push_back(byte);
            }
            break;
        case State::XmlEndTag:
            xmlEndTagByte(byte, out);
            break;
        case State::JsonStream:
        case State::XmlStream:
            break; // handled above
        }
    }
    return out;
}

bool VXPhoneDecoder::appendText(char byte) {
    if (text_.size() >= limits_.maxMessageBytes) {
        fail("message larger than the limit");
        return false;
    }
    text_.push_back(byte);
    return true;
}

void VXPhoneDecoder::jsonTextByte(char byte, std::vector<VXPhoneMessage>& out) {
    if (!appendText(byte)) {
        return;
    }
    Frame* frame = frames_.empty() ? nullptr : &frames_.back();
    switch (byte) {
    case '{':
    case '[':
        if (frames_.size() >= limits_.maxDepth) {
            fail("nesting deeper than the limit");
            return;
        }
        frames_.push_back(Frame{byte == '{', byte == '{', {}, {}});
        return;
    case '}':
    case ']':
        if (frame == nullptr || frame->isObject != (byte == '}')) {
            fail(std::string("unbalanced '") + byte + "'");
            return;
        }
        frames_.pop_back();
        if (frames_.empty()) {
            finishJson(out);
        }
        return;
    case '"':
        stringIsKey_ = frame != nullptr && frame->isObject && frame->expectKey;
        stringText_.clear();
        state_ = State::JsonString;
        return;
    case ',':
        if (frame != nullptr && frame->isObject) {
            frame->expectKey = true;
        }
        return;
    case ':':
        if (frame != nullptr && frame->isObject && frame->key == "stream") {
            startJsonStream();
        }
        return;
    default:
        if (isSpace(byte)) {
            return;
        }
        // A bare value: keep the text of "length" for a stream that may follow.
        if (frame != nullptr && frame->isObject && !frame->expectKey && frame->key == "length") {
            frame->lengthText.push_back(byte);
        }
        return;
    }
}

void VXPhoneDecoder::jsonStringByte(char byte) {
    if (!appendText(byte)) {
        return;
    }
    if (byte != '"') {
        if (stringIsKey_) {
            stringText_.push_back(byte);
        }
        return;
    }
    state_ = State::JsonText;
    if (stringIsKey_ && !frames_.empty()) {
        Frame& frame = frames_.back();
        frame.key = std::move(stringText_);
        frame.expectKey = false;
        if (frame.key == "length") {
            frame.lengthText.clear();
        }
        stringText_.clear();
    }
}

void VXPhoneDecoder::startJsonStream() {
    const Frame& frame = frames_.back();
    std::uint64_t length = 0;
    if (!frame.lengthText.empty()) {
        const auto parsed = parseLength(frame.lengthText);
        if (!parsed) {
            fail("stream length \"" + frame.lengthText.substr(0, 40) + "\" is not a byte count");
            return;
        }
        length = *parsed;
    }
    if (length > limits_.maxStreamBytes) {
        fail("stream length " + std::to_string(length) + " larger than the limit");
        return;
    }
    // The stream's place in the message text holds a null.
    text_ += "null";
    hasStream_ = true;
    stream_.reserve(stream_.size() +
                    static_cast<std::size_t>(std::min<std::uint64_t>(length, kStreamReserveCap)));
    streamRemaining_ = length;
    if (length > 0) {
        state_ = State::JsonStream;
    }
}

void VXPhoneDecoder::finishJson(std::vector<VXPhoneMessage>& out) {
    TextParser parser(text_, limits_.maxDepth + 1);
    auto document = parser.parseDocument();
    const PZDictionary* top = document ? document->asDictionary() : nullptr;
    if (top == nullptr || top->empty()) {
        fail("malformed JSON message");
        return;
    }
    VXPhoneMessage message;
    message.encoding = VXPhoneMessage::Encoding::JSON;
    message.kind = top->keyAt(0);
    if (const auto* body = top->valueAt(0).asDictionary()) {
        message.fields = *body;
        if (hasStream_) {
            message.fields.remove("stream");
        }
    } else {
        message.fields.set("value", top->valueAt(0));
    }
    message.stream = std::move(stream_);
    message.hasStream = hasStream_;
    setType(message);
    out.push_back(std::move(message));
    reset();
}

void VXPhoneDecoder::xmlStartTagByte(char byte) {
    if (byte == '"') {
        inQuote_ = !inQuote_;
    }
    if (byte != '>' || inQuote_) {
        appendText(byte);
        return;
    }
    // The start tag is complete: name, then name="value" pairs.
    std::string_view tag = text_;
    std::size_t pos = 0;
    while (pos < tag.size() && !isSpace(tag[pos])) {
        ++pos;
    }
    tagName_ = std::string(tag.substr(0, pos));
    if (tagName_.empty() || tagName_.find_first_of("/<=\"") != std::string::npos) {
        fail("malformed XML start tag");
        return;
    }
    while (true) {
        while (pos < tag.size() && isSpace(tag[pos])) {
            ++pos;
        }
        if (pos >= tag.size()) {
            break;
        }
        const auto equals = tag.find('=', pos);
        if (equals == std::string_view::npos || equals + 1 >= tag.size() || tag[equals + 1] != '"') {
            fail("malformed XML attribute");
            return;
        }
        const auto close = tag.find('"', equals + 2);
        if (close == std::string_view::npos) {
            fail("malformed XML attribute");
            return;
        }
        std::string key(trimmed(tag.substr(pos, equals - pos)));
        if (key.empty() || key.find_first_of(" \t\r\n\"<") != std::string::npos) {
            fail("malformed XML attribute");
            return;
        }
        auto value = PZStringEncoding::stringWithRawURLDecode(tag.substr(equals + 2, close - equals - 2));
        double number = 0;
        const auto parsed = std::from_chars(value.data(), value.data() + value.size(), number);
        if (isNumericAttribute(key) && !value.empty() && parsed.ec == std::errc() &&
            parsed.ptr == value.data() + value.size()) {
            attributes_.set(std::move(key), PZValue(number));
        } else {
            attributes_.set(std::move(key), PZValue(std::move(value)));
        }
        pos = close + 1;
    }
    state_ = State::XmlContent;
    if (tagName_ == "file") {
        std::uint64_t length = 0;
        if (const auto* number = attributes_.findNumber("length")) {
            if (*number < 0 || *number != static_cast<double>(static_cast<std::uint64_t>(*number))) {
                fail("file length is not a byte count");
                return;
            }
            length = static_cast<std::uint64_t>(*number);
        } else if (attributes_.find("length") != nullptr) {
            fail("file length is not a byte count");
            return;
        }
        if (length > limits_.maxStreamBytes) {
            fail("stream length " + std::to_string(length) + " larger than the limit");
            return;
        }
        hasStream_ = true;
        stream_.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(length, kStreamReserveCap)));
        streamRemaining_ = length;
        if (length > 0) {
            state_ = State::XmlStream;
        }
    }
}

void VXPhoneDecoder::xmlEndTagByte(char byte, std::vector<VXPhoneMessage>& out) {
    if (byte != '>') {
        if (endTag_.size() >= tagName_.size() + 64) {
            fail("malformed XML end tag");
            return;
        }
        endTag_.push_back(byte);
        return;
    }
    const auto name = trimmed(endTag_);
    if (name.empty() || name.front() != '/' || trimmed(name.substr(1)) != tagName_) {
        fail("XML end tag does not match <" + tagName_ + ">");
        return;
    }
    finishXml(out);
}

void VXPhoneDecoder::finishXml(std::vector<VXPhoneMessage>& out) {
    VXPhoneMessage message;
    message.encoding = VXPhoneMessage::Encoding::XML;
    message.kind = tagName_;
    message.fields = std::move(attributes_);
    if (tagName_ != "file" || !content_.empty()) {
        message.fields.set(contentKey(tagName_), PZValue(PZStringEncoding::stringWithRawURLDecode(content_)));
    }
    message.stream = std::move(stream_);
    message.hasStream = hasStream_;
    setType(message);
    out.push_back(std::move(message));
    reset();
}

void VXPhoneDecoder::fail(std::string reason) {
    if (error_.empty()) {
        error_ = std::move(reason);
    }
    reset();
}

void VXPhoneDecoder::reset() {
    state_ = State::Between;
    text_.clear();
    if (text_.capacity() > kKeptTextCapacity) {
        text_.shrink_to_fit();
    }
    stream_ = {};
    hasStream_ = false;
    streamRemaining_ = 0;
    frames_.clear();
    stringText_.clear();
    stringIsKey_ = false;
    inQuote_ = false;
    tagName_.clear();
    attributes_.clear();
    content_.clear();
    endTag_.clear();
}
