#include "protocol/VXTranslator.h"

#include <algorithm>
#include <cstring>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "protocol/VXCommand.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXError.h"
#include "protocol/VXFile.h"
#include "protocol/VXFileStreamSink.h"
#include "protocol/VXInfo.h"
#include "protocol/VXNullProcessNameLookup.h"
#include "protocol/VXProcess.h"
#include "protocol/VXProcessList.h"
#include "protocol/VXRequest.h"
#include "protocol/VXStreamSink.h"
#include "protocol/VXTrackpadCommand.h"
#include "transport/PZException.h"
#include "transport/PZLogger.h"

namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    if (a == b) {
        return true;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z') {
            x = static_cast<char>(x - 'A' + 'a');
        }
        if (y >= 'A' && y <= 'Z') {
            y = static_cast<char>(y - 'A' + 'a');
        }
        if (x != y) {
            return false;
        }
    }
    return true;
}

// The integer value of an XML attribute (its leading digits), 0 when missing.
std::int32_t intAttribute(const PZDictionary& arguments, std::string_view key) {
    const std::string* text = arguments.findString(key);
    return text ? PZNumberText::intValue(*text) : 0;
}

// The bytes that end a bare JSON value.
bool endsBareValue(char c) {
    return c == ' ' || c == ',' || c == ']' || c == '}';
}

// A coordinate read as a single-precision number and widened.
double singlePrecision(double value) {
    return static_cast<double>(static_cast<float>(value));
}

std::optional<std::string> stringMember(const PZDictionary& dictionary, std::string_view key) {
    const std::string* text = dictionary.findString(key);
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

// The byte as the "%c" of a log line.
std::string charText(std::uint8_t byte) {
    return std::string(1, static_cast<char>(byte));
}

std::string pathInDirectory(const std::optional<std::string>& parent, const std::string& name) {
    return (parent ? *parent : std::string("(null)")) + "/" + name;
}

} // namespace

VXTranslator::VXTranslator() : VXTranslator(nullptr, nullptr) {}

VXTranslator::VXTranslator(std::shared_ptr<VXStreamSink> sink, std::shared_ptr<VXProcessNameLookup> lookup) {
    setStreamSink(std::move(sink));
    setProcessNameLookup(std::move(lookup));
}

VXTranslator::~VXTranslator() {
    if (streamOpen_ && sink_) {
        sink_->finish();
    }
}

void VXTranslator::setStreamSink(std::shared_ptr<VXStreamSink> sink) {
    if (streamOpen_ && sink_) {
        sink_->finish();
        streamOpen_ = false;
    }
    sink_ = sink ? std::move(sink) : std::make_shared<VXFileStreamSink>();
}

void VXTranslator::setProcessNameLookup(std::shared_ptr<VXProcessNameLookup> lookup) {
    lookup_ = lookup ? std::move(lookup) : std::make_shared<VXNullProcessNameLookup>();
}

void VXTranslator::translateBytes(const std::uint8_t* bytes, std::size_t length) {
    if (exceededLimit_ || length == 0 || bytes == nullptr) {
        return;
    }
    if (protocol_ == kProtocolXML) {
        xmlTranslateBytes(bytes, length);
    } else if (protocol_ == kProtocolJSON) {
        jsonTranslateBytes(bytes, length);
    }
}

// ---------------------------------------------------------------------------------------------
// Limits

bool VXTranslator::exceedMessageSize() {
    exceedLimit(VXTranslatorLimit::messageSize, "message larger than 16 MiB");
    return false;
}

bool VXTranslator::exceedNestingDepth() {
    exceedLimit(VXTranslatorLimit::nestingDepth, "message nested more than 256 levels deep");
    return false;
}

