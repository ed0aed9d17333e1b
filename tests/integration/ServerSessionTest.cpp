#include "ServerTestSupport.h"

#include "VXHVersion.h"
#include "protocol/VXInfo.h"
#include "session/VXClient.h"
#include "session/VXClientManager.h"
#include "support/FakeSystem.h"
#include "transport/PZServerSocket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace servertest;

namespace {

std::vector<std::string> requestTexts(const std::vector<VXPhoneMessage>& messages) {
    std::vector<std::string> texts;
    for (const auto& message : messages) {
        if (message.kind == "request") {
            texts.push_back(message.type + ":" + message.string("text").value_or(""));
        }
    }
    return texts;
}

bool hasEvent(const std::vector<ServerHarness::Event>& events, Kind kind, const std::string& detail = {}) {
    return std::any_of(events.begin(), events.end(), [&](const ServerHarness::Event& event) {
        return event.kind == kind && (detail.empty() || event.detail == detail);
    });
}

TEST(ServerSession, handshake_xmlPhoneAskingJson_switchesToJsonAndBecomesConform) {
    auto server = ServerHarness::start();
    auto phone = connectPhone(*server);
    const auto received = phone->handshake(identity(VXPhone::Encoding::JSON));

    EXPECT_EQ(requestTexts(received), (std::vector<std::string>{"info:protocol", "info:os", "info:vx",
                                                                "info:app", "info:version", "info:device"}));
    for (const auto& message : received) {
        if (message.kind == "request") {
            EXPECT_EQ(message.encoding, VXPhoneMessage::Encoding::XML);
        }
    }
    // The phone's own "os" request came before the encoding was settled: answered in XML.
    const auto os = std::find_if(received.begin(), received.end(),
                                 [](const VXPhoneMessage& message) { return message.isInfo("os"); });
    ASSERT_NE(os, received.end());
    EXPECT_EQ(os->encoding, VXPhoneMessage::Encoding::XML);
    EXPECT_EQ(os->string("information"), "Mac Testix 1.0, kernel 6.0-test");
    EXPECT_EQ(received.back().encoding, VXPhoneMessage::Encoding::JSON);
    EXPECT_EQ(received.back().string("information"), "json");

    // The session becomes conform while handling the device info, before it passes that info on:
    // the application may hear of the two in either order.
    ASSERT_TRUE(server->waitFor([](const auto& events) {
        return hasEvent(events, Kind::Connected) && hasEvent(events, Kind::Info, "device=Pixel 8");
    }));
    const auto events = server->events();
    EXPECT_EQ(events.front().kind, Kind::Accepted);
    EXPECT_TRUE(hasEvent(events, Kind::Info, "protocol=json"));
    const auto client = events.front().client;
    EXPECT_EQ(client->getDevice(), "Pixel 8");
    EXPECT_EQ(client->getStringAddress(), "127.0.0.1");
    EXPECT_EQ(client->protocol(), VXClient::kProtocolJSON);

    const auto vx = ask(*phone, "info", "vx");
    ASSERT_TRUE(vx);
    EXPECT_EQ(vx->encoding, VXPhoneMessage::Encoding::JSON);
    EXPECT_EQ(vx->string("information"), VXH_VERSION_STRING);
}

TEST(ServerSession, handshake_phoneStayingXml_isAnsweredInXml) {
    auto server = ServerHarness::start();
    auto phone = conformPhone(*server, identity(VXPhone::Encoding::XML));
    const auto answer = ask(*phone, "info", "userName");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->encoding, VXPhoneMessage::Encoding::XML);
    EXPECT_TRUE(answer->isInfo("userName"));
    const auto unknown = ask(*phone, "teleport", "moon");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->encoding, VXPhoneMessage::Encoding::XML);
    EXPECT_EQ(unknown->string("message"), "UNABLE_TO_RECOGNIZE_REQEUST_ERROR");
}

