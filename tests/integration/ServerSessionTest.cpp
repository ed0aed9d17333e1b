#include "ServerHarness.h"

#include "VXHVersion.h"
#include "protocol/VXInfo.h"
#include "session/VXClient.h"
#include "session/VXClientManager.h"
#include "support/FakeSystem.h"
#include "transport/PZServerSocket.h"

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

TEST(ServerSession, handshake_xmlPhoneAskingJson_switchesToJsonAndBecomesConform) {
    auto server = ServerHarness::start();
    auto phone = connectPhone(*server);
    const auto received = phone->handshake(identity(VXPhone::Encoding::JSON));

    // No password is configured: no password request.
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

TEST(ServerSession, compatibility_incompatibleApp_errorInTheChosenEncodingThenDisconnected) {
    struct Case {
        std::string app;
        std::string version;
        VXPhone::Encoding encoding;
    };
    // The branches are the client's own test's; here the error in each encoding on the wire.
    const Case cases[] = {{"Glimmet", "5.0", VXPhone::Encoding::JSON},
                          {"Velorix", "1.9", VXPhone::Encoding::XML}};
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
    ASSERT_TRUE(server->waitFor(
        [&](const auto& events) { return count(events, Kind::Disconnected) == std::size(cases); }));
    const auto events = server->events();
    EXPECT_EQ(count(events, Kind::Error), std::size(cases));
    EXPECT_EQ(count(events, Kind::Connected), 0u);
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

TEST(ServerSession, handshakeTimer_phonesThatNeverSettle_incompatibleDisconnectedSilentlyCompatibleKept) {
    ServerHarness::Options options;
    options.handshakeTimeout = milliseconds(300);
    auto server = ServerHarness::start(options);
    auto incompatible = connectPhone(*server);
    auto compatible = connectPhone(*server);
    answerIdentity(*compatible, identity(VXPhone::Encoding::JSON), false);
    answerIdentity(*incompatible, identity(VXPhone::Encoding::JSON, "Glimmet", "5.0"), false);
    std::vector<VXPhoneMessage> afterwards;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (incompatible->state() == VXPhone::State::Open && std::chrono::steady_clock::now() < deadline) {
        if (auto message = incompatible->receive(milliseconds(100))) {
            afterwards.push_back(*message);
        }
    }
    EXPECT_NE(incompatible->state(), VXPhone::State::Open);
    EXPECT_TRUE(
        std::none_of(afterwards.begin(), afterwards.end(), [](const auto& m) { return m.isError(); }));
    incompatible->close(); // as the phone app does when the server has finished
    ASSERT_TRUE(server->waitFor([](const auto& events) { return hasEvent(events, Kind::Disconnected); }));

    std::this_thread::sleep_for(milliseconds(400)); // the compatible phone's timer has fired meanwhile
    const auto answer = ask(*compatible, "info", "vx");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->encoding, VXPhoneMessage::Encoding::XML);
    ASSERT_EQ(server->manager()->clients().size(), 1u);
    EXPECT_FALSE(server->manager()->clients()[0]->isConform());
    const auto events = server->events();
    EXPECT_EQ(count(events, Kind::Error, "CLIENT_IS_NOT_COMPATIBLE_ERROR"), 1u);
    EXPECT_EQ(count(events, Kind::Error), 1u);
    EXPECT_FALSE(hasEvent(events, Kind::Connected));
}

TEST(ServerSession, twoPhones_areServedAtOnceAndListedInAcceptanceOrder) {
    auto server = ServerHarness::start();
    auto first = connectPhone(*server);
    ASSERT_TRUE(server->waitFor([](const auto& events) { return count(events, Kind::Accepted) == 1; }));
    auto second = connectPhone(*server);
    ASSERT_TRUE(server->waitFor([](const auto& events) { return count(events, Kind::Accepted) == 2; }));
    std::thread handshake([&] { second->handshake(identity(VXPhone::Encoding::XML)); });
    first->handshake(identity(VXPhone::Encoding::JSON));
    handshake.join();

    const auto events = server->events();
    const auto clients = server->manager()->clients();
    ASSERT_EQ(clients.size(), 2u);
    EXPECT_EQ(clients[0], events[0].client);
    EXPECT_EQ(clients[1], events[1].client);
    first->sendRequest("info", "vx");
    second->sendRequest("info", "os");
    const auto a = first->receiveMatching([](const auto& m) { return m.isInfo("vx"); }, kPatience);
    const auto b = second->receiveMatching([](const auto& m) { return m.isInfo("os"); }, kPatience);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->encoding, VXPhoneMessage::Encoding::JSON);
    EXPECT_EQ(b->encoding, VXPhoneMessage::Encoding::XML);
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
    ASSERT_TRUE(server->waitFor([](const auto& events) { return count(events, Kind::Disconnected) == 2; }));
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (server->manager()->started() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    EXPECT_FALSE(server->manager()->started());
}

TEST(ServerSession, changePush_volumeBrightnessAndProcessListWhenTheyChangeButNotThePhonesOwnVolume) {
    auto server = ServerHarness::start();
    FakeSystem& system = server->system();
    system.processes->setProcesses({FakeSystem::running(412, "gedit")});
    // The first check sends what differs from nothing sent yet: wait for that first volume push.
    auto phone = connectPhone(*server);
    const auto shaken = phone->handshake(identity());
    const auto isVolume = [](const VXPhoneMessage& m) { return m.isInfo("volume"); };
    ASSERT_TRUE(std::any_of(shaken.begin(), shaken.end(), isVolume) ||
                phone->receiveMatching(isVolume, kPatience));

    system.audio->setLevel(0.3f);
    const auto volume = phone->receiveMatching(isVolume, kPatience);
    ASSERT_TRUE(volume);
    EXPECT_EQ(volume->string("information"), "0.300000");
    system.backlight->setLevel(0.4f);
    EXPECT_TRUE(phone->receiveMatching(
        [](const auto& m) { return m.isInfo("brightness") && m.string("information") == "0.400000"; },
        kPatience));

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

    // A volume the phone set itself is not pushed back to it.
    phone->sendCommand("volume", "0.8");
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (system.audio->level() != 0.8f && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    ASSERT_FLOAT_EQ(system.audio->level(), 0.8f);
    const auto after = phone->receiveFor(milliseconds(500)); // ten change checks
    EXPECT_TRUE(std::none_of(after.begin(), after.end(), isVolume));
    EXPECT_TRUE(std::none_of(after.begin(), after.end(), [](const auto& m) { return m.isError(); }));
    system.audio->setLevel(0.1f);
    const auto changed = phone->receiveMatching(isVolume, kPatience);
    ASSERT_TRUE(changed);
    EXPECT_EQ(changed->string("information"), "0.100000");
}

} // namespace