void VXTranslator::exceedLimit(VXTranslatorLimit limit, const std::string& reason) {
    if (exceededLimit_) {
        return;
    }
    exceededLimit_ = true;
    if (streamOpen_) {
        sink_->finish();
        streamOpen_ = false;
    }
    // Nothing more will be read: let go of what the message held.
    jsonTree_ = PZJSONTree();
    tagName_.clear();
    endTagName_.clear();
    argKey_.clear();
    argValue_.clear();
    arguments_.clear();
    content_.clear();
    currentField_.clear();
    tagName_.shrink_to_fit();
    content_.shrink_to_fit();
    argValue_.shrink_to_fit();
    currentField_.shrink_to_fit();
    if (delegate_) {
        delegate_->translatorDidExceedLimit(*this, limit, reason);
    }
}

// ---------------------------------------------------------------------------------------------
// JSON

bool VXTranslator::closeJSONValue() {
    std::optional<PZValue> value = jsonTree_.setEndOfLastObject();
    if (jsonTree_.depth() != 0) {
        return false;
    }
    // The outermost value is complete (or there was none): the next message starts afresh.
    heldBytes_ = 0;
    if (value) {
        decodeAndTellDelegate(*value);
        jsonTree_.recycle(std::move(*value));
    }
    return true;
}