TEST(ServerSession, password_heldRequests_answeredInArrivalOrderOnceTheRightPasswordArrives) {
    ServerHarness::Options options;
    options.password = "s3cret";
    auto server = ServerHarness::start(options);
    auto phone = connectPhone(*server);

    const auto first = phone->receive(kPatience);
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->isRequest("password"));
    EXPECT_EQ(first->string("text"), "start_connection");
    answerIdentity(*phone, identity(VXPhone::Encoding::XML));

    phone->sendRequest("info", "protocol");
    phone->sendRequest("teleport", "moon");
    phone->sendRequest("info", "vx");
    phone->sendCommand("volume", "0.9");
    phone->send(VXInfo("password", "guess"));
    const auto again =
        phone->receiveMatching([](const auto& m) { return m.isRequest("password"); }, kPatience);
    ASSERT_TRUE(again) << "a wrong password gets a new password request";
    // Nothing was answered meanwhile: the requests wait for the password.
    const auto early = phone->receiveFor(milliseconds(300));
    EXPECT_TRUE(std::none_of(early.begin(), early.end(), [](const auto& m) { return !isPush(m); }));

    phone->send(VXInfo("password", "s3cret"));
    // The phone's own "os" request of the handshake waited too, and comes first.
    std::vector<VXPhoneMessage> answers;
    while (answers.size() < 4) {
        auto message = phone->receiveMatching([](const auto& m) { return !isPush(m); }, kPatience);
        ASSERT_TRUE(message);
        answers.push_back(*message);
    }
    EXPECT_TRUE(answers[0].isInfo("os"));
    EXPECT_TRUE(answers[1].isInfo("protocol"));
    EXPECT_EQ(answers[2].string("message"), "UNABLE_TO_RECOGNIZE_REQEUST_ERROR");
    EXPECT_TRUE(answers[3].isInfo("vx"));
    // The command sent before the password was dropped.
    EXPECT_FLOAT_EQ(server->system().audio->level(), 0.5f);
    ASSERT_TRUE(
        server->waitFor([](const auto& events) { return hasEvent(events, Kind::Info, "password=s3cret"); }));
    EXPECT_TRUE(hasEvent(server->events(), Kind::Info, "password=guess"));
}

TEST(ServerSession, handshake_noPasswordConfigured_noPasswordRequestAndRequestsAnsweredAtOnce) {
    auto server = ServerHarness::start();
    auto phone = connectPhone(*server);
    phone->sendRequest("info", "vx"); // before any handshake step
    auto seen = answerIdentity(*phone, identity(VXPhone::Encoding::XML), false);
    const auto isVx = [](const VXPhoneMessage& m) { return m.isInfo("vx"); };
    if (std::none_of(seen.begin(), seen.end(), isVx)) {
        const auto answer = phone->receiveMatching(isVx, kPatience, &seen);
        ASSERT_TRUE(answer);
        seen.push_back(*answer);
    }
    EXPECT_EQ(std::find_if(seen.begin(), seen.end(), isVx)->string("information"), VXH_VERSION_STRING);
    EXPECT_TRUE(
        std::none_of(seen.begin(), seen.end(), [](const auto& m) { return m.isRequest("password"); }));
}

TEST(ServerSession, compatibility_incompatibleApp_errorInTheChosenEncodingThenDisconnected) {
    struct Case {
        std::string app;
        std::string version;
        VXPhone::Encoding encoding;
    };
    const Case cases[] = {{"Glimmet", "5.0", VXPhone::Encoding::JSON},
                          {"Velorix", "1.9", VXPhone::Encoding::XML},
                          {"Quillo", "0.9", VXPhone::Encoding::JSON},
                          {"Nobody", "9.9", VXPhone::Encoding::XML}};
    auto server = ServerHarness::start();
    for (const auto& c : cases) {
        auto phone = connectPhone(*server);
        answerIdentity(*phone, identity(c.encoding, c.app, c.version));
        const auto error = phone->receiveMatching([](const auto& m) { return m.isError(); }, kPatience);
        ASSERT_TRUE(error) << c.app;
        EXPECT_EQ(error->string("message"), "CLIENT_IS_NOT_COMPATIBLE_ERROR");
        EXPECT_EQ(error->encoding, c.encoding == VXPhone::Encoding::JSON ? VXPhoneMessage::Encoding::JSON
                                                                         : VXPhoneMessage::Encoding::XML)
            << c.app;
        EXPECT_TRUE(phone->waitClosed(kPatience)) << c.app;
    }
    ASSERT_TRUE(server->waitFor([&](const auto& events) {
        return ServerHarness::count(events, Kind::Disconnected) == std::size(cases);
    }));
    const auto events = server->events();
    EXPECT_EQ(ServerHarness::count(events, Kind::Error), std::size(cases));
    EXPECT_EQ(ServerHarness::count(events, Kind::Connected), 0u);
    EXPECT_TRUE(hasEvent(events, Kind::Error, "CLIENT_IS_NOT_COMPATIBLE_ERROR"));
}

