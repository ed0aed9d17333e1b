#include "ServerTestSupport.h"

#include "protocol/VXInfo.h"

#include <algorithm>

namespace servertest {

std::vector<VXPhoneMessage> answerIdentity(VXPhone& phone, const VXPhone::Identity& who, bool settle) {
    std::vector<VXPhoneMessage> others;
    bool answered[6] = {};
    const char* subjects[6] = {"protocol", "os", "vx", "app", "version", "device"};
    const auto done = [&] {
        for (bool a : answered) {
            if (!a) {
                return false;
            }
        }
        return true;
    };
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        auto message = phone.receive(milliseconds(200));
        if (!message) {
            if (phone.state() != VXPhone::State::Open) {
                break;
            }
            continue;
        }
        if (message->kind != "request" || message->type != "info") {
            others.push_back(*message);
            continue;
        }
        const std::string subject = message->string("text").value_or("");
        for (int i = 0; i < 6; ++i) {
            if (subject == subjects[i]) {
                answered[i] = true;
            }
        }
        if (subject == "protocol") {
            phone.send(VXInfo(subject, who.encoding == VXPhone::Encoding::JSON ? "json" : "xml"));
        } else if (subject == "app") {
            phone.send(VXInfo(subject, who.app));
        } else if (subject == "version") {
            phone.send(VXInfo(subject, who.version));
        } else if (subject == "os") {
            phone.send(VXInfo(subject, who.os));
        } else if (subject == "device" && settle) {
            phone.sendRequest("info", "os");
            phone.send(VXInfo(subject, who.device));
            phone.setEncoding(who.encoding);
        }
    }
    return others;
}

std::unique_ptr<VXPhone> conformPhoneAfterFirstPush(const ServerHarness& server,
                                                    const VXPhone::Identity& who) {
    auto phone = connectPhone(server);
    const auto received = phone->handshake(who);
    const auto isVolume = [](const VXPhoneMessage& message) { return message.isInfo("volume"); };
    if (std::none_of(received.begin(), received.end(), isVolume) &&
        !phone->receiveMatching(isVolume, kPatience)) {
        ADD_FAILURE() << "no first volume push";
    }
    return phone;
}

bool isPush(const VXPhoneMessage& message) {
    return message.isInfo("volume") || message.isInfo("brightness") || message.isInfo("NewProcessesList") ||
           message.kind == "processList" || message.kind == "process";
}

std::optional<VXPhoneMessage> ask(VXPhone& phone, const std::string& type, std::optional<std::string> text,
                                  std::optional<PZDictionary> arguments) {
    if (!phone.sendRequest(type, std::move(text), std::move(arguments))) {
        return std::nullopt;
    }
    return phone.receiveMatching([](const VXPhoneMessage& message) { return !isPush(message); }, kPatience);
}

} // namespace servertest