void VXTranslator::jsonTranslateBytes(const std::uint8_t* bytes, std::size_t length) {
    const char* chars = reinterpret_cast<const char*>(bytes);
    std::size_t i = 0;
    while (i < length && !exceededLimit_) {
        const char c = chars[i];
        switch (jsonParsingState_) {
        case 0:
            switch (c) {
            case ' ':
                ++i;
                break;
            case '"': {
                if (!checkDepth()) {
                    return;
                }
                const char* start = chars + i + 1;
                const void* quote = std::memchr(start, '"', length - i - 1);
                if (quote && jsonTree_.depth() > 0) {
                    // The whole string is in this chunk: it goes to its parent directly.
                    const std::size_t count =
                        static_cast<std::size_t>(static_cast<const char*>(quote) - start);
                    if (count > 0 && !holdBytes(count)) {
                        return;
                    }
                    jsonTree_.addFinishedString(start, count);
                    jsonParsingState_ = 2;
                    i += count + 2;
                    break;
                }
                jsonTree_.addString();
                jsonParsingState_ = 1;
                ++i;
                break;
            }
            case '[':
                if (!checkDepth()) {
                    return;
                }
                jsonTree_.addArray();
                ++i;
                break;
            case ']':
                jsonParsingState_ = closeJSONValue() ? 0 : 2;
                ++i;
                break;
            case '{':
                if (!checkDepth()) {
                    return;
                }
                jsonTree_.addObject();
                currentField_.clear();
                jsonParsingState_ = 3;
                ++i;
                break;
            default: {
                // The first byte always belongs to the value; the rest of its run is taken at once.
                std::size_t end = i + 1;
                while (end < length && !endsBareValue(chars[end])) {
                    ++end;
                }
                if (!checkDepth() || !holdBytes(end - i)) {
                    return;
                }
                if (end < length && jsonTree_.depth() > 0) {
                    // The whole value is in this chunk: it goes to its parent directly, and its
                    // terminating byte is read in state 2.
                    jsonTree_.addFinishedValue(chars + i, end - i);
                    jsonParsingState_ = 2;
                    i = end;
                    break;
                }
                jsonTree_.addValue();
                jsonTree_.addCharsToLastValue(chars + i, end - i);
                jsonParsingState_ = 1;
                i = end;
                break;
            }
            }
            break;
        case 1: {
            const int type = jsonTree_.getCurrentObjectType();
            if (type == PZJSONTree::kOther) {
                std::size_t end = i;
                while (end < length && !endsBareValue(chars[end])) {
                    ++end;
                }
                if (end > i) {
                    if (!holdBytes(end - i)) {
                        return;
                    }
                    jsonTree_.addCharsToLastValue(chars + i, end - i);
                    i = end;
                }
                if (i < length) {
                    // The terminating byte is read again in state 2.
                    closeJSONValue();
                    jsonParsingState_ = 2;
                }
            } else if (type == PZJSONTree::kString) {
                const void* quote = std::memchr(chars + i, '"', length - i);
                const std::size_t end =
                    quote ? static_cast<std::size_t>(static_cast<const char*>(quote) - chars) : length;
                if (end > i) {
                    if (!holdBytes(end - i)) {
                        return;
                    }
                    jsonTree_.addCharsToLastString(chars + i, end - i);
                    i = end;
                }
                if (i < length) {
                    closeJSONValue();
                    jsonParsingState_ = 2;
                    ++i;
                }
            } else {
                ++i;
            }
            break;
        }
        case 2:
            switch (c) {
            case '}':
            case ']':
                if (closeJSONValue()) {
                    jsonParsingState_ = 0;
                }
                ++i;
                break;
            case ',': {
                const int type = jsonTree_.getCurrentObjectType();
                ++i;
                if (type == PZJSONTree::kObject) {
                    currentField_.clear();
                    jsonParsingState_ = 3;
                    // The usual quote of the next key, taken as state 3 would.
                    if (i < length && chars[i] == '"') {
                        jsonParsingState_ = 4;
                        ++i;
                    }
                } else if (type == PZJSONTree::kArray) {
                    jsonParsingState_ = 0;
                }
                break;
            }
            default:
                ++i;
                while (i < length && chars[i] != '}' && chars[i] != ']' && chars[i] != ',') {
                    ++i;
                }
                break;
            }
            break;
        case 3:
            if (c != '"') {
                if (c != ' ') {
                    PZLog("ERRORE NEL PARSING DEL JSON: carattere inaspettato " + charText(bytes[i]) +
                          " mentre si aspettava '\"'");
                }
                ++i;
                break;
            }
            jsonParsingState_ = 4;
            if (++i == length) {
                break;
            }
            [[fallthrough]];
        case 4: {
            const void* quote = std::memchr(chars + i, '"', length - i);
            const std::size_t end =
                quote ? static_cast<std::size_t>(static_cast<const char*>(quote) - chars) : length;
            if (end < length && currentField_.empty()) {
                // The whole key is in this chunk.
                if (end > i && !holdBytes(end - i)) {
                    return;
                }
                const std::string_view key(chars + i, end - i);
                currentFieldIsStream_ = key == "stream";
                jsonTree_.addFieldToLastObject(key.data(), key.size());
                jsonParsingState_ = 5;
                i = end + 1;
                // The usual colon right after the key, taken as state 5 would.
                if (i < length && chars[i] == ':' && !currentFieldIsStream_) {
                    jsonParsingState_ = 0;
                    ++i;
                }
                break;
            }
            if (end > i) {
                if (!holdBytes(end - i)) {
                    return;
                }
                currentField_.append(chars + i, end - i);
                i = end;
            }
            if (i < length) {
                currentFieldIsStream_ = currentField_ == "stream";
                jsonTree_.addFieldToLastObject(std::move(currentField_));
                currentField_.clear();
                jsonParsingState_ = 5;
                ++i;
            }
            break;
        }
        case 5:
            if (c == ':') {
                jsonParsingState_ = 0;
                ++i;
                if (currentFieldIsStream_) {
                    PZLog("STREAMMMMM");
                    prepareForStream();
                }
            } else {
                if (c != ' ') {
                    PZLog("ERRORE NEL PARSING DEL JSON: carattere inaspettato " + charText(bytes[i]) +
                          " mentre si aspettava ':'");
                }
                ++i;
            }
            break;
        case 6:
            if (contentIndex_ < contentLength_) {
                const std::uint64_t wanted = contentLength_ - contentIndex_;
                const std::size_t count =
                    static_cast<std::size_t>(std::min<std::uint64_t>(wanted, length - i));
                addBytesToStream(bytes + i, count);
                contentIndex_ += count;
                i += count;
            } else {
                // The byte after the content closes the stream and is swallowed.
                closeStream();
                ++i;
            }
            break;
        default:
            i = length;
            break;
        }
    }
}