TEST(ServerSession, commands_beforeTheHandshake_areDroppedWithoutReply) {
    auto server = ServerHarness::start();
    auto phone = connectPhone(*server);
    phone->sendCommand("volume", "0.9");
    phone->sendCommand("teleport", "moon");
    const auto before = answerIdentity(*phone, identity(VXPhone::Encoding::JSON));
    const auto proof = ask(*phone, "info", "protocol");
    ASSERT_TRUE(proof);
    EXPECT_TRUE(std::none_of(before.begin(), before.end(), [](const auto& m) { return m.isError(); }));
    EXPECT_FLOAT_EQ(server->system().audio->level(), 0.5f);

    // Once conform, commands run; an unknown one is answered with an error.
    phone->sendCommand("teleport", "moon");
    const auto error = phone->receiveMatching([](const auto& m) { return m.isError(); }, kPatience);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->string("message"), "UNABLE_TO_RECOGNIZE_COMMAND_ERROR");
    EXPECT_EQ(error->encoding, VXPhoneMessage::Encoding::JSON);
}

TEST(ServerSession, requests_infoAnswersThroughTheServer) {
    auto server = ServerHarness::start();
    auto phone = conformPhone(*server);
    struct Case {
        std::string subject;
        std::string information;
    };
    const Case cases[] = {{"os", "Mac Testix 1.0, kernel 6.0-test"},
                          {"vx", VXH_VERSION_STRING},
                          {"protocol", "json"},
                          {"homeDirectory", server->system().home}};
    for (const auto& c : cases) {
        const auto answer = ask(*phone, "info", c.subject);
        ASSERT_TRUE(answer) << c.subject;
        EXPECT_TRUE(answer->isInfo(c.subject));
        EXPECT_EQ(answer->string("information"), c.information);
    }
    // "device" is not answered at all: the next answer is the one to the following request.
    phone->sendRequest("info", "device");
    const auto next = ask(*phone, "info", "vx");
    ASSERT_TRUE(next);
    EXPECT_TRUE(next->isInfo("vx"));
    const auto unknown = ask(*phone, "info", "weather");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->string("message"), "UNABLE_TO_RECOGNIZE_REQEUST_ERROR");
}

TEST(ServerSession, processList_formsByEncodingAndVersion) {
    auto server = ServerHarness::start();
    server->system().processes->setProcesses({FakeSystem::running(412, "gedit")});

    auto xmlPhone = conformPhone(*server, identity(VXPhone::Encoding::XML, "Velorix", "2.1"));
    xmlPhone->sendRequest("processList", "UIElement");
    const auto count =
        xmlPhone->receiveMatching([](const auto& m) { return m.isInfo("NewProcessesList"); }, kPatience);
    ASSERT_TRUE(count);
    EXPECT_EQ(count->string("information"), "3");
    std::vector<std::string> names;
    while (names.size() < 3) {
        const auto process =
            xmlPhone->receiveMatching([](const auto& m) { return m.kind == "process"; }, kPatience);
        ASSERT_TRUE(process);
        names.push_back(process->string("name").value_or(""));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Applications", "Mac", "gedit"}));

    auto jsonPhone = conformPhone(*server, identity(VXPhone::Encoding::JSON, "Velorix", "2.2"));
    jsonPhone->sendRequest("processList", "UIElement");
    const auto list =
        jsonPhone->receiveMatching([](const auto& m) { return m.kind == "processList"; }, kPatience);
    ASSERT_TRUE(list);
    const PZValue* elements = list->fields.find("elements");
    ASSERT_TRUE(elements && elements->asArray());
    std::vector<std::string> jsonNames;
    for (const auto& element : *elements->asArray()) {
        jsonNames.push_back(*element.asDictionary()->findString("name"));
    }
    EXPECT_EQ(jsonNames, (std::vector<std::string>{"Applications", "Dock", "Mac", "gedit"}));
}

TEST(ServerSession, directory_listingAndItsError) {
    auto server = ServerHarness::start();
    const std::filesystem::path folder = server->system().home + "/listing";
    std::filesystem::create_directories(folder / "inner");
    std::ofstream(folder / "note.txt") << "n";
    auto phone = conformPhone(*server);
    const auto listing = ask(*phone, "directory", folder.string());
    ASSERT_TRUE(listing);
    EXPECT_EQ(listing->kind, "directory");
    const PZValue* elements = listing->fields.find("elements");
    ASSERT_TRUE(elements && elements->asArray());
    EXPECT_EQ(elements->asArray()->size(), 2u);
    const auto missing = ask(*phone, "directory", (folder / "absent").string());
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->string("message"), "UNABLE_TO_SATISFY_REQUEST_ERROR");
}

