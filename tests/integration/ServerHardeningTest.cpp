#include "ServerHarness.h"
#include "support/LogCapture.h"

#include "protocol/VXInfo.h"
#include "session/VXClientManager.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

using namespace servertest;

namespace {

std::string repeated(const std::string& piece, std::size_t times) {
    std::string text;
    while (times-- > 0) {
        text += piece;
    }
    return text;
}

std::string xmlRequest(const std::string& encodedType, const std::string& encodedText) {
    return "<request type=\"" + encodedType + "\">" + encodedText + "</request>";
}

struct Hostile {
    std::string name;
    bool password;       // the server has a password (the hostile phone never gives it)
    bool handshakeFirst; // the hostile phone becomes conform (JSON) before it misbehaves
    std::string bytes;
    std::string logged; // what the server logs when it closes the session
};

void PrintTo(const Hostile& hostile, std::ostream* out) {
    *out << hostile.name;
}

class ServerHardening : public ::testing::TestWithParam<Hostile> {};

TEST_P(ServerHardening, hostilePhone_isClosedHardWhileAnotherPhoneKeepsBeingServed) {
    const Hostile& hostile = GetParam();
    LogCapture log;
    ServerHarness::Options options;
    if (hostile.password) {
        options.password = "pw";
    }
    auto server = ServerHarness::start(options);
    auto who = identity();
    who.password = options.password;
    auto good = conformPhone(*server, who);
    auto bad = connectPhone(*server);
    if (hostile.handshakeFirst) {
        bad->handshake(identity());
    }
    ASSERT_TRUE(server->waitFor([](const auto& events) { return count(events, Kind::Accepted) == 2; }));
    const auto badClient = server->manager()->clients().back();

    std::thread sender([&] { bad->sendRaw(std::string_view(hostile.bytes)); });
    for (int i = 0; i < 20; ++i) { // no ASSERT while the sender runs: its thread must be joined
        const auto answer = ask(*good, "info", "vx");
        EXPECT_TRUE(answer && answer->isInfo("vx")) << "round trip " << i;
    }
    sender.join();

    EXPECT_TRUE(bad->waitClosed(6 * kPatience)); // megabytes to read first, slow in sanitizer builds
    EXPECT_TRUE(log.waitFor(hostile.logged)) << hostile.logged;
    ASSERT_TRUE(server->waitFor([&](const auto& events) {
        return std::any_of(events.begin(), events.end(), [&](const auto& e) {
            return e.kind == Kind::Disconnected && e.client == badClient;
        });
    }));
    EXPECT_EQ(server->manager()->clients().size(), 1u);
    EXPECT_TRUE(ask(*good, "info", "os"));
}

INSTANTIATE_TEST_SUITE_P(
    Limits, ServerHardening,
    ::testing::Values(
        Hostile{"message16MiB", false, false, "<" + std::string((16u << 20) + 4096, 'a'),
                "message size limit exceeded"},
        Hostile{"nesting256", false, true, repeated("{\"a\":", 300), "nesting depth limit exceeded"},
        Hostile{"stream512MiB", false, true, "{\"file\":{\"length\":536870913,\"stream\":abcdef",
                "stream length limit exceeded"},
        // Attribute names are kept as they come (values are decoded to a third of their size).
        Hostile{"pendingBytes16MiB", true, false,
                repeated("<request type=\"%69%6e%66%6f\" " + std::string(10u << 20, 'k') +
                             "=\"\">%76%78</request>",
                         2),
                "requests waiting for the password hold more than 16 MiB"},
        Hostile{"pendingRequests257", true, false, repeated(xmlRequest("%69%6e%66%6f", "%76%78"), 257),
                "more than 256 requests waiting for the password"}),
    [](const ::testing::TestParamInfo<Hostile>& info) { return info.param.name; });

TEST(ServerHardeningLimits, pendingRequests_exactly256_areAllAnsweredAfterThePassword) {
    ServerHarness::Options options;
    options.password = "pw";
    auto server = ServerHarness::start(options);
    auto phone = connectPhone(*server);
    phone->sendRaw(repeated(xmlRequest("%69%6e%66%6f", "%76%78"), 256));
    answerIdentity(*phone, identity(VXPhone::Encoding::XML), false);
    phone->send(VXInfo("password", "pw"));
    for (int i = 0; i < 256; ++i) {
        ASSERT_TRUE(phone->receiveMatching([](const auto& m) { return m.isInfo("vx"); }, kPatience)) << i;
    }
    EXPECT_EQ(phone->state(), VXPhone::State::Open);
}

TEST(ServerHardeningLimits, chatteringPhoneWithinTheLimits_keepsItsSessionAndItsLogIsRateLimited) {
    LogCapture log;
    auto server = ServerHarness::start();
    auto good = conformPhone(*server);
    auto chatter = connectPhone(*server);
    const auto started = std::chrono::steady_clock::now();
    // Every byte between "<" and "/" in an element's content is a logged complaint.
    for (int round = 0; round < 20; ++round) {
        chatter->sendRaw("   <info subject=\"%61\">%62<" + std::string(500, 'z') + "/info>   ");
        ASSERT_TRUE(ask(*good, "info", "vx"));
    }
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started);
    chatter->sendRequest("info", "vx");
    EXPECT_TRUE(chatter->receiveMatching([](const auto& m) { return m.isInfo("vx"); }, kPatience));
    EXPECT_EQ(server->manager()->clients().size(), 2u);

    const std::string complaint = "VXTranslator error: after < there isn't '/'";
    EXPECT_LE(log.countContaining(complaint) - log.countContaining("[left out"),
              static_cast<std::size_t>(10 * (elapsed.count() + 2)));
    EXPECT_TRUE(log.waitFor(complaint + " [left out"));
    ASSERT_TRUE(server->waitFor([](const auto& events) {
        return std::count_if(events.begin(), events.end(),
                             [](const auto& e) { return e.kind == Kind::Info && e.detail == "a=b"; }) == 20;
    }));
}

TEST(ServerHardeningLimits, streamBeforeThePassword_makesNoFileAfterwardsAPrivateOne) {
    ServerHarness::Options options;
    options.password = "pw";
    auto server = ServerHarness::start(options);
    const std::filesystem::path tmp = ServerHarness::testHome() + "/tmp";
    for (const char* name : {"before", "after"}) {
        std::filesystem::remove(tmp / name);
    }

    auto xmlPhone = connectPhone(*server);
    answerIdentity(*xmlPhone, identity(VXPhone::Encoding::XML));
    xmlPhone->sendRaw(std::string_view("<file name=\"%62%65%66%6f%72%65\" length=\"%33\">abc</file>"));
    xmlPhone->send(VXInfo("password", "pw"));
    xmlPhone->sendRaw(std::string_view("<file name=\"%61%66%74%65%72\" length=\"%33\">x<z</file>"));
    // Everything before the answer was read.
    xmlPhone->sendRequest("info", "vx");
    ASSERT_TRUE(xmlPhone->receiveMatching([](const auto& m) { return m.isInfo("vx"); }, kPatience));
    // (No request is answered before the password, so no JSON stream can come before it.)
    EXPECT_FALSE(std::filesystem::exists(tmp / "before"));
    ASSERT_TRUE(std::filesystem::exists(tmp / "after"));
    std::stringstream after;
    after << std::ifstream(tmp / "after").rdbuf();
    EXPECT_EQ(after.str(), "x<z");
    struct stat info {};
    ASSERT_EQ(::stat((tmp / "after").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

} // namespace