void VXTranslator::prepareForStream() {
    jsonParsingState_ = 6;
    contentIndex_ = 0;
    contentLength_ = 0;
    bool tooLong = false;
    if (const PZValue* length = jsonTree_.getValueOfCurrentObjectForField("length")) {
        if (const double* number = length->asNumber()) {
            const std::int64_t value = PZNumberText::integerValue(*number);
            tooLong = value < 0 || static_cast<std::uint64_t>(value) > kMaxStreamLength;
            contentLength_ = tooLong ? 0 : static_cast<std::uint64_t>(value);
        }
    }
    if (tooLong) {
        exceedLimit(VXTranslatorLimit::streamLength, "stream longer than 512 MiB");
        return;
    }
    PZLog("STREAM di lunghezza " + std::to_string(contentLength_));
    if (streamOpen_) {
        sink_->finish();
        streamOpen_ = false;
    }
    streamPath_ = sink_->openUniqueStream();
    streamOpen_ = streamPath_.has_value();
}

void VXTranslator::addBytesToStream(const std::uint8_t* bytes, std::size_t length) {
    if (streamOpen_) {
        sink_->write(bytes, length);
    }
}

void VXTranslator::closeStream() {
    if (streamOpen_) {
        sink_->finish();
        streamOpen_ = false;
    }
    if (streamPath_) {
        if (!holdBytes(streamPath_->size())) {
            return;
        }
        jsonTree_.addValueToLastField(PZValue(*streamPath_));
    } else {
        jsonTree_.addValueToLastField(std::nullopt);
    }
    jsonParsingState_ = 2;
}

// ---------------------------------------------------------------------------------------------
// XML