TEST(ServerSession, handshakeTimer_incompatiblePhoneThatNeverSettles_isReportedAndDisconnectedSilently) {
    ServerHarness::Options options;
    options.handshakeTimeout = milliseconds(300);
    auto server = ServerHarness::start(options);
    auto phone = connectPhone(*server);
    answerIdentity(*phone, identity(VXPhone::Encoding::JSON, "Glimmet", "5.0"), false);
    std::vector<VXPhoneMessage> afterwards;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (phone->state() == VXPhone::State::Open && std::chrono::steady_clock::now() < deadline) {
        if (auto message = phone->receive(milliseconds(100))) {
            afterwards.push_back(*message);
        }
    }
    EXPECT_NE(phone->state(), VXPhone::State::Open);
    EXPECT_TRUE(
        std::none_of(afterwards.begin(), afterwards.end(), [](const auto& m) { return m.isError(); }));
    phone->close(); // as the phone app does when the server has finished
    ASSERT_TRUE(server->waitFor([](const auto& events) { return hasEvent(events, Kind::Disconnected); }));
    const auto events = server->events();
    EXPECT_TRUE(hasEvent(events, Kind::Error, "CLIENT_IS_NOT_COMPATIBLE_ERROR"));
    EXPECT_FALSE(hasEvent(events, Kind::Connected));
}

TEST(ServerSession, handshakeTimer_compatiblePhoneThatNeverSettles_staysConnectedButNotConform) {
    ServerHarness::Options options;
    options.handshakeTimeout = milliseconds(100);
    auto server = ServerHarness::start(options);
    auto phone = connectPhone(*server);
    answerIdentity(*phone, identity(VXPhone::Encoding::JSON), false);
    std::this_thread::sleep_for(milliseconds(400)); // the timer has fired meanwhile
    const auto answer = ask(*phone, "info", "vx");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->encoding, VXPhoneMessage::Encoding::XML);
    ASSERT_EQ(server->manager()->clients().size(), 1u);
    EXPECT_FALSE(server->manager()->clients()[0]->isConform());
    const auto events = server->events();
    EXPECT_FALSE(hasEvent(events, Kind::Error));
    EXPECT_FALSE(hasEvent(events, Kind::Connected));
}

TEST(ServerSession, twoPhones_areServedAtOnceAndListedInAcceptanceOrder) {
    auto server = ServerHarness::start();
    auto first = connectPhone(*server);
    ASSERT_TRUE(server->waitFor(
        [](const auto& events) { return ServerHarness::count(events, Kind::Accepted) == 1; }));
    auto second = connectPhone(*server);
    ASSERT_TRUE(server->waitFor(
        [](const auto& events) { return ServerHarness::count(events, Kind::Accepted) == 2; }));
    std::thread handshake([&] { second->handshake(identity(VXPhone::Encoding::XML)); });
    first->handshake(identity(VXPhone::Encoding::JSON));
    handshake.join();

    const auto events = server->events();
    const auto clients = server->manager()->clients();
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_EQ(clients[0], events[0].client);
    EXPECT_EQ(clients[1], events[1].client);
    for (int i = 0; i < 5; ++i) {
        first->sendRequest("info", "vx");
        second->sendRequest("info", "os");
        const auto a = first->receiveMatching([](const auto& m) { return m.isInfo("vx"); }, kPatience);
        const auto b = second->receiveMatching([](const auto& m) { return m.isInfo("os"); }, kPatience);
        ASSERT_TRUE(a && b);
        EXPECT_EQ(a->encoding, VXPhoneMessage::Encoding::JSON);
        EXPECT_EQ(b->encoding, VXPhoneMessage::Encoding::XML);
    }
}

