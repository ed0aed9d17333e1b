#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "phone/VXPhoneDecoder.h"
#include "phone/VXPhoneMessage.h"
#include "protocol/PZDictionary.h"
#include "protocol/VXTranslationProtocol.h"

// A phone on a blocking TCP connection to the server (IPv4). It runs the handshake as a phone app does,
// sends requests and commands made with the protocol's message classes, and decodes the server's answers
// with VXPhoneDecoder. Every wait has a timeout. Raw mode (sendRaw, receiveRaw) bypasses both encoding
// and decoding, for tests that play a hostile phone. Not thread-safe: one thread uses one phone.
class VXPhone {
public:
    using Milliseconds = std::chrono::milliseconds;

    // The encoding the phone writes in (and asks the server for): 0 = XML, 1 = JSON, as on the wire.
    enum class Encoding { XML = 0, JSON = 1 };

    // The connection's condition.
    enum class State {
        Open,   // connected, nothing went wrong
        Closed, // the server closed the connection (or close() was called)
        Failed, // a read or write failed, or the server's bytes could not be decoded; see failure()
    };

    // What the phone tells the server about itself during the handshake.
    struct Identity {
        // The answer to the "app" info request.
        std::string app = "Velorix";
        // The answer to the "version" info request.
        std::string version = "3.0";
        // The answer to the "device" info request.
        std::string device = "velorixctl";
        // The answer to the "os" info request.
        std::string os = "Linux";
        // The encoding asked for with the "protocol" answer (and used after the handshake).
        Encoding encoding = Encoding::JSON;
        // The connection password, sent when the server asks for one.
        std::optional<std::string> password;
        // Ask the server's "os" information during the handshake (a phone always does; without it the
        // server never completes the handshake).
        bool sendOSRequest = true;
    };

    // Connects to host (a name or dotted address) on port; throws PZException "VXPhone connect" with the
    // reason.
    static std::unique_ptr<VXPhone> connect(const std::string& host, int port,
                                            Milliseconds timeout = Milliseconds(5000));
    // Closes the connection.
    ~VXPhone();
    VXPhone(const VXPhone&) = delete;
    VXPhone& operator=(const VXPhone&) = delete;

    // Runs the handshake: answers the server's info requests (and its password request once), asks for
    // the server's "os" information before answering "device", then switches to identity.encoding and
    // waits for the answer of one "info"/"protocol" request in that encoding, which proves the server
    // finished its side. Returns every message received meanwhile. Throws PZException "VXPhone handshake"
    // with a reason: "wrong password", "password required", "incompatible: <error message>",
    // "connection lost" or "timed out".
    std::vector<VXPhoneMessage> handshake(const Identity& identity,
                                          Milliseconds timeout = Milliseconds(10000));
    // The messages received during the last handshake, also when it failed (the server's error among them).
    const std::vector<VXPhoneMessage>& handshakeMessages() const { return handshakeMessages_; }

    // The encoding used by send (XML until the handshake switched it).
    Encoding encoding() const { return encoding_; }
    // Changes the encoding used by send.
    void setEncoding(Encoding encoding) { encoding_ = encoding; }

    // Encodes message in encoding() and writes it; false when it has no form in that encoding or the write
    // failed.
    bool send(const VXTranslationProtocol& message);
    // Sends a VXRequest made of type, text and arguments.
    bool sendRequest(const std::string& type, std::optional<std::string> text = std::nullopt,
                     std::optional<PZDictionary> arguments = std::nullopt);
    // Sends a VXCommand of type with instruction, aimed at the process pid (named processName when given).
    bool sendCommand(const std::string& type, std::optional<std::string> instruction, std::int64_t pid = -1,
                     std::optional<std::string> processName = std::nullopt);
    // Writes bytes as they are; false when the write failed.
    bool sendRaw(std::span<const std::uint8_t> bytes);
    // Writes the bytes of text as they are.
    bool sendRaw(std::string_view bytes);

    // The next decoded message, or nothing when none arrived within timeout or the connection ended (see
    // state()).
    std::optional<VXPhoneMessage> receive(Milliseconds timeout);
    // The first message for which match is true within timeout; the others received meanwhile are
    // appended to skipped when given, else dropped.
    std::optional<VXPhoneMessage> receiveMatching(const std::function<bool(const VXPhoneMessage&)>& match,
                                                  Milliseconds timeout,
                                                  std::vector<VXPhoneMessage>* skipped = nullptr);
    // Every message that arrives within duration (stops early when the connection ends).
    std::vector<VXPhoneMessage> receiveFor(Milliseconds duration);
    // Raw mode: the next bytes as they arrive (at most 64 KiB, not decoded), or nothing on timeout or end.
    std::optional<std::vector<std::uint8_t>> receiveRaw(Milliseconds timeout);
    // Reads and drops everything until the server closes the connection; true when it did within timeout.
    bool waitClosed(Milliseconds timeout);

    // Shuts down the sending direction (the server sees the end of the stream).
    void shutdownWrite();
    // Closes the connection at once.
    void close();

    // The connection's condition.
    State state() const { return state_; }
    // Why the state is Failed (empty otherwise).
    const std::string& failure() const { return failure_; }
    // The connected descriptor (-1 once closed).
    int descriptor() const { return fd_; }
    // The decoder of the server's bytes.
    const VXPhoneDecoder& decoder() const { return decoder_; }

private:
    explicit VXPhone(int fd);
    // Reads once (waiting up to timeout) and decodes; false on timeout or end.
    bool readMore(Milliseconds timeout);
    std::optional<std::vector<std::uint8_t>> readChunk(Milliseconds timeout);
    bool answerHandshakeRequest(const VXPhoneMessage& message, const Identity& identity, bool& sawPassword);

    int fd_ = -1;
    State state_ = State::Open;
    std::string failure_;
    Encoding encoding_ = Encoding::XML;
    VXPhoneDecoder decoder_;
    std::deque<VXPhoneMessage> pending_;
    std::vector<VXPhoneMessage> handshakeMessages_;
};