void VXTranslator::xmlTranslateBytes(const std::uint8_t* bytes, std::size_t length) {
    const char* chars = reinterpret_cast<const char*>(bytes);
    std::size_t i = 0;
    while (i < length && !exceededLimit_) {
        const char c = chars[i];
        switch (parsingState_) {
        case 0: {
            const void* open = std::memchr(chars + i, '<', length - i);
            if (!open) {
                return;
            }
            i = static_cast<std::size_t>(static_cast<const char*>(open) - chars) + 1;
            tagName_.clear();
            argKey_.clear();
            argValue_.clear();
            arguments_.clear();
            content_.clear();
            endTagName_.clear();
            heldBytes_ = 0;
            parsingState_ = 1;
            break;
        }
        case 1:
            if (c == ' ' || c == '>') {
                parsingState_ = 2;
            } else {
                if (!holdBytes(1)) {
                    return;
                }
                tagName_.push_back(c);
            }
            ++i;
            break;
        case 2:
        case 6:
            if (c == '>') {
                parsingState_ = 7;
                if (tagName_ == "file") {
                    openXMLFileStream();
                }
            } else if (c != ' ') {
                if (!holdBytes(1)) {
                    return;
                }
                argKey_.push_back(c);
                parsingState_ = 3;
            }
            ++i;
            break;
        case 3:
            if (c == ' ' || c == '=') {
                parsingState_ = 4;
            } else {
                if (!holdBytes(1)) {
                    return;
                }
                argKey_.push_back(c);
            }
            ++i;
            break;
        case 4:
            if (c == '"') {
                parsingState_ = 5;
            }
            ++i;
            break;
        case 5: {
            const void* quote = std::memchr(chars + i, '"', length - i);
            const std::size_t end =
                quote ? static_cast<std::size_t>(static_cast<const char*>(quote) - chars) : length;
            if (end > i) {
                if (!holdBytes(end - i)) {
                    return;
                }
                argValue_.append(chars + i, end - i);
                i = end;
            }
            if (i < length) {
                if (!holdBytes(kNodeCost)) {
                    return;
                }
                arguments_.set(argKey_, PZValue(PZStringEncoding::stringWithRawURLDecode(argValue_)));
                argKey_.clear();
                argValue_.clear();
                parsingState_ = 6;
                ++i;
            }
            break;
        }
        case 7:
            if (tagName_ == "file") {
                if (contentIndex_ < contentLength_) {
                    const std::uint64_t wanted = contentLength_ - contentIndex_;
                    const std::size_t count =
                        static_cast<std::size_t>(std::min<std::uint64_t>(wanted, length - i));
                    addBytesToStream(bytes + i, count);
                    contentIndex_ += count;
                    i += count;
                } else {
                    if (streamOpen_) {
                        sink_->finish();
                        streamOpen_ = false;
                    }
                    PZLog("file creato e salvato ( '<' ?=? '" + charText(bytes[i]) + "' )");
                    parsingState_ = 8;
                    ++i;
                }
            } else {
                const void* open = std::memchr(chars + i, '<', length - i);
                const std::size_t end =
                    open ? static_cast<std::size_t>(static_cast<const char*>(open) - chars) : length;
                if (end > i) {
                    if (!holdBytes(end - i)) {
                        return;
                    }
                    content_.append(chars + i, end - i);
                    i = end;
                }
                if (i < length) {
                    content_ = PZStringEncoding::stringWithRawURLDecode(content_);
                    parsingState_ = 8;
                    ++i;
                }
            }
            break;
        case 8:
            if (c == '/') {
                parsingState_ = 9;
            } else {
                PZLog("VXTranslator error: after < there isn't '/'");
            }
            ++i;
            break;
        case 9:
            if (c == '>') {
                parsingState_ = 0;
                ++i;
                dispatchXMLElement();
                if (protocol_ == kProtocolJSON && (tagName_ == "info" || tagName_ == "request")) {
                    // The delegate switched to JSON while handling this element: the rest of the chunk is
                    // JSON.
                    if (i < length) {
                        jsonTranslateBytes(bytes + i, length - i);
                    }
                    return;
                }
            } else {
                if (c != ' ') {
                    if (!holdBytes(1)) {
                        return;
                    }
                    endTagName_.push_back(c);
                }
                ++i;
            }
            break;
        default:
            return;
        }
    }
}

void VXTranslator::openXMLFileStream() {
    if (streamOpen_) {
        sink_->finish();
        streamOpen_ = false;
    }
    if (const std::string* length = arguments_.findString("length")) {
        const std::int32_t value = PZNumberText::intValue(*length);
        if (value < 0 || static_cast<std::uint64_t>(value) > kMaxStreamLength) {
            exceedLimit(VXTranslatorLimit::streamLength, "stream longer than 512 MiB");
            return;
        }
        contentLength_ = static_cast<std::uint64_t>(value);
        contentIndex_ = 0;
    } else {
        PZLog("VXTranslator error: did get file without length");
        contentLength_ = 0;
    }
    const std::string* name = arguments_.findString("name");
    if (!name) {
        PZLog("VXTranslator error: did get file without name");
        return;
    }
    // Only the last path component names the file; nothing is made for "", "." or "..".
    const std::size_t slash = name->rfind('/');
    const std::string base = slash == std::string::npos ? *name : name->substr(slash + 1);
    if (base.empty() || base == "." || base == "..") {
        return;
    }
    streamOpen_ = sink_->openNamedStream(base).has_value();
}