TEST(ServerSession, phoneLeavingInTheMiddleOfAMessage_isRemovedBeforeTheApplicationHears) {
    auto server = ServerHarness::start();
    auto stays = conformPhone(*server);
    auto leaves = conformPhone(*server);
    leaves->sendRaw(std::string_view("{\"request\":{\"type\":\"%69%6e"));
    leaves->close();
    ASSERT_TRUE(server->waitFor([](const auto& events) { return hasEvent(events, Kind::Disconnected); }));
    const auto events = server->events();
    const auto gone = std::find_if(events.begin(), events.end(),
                                   [](const auto& event) { return event.kind == Kind::Disconnected; });
    EXPECT_FALSE(gone->listedAtDelivery);
    EXPECT_EQ(server->manager()->clients().size(), 1u);
    EXPECT_TRUE(ask(*stays, "info", "vx"));
}

TEST(ServerSession, closingTheServerSocket_disconnectsEverySessionThenTheManagerThreadEnds) {
    auto server = ServerHarness::start();
    auto first = conformPhone(*server);
    auto second = conformPhone(*server);
    server->manager()->serverSocket()->close();
    EXPECT_TRUE(first->waitClosed(kPatience));
    EXPECT_TRUE(second->waitClosed(kPatience));
    first->close();
    second->close();
    ASSERT_TRUE(server->waitFor(
        [](const auto& events) { return ServerHarness::count(events, Kind::Disconnected) == 2; }));
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (server->manager()->started() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_FALSE(server->manager()->started());
}

TEST(ServerSession, changePush_volumeBrightnessAndProcessListWhenTheyChange) {
    auto server = ServerHarness::start();
    FakeSystem& system = server->system();
    system.processes->setProcesses({FakeSystem::running(412, "gedit")});
    // The first check sends what differs from nothing sent yet.
    auto phone = conformPhoneAfterFirstPush(*server);

    system.audio->setLevel(0.3f);
    const auto volume = phone->receiveMatching([](const auto& m) { return m.isInfo("volume"); }, kPatience);
    ASSERT_TRUE(volume);
    EXPECT_EQ(volume->string("information"), "0.300000");
    system.backlight->setLevel(0.4f);
    const auto brightness = phone->receiveMatching(
        [](const auto& m) { return m.isInfo("brightness") && m.string("information") == "0.400000"; },
        kPatience);
    EXPECT_TRUE(brightness);

    // No process list goes out before the phone asked for one.
    system.processes->setProcesses({FakeSystem::running(412, "gedit"), FakeSystem::running(77, "xterm")});
    const auto quiet = phone->receiveFor(milliseconds(300));
    EXPECT_TRUE(
        std::none_of(quiet.begin(), quiet.end(), [](const auto& m) { return m.kind == "processList"; }));

    phone->sendRequest("processList", "UIElement");
    ASSERT_TRUE(phone->receiveMatching([](const auto& m) { return m.kind == "processList"; }, kPatience));
    system.processes->setProcesses({FakeSystem::running(77, "xterm"), FakeSystem::running(90, "firefox")});
    const auto pushed =
        phone->receiveMatching([](const auto& m) { return m.kind == "processList"; }, kPatience);
    ASSERT_TRUE(pushed);
    std::vector<std::string> names;
    for (const auto& element : *pushed->fields.find("elements")->asArray()) {
        names.push_back(*element.asDictionary()->findString("name"));
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Applications", "Dock", "Mac", "xterm", "firefox"}));
}

TEST(ServerSession, volumeCommand_isNotEchoedBackToThePhone) {
    auto server = ServerHarness::start();
    auto phone = conformPhoneAfterFirstPush(*server);
    phone->sendCommand("volume", "0.8");
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (server->system().audio->level() != 0.8f && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    ASSERT_FLOAT_EQ(server->system().audio->level(), 0.8f);
    const auto after = phone->receiveFor(milliseconds(500)); // ten change checks
    EXPECT_TRUE(std::none_of(after.begin(), after.end(), [](const auto& m) { return m.isInfo("volume"); }));
    EXPECT_TRUE(std::none_of(after.begin(), after.end(), [](const auto& m) { return m.isError(); }));

    server->system().audio->setLevel(0.1f);
    const auto pushed = phone->receiveMatching([](const auto& m) { return m.isInfo("volume"); }, kPatience);
    ASSERT_TRUE(pushed);
    EXPECT_EQ(pushed->string("information"), "0.100000");
}

} // namespace
