#pragma once

#include <memory>
#include <string>

class VXTranslator;
class VXCommand;
class VXRequest;
class VXInfo;
class VXFile;
class VXError;
class VXProcess;
class VXProcessList;
class VXDirectory;

// The limits beyond which a translator stops reading.
enum class VXTranslatorLimit {
    messageSize,  // the message under construction holds more than 16 MiB
    nestingDepth, // the message under construction is nested more than 256 levels deep
    streamLength, // an embedded stream declares more than 512 MiB
};

// Receives the messages a VXTranslator reads, synchronously from within translateBytes, on the
// caller's thread. Every message is optional. A delegate may change the translator's protocol
// from within a call, but must not destroy the translator or feed it bytes.
class VXTranslatorDelegate {
public:
    virtual ~VXTranslatorDelegate() = default;

    // A "cmd" message: a VXCommand or a VXTrackpadCommand.
    virtual void translatorDidGetCommand(VXTranslator&, std::shared_ptr<VXCommand>) {}
    // A "request" message.
    virtual void translatorDidGetRequest(VXTranslator&, std::shared_ptr<VXRequest>) {}
    // An "info" message.
    virtual void translatorDidGetInfo(VXTranslator&, std::shared_ptr<VXInfo>) {}
    // A JSON "file" message; its localPath names the file that received the stream, if one was made.
    virtual void translatorDidGetFile(VXTranslator&, std::shared_ptr<VXFile>) {}
    // An "error" message.
    virtual void translatorDidGetError(VXTranslator&, std::shared_ptr<VXError>) {}
    // A "process" message.
    virtual void translatorDidGetProcess(VXTranslator&, std::shared_ptr<VXProcess>) {}
    // A "processList" message.
    virtual void translatorDidGetProcessList(VXTranslator&, std::shared_ptr<VXProcessList>) {}
    // A "directory" message.
    virtual void translatorDidGetDirectory(VXTranslator&, std::shared_ptr<VXDirectory>) {}
    // The input went beyond a limit; the translator ignores all further input. Sent once.
    virtual void translatorDidExceedLimit(VXTranslator&, VXTranslatorLimit, const std::string& /*reason*/) {}
};