void VXTranslator::dispatchXMLElement() {
    if (tagName_ == "process") {
        auto process = std::make_shared<VXProcess>(content_, intAttribute(arguments_, "pid"));
        if (delegate_) {
            delegate_->translatorDidGetProcess(*this, std::move(process));
        }
    } else if (tagName_ == "info") {
        // An info without subject cannot be made; it is dropped.
        if (const std::string* subject = arguments_.findString("subject")) {
            auto info = std::make_shared<VXInfo>(*subject, content_);
            if (delegate_) {
                delegate_->translatorDidGetInfo(*this, std::move(info));
            }
        }
    } else if (tagName_ == "request") {
        PZDictionary arguments = arguments_;
        arguments.remove("type");
        const std::string* type = arguments_.findString("type");
        try {
            auto request = std::make_shared<VXRequest>(
                type ? std::optional<std::string>(*type) : std::nullopt, content_, std::move(arguments));
            if (delegate_) {
                delegate_->translatorDidGetRequest(*this, std::move(request));
            }
        } catch (const PZException&) {
            PZLog((type ? *type : std::string("(null)")) + " " + content_ + " ");
        }
    } else if (tagName_ == "cmd") {
        if (auto command = makeCommandWithArgumentsContent(arguments_, content_)) {
            if (delegate_) {
                delegate_->translatorDidGetCommand(*this, std::move(command));
            }
        }
    }
}

std::shared_ptr<VXCommand> VXTranslator::makeCommandWithArgumentsContent(const PZDictionary& arguments,
                                                                         const std::string& content) const {
    const std::string* type = arguments.findString("type");
    const std::int32_t pid = intAttribute(arguments, "pid");
    if (type && *type == "trackpad") {
        auto command = std::make_shared<VXTrackpadCommand>(pid);
        if (arguments.find("touch")) {
            command->setTouchState(intAttribute(arguments, "touch"));
        }
        if (arguments.find("fingers")) {
            command->setFingers(static_cast<std::int16_t>(intAttribute(arguments, "fingers")));
        }
        if (arguments.find("tapCount")) {
            command->setTapCount(static_cast<std::int16_t>(intAttribute(arguments, "tapCount")));
        }
        if (arguments.find("rotation")) {
            command->setRotation(static_cast<std::int16_t>(intAttribute(arguments, "rotation")));
        }
        if (arguments.find("zoom")) {
            command->setZoom(static_cast<std::int16_t>(intAttribute(arguments, "zoom")));
        }
        const std::size_t separator = content.find(';');
        if (separator != std::string::npos && content.find(';', separator + 1) == std::string::npos) {
            const std::string_view text(content);
            command->setShift({singlePrecision(PZNumberText::doubleValue(text.substr(0, separator))),
                               singlePrecision(PZNumberText::doubleValue(text.substr(separator + 1)))});
        }
        return command;
    }
    std::optional<std::string> name = stringMember(arguments, "processName");
    if (!name) {
        name = lookup_->processNameForPid(pid);
    }
    return std::make_shared<VXCommand>(type ? std::optional<std::string>(*type) : std::nullopt,
                                       VXProcess(std::move(name), pid), content);
}

// ---------------------------------------------------------------------------------------------
// Decoding finished JSON messages

