#pragma once

#include "ServerHarness.h"
#include "phone/VXPhone.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

// Helpers of the server tests: phones that connect to the harness and answer the handshake step by step.
namespace servertest {

using Kind = ServerHarness::Event::Kind;
using std::chrono::milliseconds;

// A generous bound for anything the server should do promptly.
inline constexpr milliseconds kPatience{10000};

// A phone's identity: JSON, "Velorix" 3.0.
inline VXPhone::Identity identity(VXPhone::Encoding encoding = VXPhone::Encoding::JSON,
                                  std::string app = "Velorix", std::string version = "3.0") {
    VXPhone::Identity who;
    who.app = std::move(app);
    who.version = std::move(version);
    who.device = "Pixel 8";
    who.os = "Android 14";
    who.encoding = encoding;
    return who;
}

// Connects a phone to the harness.
inline std::unique_ptr<VXPhone> connectPhone(const ServerHarness& server) {
    return VXPhone::connect("127.0.0.1", server.port());
}

// Connects a phone and completes its handshake.
inline std::unique_ptr<VXPhone> conformPhone(const ServerHarness& server,
                                             const VXPhone::Identity& who = identity()) {
    auto phone = connectPhone(server);
    phone->handshake(who);
    return phone;
}

// Answers the server's identity requests (not the password) as the phone app does, in XML, until the
// "device" request has been answered; the "os" request and the "device" answer are sent only when
// settle is true. Returns the server's messages that were not identity requests.
std::vector<VXPhoneMessage> answerIdentity(VXPhone& phone, const VXPhone::Identity& who, bool settle = true);

// Sends a request and returns the first message that is not a change push (volume, brightness, process
// list), or nothing within kPatience.
std::optional<VXPhoneMessage> ask(VXPhone& phone, const std::string& type,
                                  std::optional<std::string> text = {},
                                  std::optional<PZDictionary> arguments = {});

// Connects a phone, completes its handshake and waits for the first change push of the volume (it may
// come during the handshake already).
std::unique_ptr<VXPhone> conformPhoneAfterFirstPush(const ServerHarness& server,
                                                    const VXPhone::Identity& who = identity());

// True for the messages the server sends by itself.
bool isPush(const VXPhoneMessage& message);

} // namespace servertest
