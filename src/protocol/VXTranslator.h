#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "protocol/PZDictionary.h"
#include "protocol/PZJSONTree.h"
#include "protocol/PZValue.h"
#include "protocol/VXTranslatorDelegate.h"

class VXStreamSink;
class VXProcessNameLookup;

// Turns the bytes a phone sends into message objects and hands each finished one to its delegate.
// Chunks may split a message anywhere; all parsing state is kept between calls. Reads either the
// JSON form or the XML form, chosen by protocol(). One translator per connection, used from one
// thread; it holds no locks.
class VXTranslator {
public:
    // protocol(): the XML form (the value of a new translator).
    static constexpr std::uint32_t kProtocolXML = 0;
    // protocol(): the JSON form.
    static constexpr std::uint32_t kProtocolJSON = 1;
    // Most bytes a message under construction may hold.
    static constexpr std::size_t kMaxMessageBytes = std::size_t{16} << 20;
    // Deepest nesting of a message under construction.
    static constexpr std::size_t kMaxNestingDepth = 256;
    // Longest embedded stream a message may declare.
    static constexpr std::uint64_t kMaxStreamLength = std::uint64_t{512} << 20;

    // A translator in XML, writing streams to $HOME/tmp, with a process lookup that finds nothing.
    VXTranslator();
    // A translator with the given stream sink and process lookup (null ones get the defaults above).
    VXTranslator(std::shared_ptr<VXStreamSink> sink, std::shared_ptr<VXProcessNameLookup> lookup);
    // Finishes an open stream.
    ~VXTranslator();
    VXTranslator(const VXTranslator&) = delete;
    VXTranslator& operator=(const VXTranslator&) = delete;

    // The delegate, not owned (null: messages are dropped).
    VXTranslatorDelegate* delegate() const noexcept { return delegate_; }
    // Sets the delegate; its owner guarantees that it outlives its use.
    void setDelegate(VXTranslatorDelegate* delegate) noexcept { delegate_ = delegate; }
    // 0 XML, 1 JSON; other values make translateBytes ignore its input.
    std::uint32_t protocol() const noexcept { return protocol_; }
    // Sets the protocol; may be called by the delegate while it handles a message.
    void setProtocol(std::uint32_t protocol) noexcept { protocol_ = protocol; }
    // The sink receiving stream content.
    const std::shared_ptr<VXStreamSink>& streamSink() const noexcept { return sink_; }
    // Replaces the sink (null: a file sink in $HOME/tmp).
    void setStreamSink(std::shared_ptr<VXStreamSink> sink);
    // Replaces the process lookup (null: one that finds nothing).
    void setProcessNameLookup(std::shared_ptr<VXProcessNameLookup> lookup);
    // True once a limit was exceeded; all input is then ignored.
    bool hasExceededLimit() const noexcept { return exceededLimit_; }

    // Reads one chunk of received bytes in the current protocol.
    void translateBytes(const std::uint8_t* bytes, std::size_t length);

    // Builds the message of a finished top-level value ("cmd", "request", "info", "file", "error",
    // "process", "processList", "directory", tried in that order) and tells the delegate.
    void decodeAndTellDelegate(const PZValue& value);
    // A request from a decoded dictionary; null without a string "type".
    std::shared_ptr<VXRequest> makeRequestDictionary(const PZDictionary& dictionary) const;
    // A command (a VXTrackpadCommand for type "trackpad", any case); null without a string "type".
    std::shared_ptr<VXCommand> makeCommandWithDictionary(const PZDictionary& dictionary) const;
    // An info; null unless "subject" and "information" are strings.
    std::shared_ptr<VXInfo> makeInfoWithDictionary(const PZDictionary& dictionary) const;
    // An error; null unless "type" is a string and "code" a number.
    std::shared_ptr<VXError> makeErrorWithDictionary(const PZDictionary& dictionary) const;
    // A process; null unless "pid" is a number.
    std::shared_ptr<VXProcess> makeProcessWithDictionary(const PZDictionary& dictionary) const;
    // A command from the attributes and content of an XML "cmd" element.
    std::shared_ptr<VXCommand> makeCommandWithArgumentsContent(const PZDictionary& arguments,
                                                               const std::string& content) const;

    // The state of the JSON machine (0 to 6).
    std::uint16_t jsonParsingState() const noexcept { return jsonParsingState_; }
    // The state of the XML machine (0 to 9).
    std::uint16_t parsingState() const noexcept { return parsingState_; }
    // The path of the file that received the last JSON stream, if one was made.
    const std::optional<std::string>& streamPath() const noexcept { return streamPath_; }
    // The JSON tree (the values under construction).
    const PZJSONTree& jsonTree() const noexcept { return jsonTree_; }

private:
    void jsonTranslateBytes(const std::uint8_t* bytes, std::size_t length);
    void xmlTranslateBytes(const std::uint8_t* bytes, std::size_t length);
    // Finishes the top JSON value; true when the outermost value is complete (it was then decoded).
    bool closeJSONValue();
    void prepareForStream();
    void addBytesToStream(const std::uint8_t* bytes, std::size_t length);
    void closeStream();
    void openXMLFileStream();
    void dispatchXMLElement();
    // Counts bytes held by the message under construction; false once over the limit.
    bool holdBytes(std::size_t count) {
        heldBytes_ += count;
        return heldBytes_ <= kMaxMessageBytes || exceedMessageSize();
    }
    // Counts one more value under construction; false once too deep or over the size limit.
    bool checkDepth() {
        if (jsonTree_.depth() >= kMaxNestingDepth) {
            return exceedNestingDepth();
        }
        return holdBytes(kNodeCost);
    }
    // Stop reading for the size or the depth limit; both return false.
    bool exceedMessageSize();
    bool exceedNestingDepth();
    void exceedLimit(VXTranslatorLimit limit, const std::string& reason);

    VXTranslatorDelegate* delegate_ = nullptr;
    std::uint32_t protocol_ = kProtocolXML;
    std::shared_ptr<VXStreamSink> sink_;
    std::shared_ptr<VXProcessNameLookup> lookup_;

    // XML state.
    std::uint16_t parsingState_ = 0;
    std::string tagName_;
    std::string endTagName_;
    std::string argKey_;
    std::string argValue_;
    PZDictionary arguments_;
    std::string content_;

    // JSON state.
    PZJSONTree jsonTree_;
    std::uint16_t jsonParsingState_ = 0;
    std::string currentField_;
    // Whether the last key read (moved into the tree) was "stream".
    bool currentFieldIsStream_ = false;

    // Stream state, shared by both forms.
    std::optional<std::string> streamPath_;
    bool streamOpen_ = false;
    std::uint64_t contentLength_ = 0;
    std::uint64_t contentIndex_ = 0;

    // Limits; a value under construction costs kNodeCost beyond its characters.
    static constexpr std::size_t kNodeCost = sizeof(PZValue);
    std::size_t heldBytes_ = 0;
    bool exceededLimit_ = false;
};