void VXTranslator::decodeAndTellDelegate(const PZValue& value) {
    const PZDictionary* message = value.asDictionary();
    if (!message) {
        return;
    }
    if (const PZDictionary* body = message->findDictionary("cmd")) {
        if (auto command = makeCommandWithDictionary(*body); command && delegate_) {
            delegate_->translatorDidGetCommand(*this, std::move(command));
        }
    } else if (const PZDictionary* body = message->findDictionary("request")) {
        if (auto request = makeRequestDictionary(*body); request && delegate_) {
            delegate_->translatorDidGetRequest(*this, std::move(request));
        }
    } else if (const PZDictionary* body = message->findDictionary("info")) {
        if (auto info = makeInfoWithDictionary(*body); info && delegate_) {
            delegate_->translatorDidGetInfo(*this, std::move(info));
        }
    } else if (const PZDictionary* body = message->findDictionary("file")) {
        auto file = std::make_shared<VXFile>();
        file->setLocalPath(streamPath_);
        PZDictionary attributes;
        for (std::size_t i = 0; i < body->size(); ++i) {
            const std::string& key = body->keyAt(i);
            const PZValue& member = body->valueAt(i);
            if (key == "originalPath" || key == "name") {
                if (const std::string* text = member.asString()) {
                    key == "name" ? file->setName(*text) : file->setOriginalPath(*text);
                }
            } else {
                attributes.set(key, member);
            }
        }
        file->setAttributes(std::move(attributes));
        if (delegate_) {
            delegate_->translatorDidGetFile(*this, std::move(file));
        }
    } else if (const PZDictionary* body = message->findDictionary("error")) {
        if (auto error = makeErrorWithDictionary(*body); error && delegate_) {
            delegate_->translatorDidGetError(*this, std::move(error));
        }
    } else if (const PZDictionary* body = message->findDictionary("process")) {
        if (auto process = makeProcessWithDictionary(*body); process && delegate_) {
            delegate_->translatorDidGetProcess(*this, std::move(process));
        }
    } else if (const PZDictionary* body = message->findDictionary("processList")) {
        auto list = std::make_shared<VXProcessList>(stringMember(*body, "name"));
        if (const PZValue* elements = body->find("elements"); elements && elements->isArray()) {
            for (const PZValue& element : *elements->asArray()) {
                if (const PZDictionary* entry = element.asDictionary()) {
                    if (auto process = makeProcessWithDictionary(*entry)) {
                        list->addElement(std::shared_ptr<VXTranslationProtocol>(std::move(process)));
                    }
                }
            }
        }
        if (delegate_) {
            delegate_->translatorDidGetProcessList(*this, std::move(list));
        }
    } else if (const PZDictionary* body = message->findDictionary("directory")) {
        auto directory = std::make_shared<VXDirectory>(stringMember(*body, "name"));
        directory->setPath(stringMember(*body, "path"));
        if (const PZValue* elements = body->find("elements"); elements && elements->isArray()) {
            for (const PZValue& element : *elements->asArray()) {
                const PZDictionary* entry = element.asDictionary();
                const std::string* name = entry ? entry->findString("name") : nullptr;
                const std::string* type = entry ? entry->findString("type") : nullptr;
                if (!name || !type) {
                    continue;
                }
                if (equalsIgnoringCase(*type, "dir")) {
                    auto child = std::make_shared<VXDirectory>(*name);
                    child->setPath(pathInDirectory(directory->path(), *name));
                    directory->addElement(std::shared_ptr<VXTranslationProtocol>(std::move(child)));
                } else {
                    auto child = std::make_shared<VXFile>();
                    child->setName(*name);
                    child->setOriginalPath(pathInDirectory(directory->path(), *name));
                    directory->addElement(std::shared_ptr<VXTranslationProtocol>(std::move(child)));
                }
            }
        }
        if (delegate_) {
            delegate_->translatorDidGetDirectory(*this, std::move(directory));
        }
    }
}

std::shared_ptr<VXRequest> VXTranslator::makeRequestDictionary(const PZDictionary& dictionary) const {
    std::optional<std::string> type;
    std::optional<std::string> text;
    PZDictionary arguments;
    for (std::size_t i = 0; i < dictionary.size(); ++i) {
        const std::string& key = dictionary.keyAt(i);
        const PZValue& member = dictionary.valueAt(i);
        if (key == "type") {
            if (const std::string* value = member.asString()) {
                type = *value;
            }
        } else if (key == "text") {
            if (const std::string* value = member.asString()) {
                text = *value;
            }
        } else {
            arguments.set(key, member);
        }
    }
    if (!type) {
        return nullptr;
    }
    return std::make_shared<VXRequest>(std::move(type), std::move(text), std::move(arguments));
}

std::shared_ptr<VXCommand> VXTranslator::makeCommandWithDictionary(const PZDictionary& dictionary) const {
    // One pass over the members (commands arrive many times a second).
    const PZValue* type = nullptr;
    const PZValue* pid = nullptr;
    const PZValue* touch = nullptr;
    const PZValue* fingers = nullptr;
    const PZValue* tapCount = nullptr;
    const PZValue* rotation = nullptr;
    const PZValue* zoom = nullptr;
    const PZValue* shift = nullptr;
    const PZValue* processName = nullptr;
    const PZValue* instruction = nullptr;
    for (std::size_t i = 0; i < dictionary.size(); ++i) {
        const std::string_view key = dictionary.keyAt(i);
        const PZValue* value = &dictionary.valueAt(i);
        switch (key.size()) {
        case 3:
            pid = key == "pid" ? value : pid;
            break;
        case 4:
            if (key == "type") {
                type = value;
            } else if (key == "zoom") {
                zoom = value;
            }
            break;
        case 5:
            if (key == "touch") {
                touch = value;
            } else if (key == "shift") {
                shift = value;
            }
            break;
        case 7:
            fingers = key == "fingers" ? value : fingers;
            break;
        case 8:
            if (key == "tapCount") {
                tapCount = value;
            } else if (key == "rotation") {
                rotation = value;
            }
            break;
        case 11:
            if (key == "processName") {
                processName = value;
            } else if (key == "instruction") {
                instruction = value;
            }
            break;
        default:
            break;
        }
    }
    const std::string* typeText = type ? type->asString() : nullptr;
    if (!typeText) {
        return nullptr;
    }
    const auto integer = [](const PZValue* value) -> std::int64_t {
        const double* number = value ? value->asNumber() : nullptr;
        return number ? PZNumberText::integerValue(*number) : 0;
    };
    const std::int64_t processId = integer(pid);
    if (equalsIgnoringCase(*typeText, "trackpad")) {
        auto command = std::make_shared<VXTrackpadCommand>(processId);
        command->setTouchState(static_cast<std::int32_t>(integer(touch)));
        command->setFingers(static_cast<std::int16_t>(integer(fingers)));
        command->setTapCount(static_cast<std::int16_t>(integer(tapCount)));
        command->setRotation(static_cast<std::int16_t>(integer(rotation)));
        command->setZoom(static_cast<std::int16_t>(integer(zoom)));
        if (const PZDictionary* offset = shift ? shift->asDictionary() : nullptr) {
            const double* x = offset->findNumber("x");
            const double* y = offset->findNumber("y");
            command->setShift({x ? singlePrecision(*x) : 0.0, y ? singlePrecision(*y) : 0.0});
        }
        return command;
    }
    std::optional<std::string> name;
    if (const std::string* text = processName ? processName->asString() : nullptr) {
        name = *text;
    } else {
        name = lookup_->processNameForPid(processId);
    }
    std::optional<std::string> operand;
    if (const std::string* text = instruction ? instruction->asString() : nullptr) {
        operand = *text;
    }
    return std::make_shared<VXCommand>(*typeText, VXProcess(std::move(name), processId), std::move(operand));
}

std::shared_ptr<VXInfo> VXTranslator::makeInfoWithDictionary(const PZDictionary& dictionary) const {
    const std::string* subject = dictionary.findString("subject");
    const std::string* information = dictionary.findString("information");
    if (!subject || !information) {
        return nullptr;
    }
    return std::make_shared<VXInfo>(*subject, *information);
}

std::shared_ptr<VXError> VXTranslator::makeErrorWithDictionary(const PZDictionary& dictionary) const {
    const std::string* type = dictionary.findString("type");
    const double* code = dictionary.findNumber("code");
    if (!type || !code) {
        return nullptr;
    }
    return std::make_shared<VXError>(*type, PZNumberText::integerValue(*code),
                                     stringMember(dictionary, "message"));
}

std::shared_ptr<VXProcess> VXTranslator::makeProcessWithDictionary(const PZDictionary& dictionary) const {
    const double* pid = dictionary.findNumber("pid");
    if (!pid) {
        return nullptr;
    }
    auto process =
        std::make_shared<VXProcess>(stringMember(dictionary, "name"), PZNumberText::integerValue(*pid));
    process->setPath(stringMember(dictionary, "path"));
    return process;
}
