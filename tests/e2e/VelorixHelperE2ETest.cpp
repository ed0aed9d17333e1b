// The real velorixhelper binary, run headless with a temporary home and talked to through velorixctl
// and the phone library.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "VelorixHelperE2ETest.h"
#include "phone/VXPhone.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

TEST_F(VelorixHelperE2ETest, headless_phoneHandshake_infoAnsweredInBothEncodings) {
    auto server = startServer({"--headless", "--port", "0"});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();

    const auto vx = ctl(port, {"info", "vx"});
    EXPECT_EQ(vx.status, 0) << vx.errors;
    EXPECT_EQ(vx.output, "{\"info\":{\"subject\":\"vx\",\"information\":\"3.0.0\"}}\n");

    auto phone = VXPhone::connect("127.0.0.1", port, 5s);
    VXPhone::Identity identity;
    identity.encoding = VXPhone::Encoding::XML;
    identity.device = "E2E Phone";
    const auto handshake = phone->handshake(identity, 20s);
    ASSERT_FALSE(handshake.empty());
    EXPECT_TRUE(handshake.front().isRequest("info")) << handshake.front().toJSON();
    ASSERT_TRUE(phone->sendRequest("info", "os"));
    const auto os = phone->receiveMatching([](const VXPhoneMessage& m) { return m.isInfo("os"); }, 20s);
    ASSERT_TRUE(os.has_value());
    EXPECT_EQ(os->encoding, VXPhoneMessage::Encoding::XML);
    EXPECT_EQ(os->string("information").value_or("").rfind("Mac ", 0), 0u);
    EXPECT_TRUE(server->waitForError("New client connected: E2E Phone", 10s).has_value()) << server->errors();
}

TEST_F(VelorixHelperE2ETest, configSetSocketPort_thenStart_serverListensOnTheStoredPort) {
    firstLaunch();
    const int stored = apptest::freePort();
    const auto set = config({"set", "socket port", std::to_string(stored)});
    ASSERT_EQ(set.status, 0) << set.errors;

    auto server = startServer({"--headless"});
    EXPECT_EQ(waitForPort(*server), stored) << server->errors();
    EXPECT_EQ(ctl(stored, {"info", "protocol"}).status, 0);
}

TEST_F(VelorixHelperE2ETest, portOverride_serving_isNeverWrittenToTheStore) {
    firstLaunch();
    const int stored = apptest::freePort();
    ASSERT_EQ(config({"set", "socket port", std::to_string(stored)}).status, 0);
    const int override = apptest::freePort();
    {
        auto server = startServer({"--headless", "--port", std::to_string(override)});
        EXPECT_EQ(waitForPort(*server), override) << server->errors();
        server->signal(SIGTERM);
        EXPECT_EQ(server->wait(30s), 0);
    }
    const auto get = config({"get", "socket port"});
    EXPECT_EQ(get.status, 0);
    EXPECT_EQ(get.output, std::to_string(stored) + "\n");
}

class SignalTest : public VelorixHelperE2ETest, public ::testing::WithParamInterface<int> {};

TEST_P(SignalTest, signal_whileServingAPhone_stopsCleanlyWithStatusZero) {
    auto server = startServer({"--headless", "--port", "0"});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    // A phone that watches: its connection ends with the server, and velorixctl says so.
    E2ESubprocess watcher(kCtl, {"--port", std::to_string(port), "watch"}, environment());
    ASSERT_TRUE(server->waitForError("New client connected: velorixctl", 20s)) << server->errors();

    server->signal(GetParam());
    EXPECT_EQ(server->wait(30s), 0) << server->errors();
    EXPECT_EQ(watcher.wait(30s), 3) << watcher.errors();
    EXPECT_NE(watcher.errors().find("connection lost"), std::string::npos) << watcher.errors();
}

INSTANTIATE_TEST_SUITE_P(TermAndInt, SignalTest, ::testing::Values(SIGTERM, SIGINT),
                         [](const auto& info) { return info.param == SIGTERM ? "SIGTERM" : "SIGINT"; });

TEST_F(VelorixHelperE2ETest, start_portInUse_exitsWithStatusOneAndTheText) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(fd, 1), 0);
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    const int busy = ntohs(address.sin_port);

    const auto result =
        E2ESubprocess::run(kServer, {"--headless", "--port", std::to_string(busy)}, environment());
    close(fd);
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(
        result.errors.find("Can't bind socket on port " + std::to_string(busy) + ". Try to change the port."),
        std::string::npos)
        << result.errors;
    EXPECT_EQ(result.errors.find("Waiting for connections"), std::string::npos);
}

TEST_F(VelorixHelperE2ETest, germanLocale_numericAnswers_useADecimalPoint) {
    const auto locales = apptest::capture("locale -a 2>/dev/null");
    VXH_REQUIRE_PLATFORM(locales.find("de_DE.utf8") != std::string::npos,
                         "the de_DE.UTF-8 locale is not generated");
    auto server =
        startServer({"--headless", "--port", "0"}, {{"LANG", "de_DE.UTF-8"}, {"LC_ALL", "de_DE.UTF-8"}});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();

    const std::regex decimal(R"(^-?[0-9]+\.[0-9]{6}$)");
    for (const char* subject : {"volume", "brightness"}) {
        auto phone = VXPhone::connect("127.0.0.1", port, 5s);
        phone->handshake({}, 20s);
        ASSERT_TRUE(phone->sendRequest("info", subject));
        const auto answer =
            phone->receiveMatching([&](const VXPhoneMessage& m) { return m.isInfo(subject); }, 20s);
        ASSERT_TRUE(answer.has_value()) << subject;
        const auto value = answer->string("information").value_or("");
        EXPECT_TRUE(std::regex_match(value, decimal)) << subject << " answered \"" << value << "\"";
    }
    // The trackpad command's "%f" shift travels the same way; the server takes it without an error.
    const auto trackpad = ctl(port, {"trackpad", "--fingers", "1", "--shift", "0.5;-1.25"});
    EXPECT_EQ(trackpad.status, 0) << trackpad.output << trackpad.errors;
}

TEST_F(VelorixHelperE2ETest, commandLine_helpVersionAndMistakes_answerAsDocumented) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string outputPart;
        std::string errorPart;
    };
    const std::vector<Case> cases = {
        {{"--help"}, 0, "--headless", ""},
        {{"--help"}, 0, "runs headless", ""},
        {{"--version"}, 0, "velorixhelper 3.0.0\n", ""},
        {{"--bogus"}, 2, "", "unknown argument"},
        {{"--port", "http"}, 2, "", "--port needs a number"},
        {{"--port", "70000"}, 2, "", "--port needs a number"},
        {{"config", "get", "no such key"}, 2, "", ""},
    };
    for (const auto& c : cases) {
        const auto result = E2ESubprocess::run(kServer, c.args, environment());
        EXPECT_EQ(result.status, c.status) << c.args[0] << ": " << result.errors;
        EXPECT_NE(result.output.find(c.outputPart), std::string::npos) << c.args[0] << ": " << result.output;
        EXPECT_NE(result.errors.find(c.errorPart), std::string::npos) << c.args[0] << ": " << result.errors;
    }
}

TEST_F(VelorixHelperE2ETest, velorixctl_requestsAndCommands_printAnswersAndExitCodes) {
    auto server = startServer({"--headless", "--port", "0"});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string outputPart;
    };
    const std::vector<Case> cases = {
        {{"info", "nothing"}, 1, "UNABLE_TO_RECOGNIZE_REQEUST_ERROR"},
        {{"info", "device"}, 0, ""},
        {{"--xml", "processlist"}, 0, "NewProcessesList"},
        {{"processlist", "dock"}, 0, "\"processList\":{\"name\":\"Dock\""},
        {{"directory", home_.path().string()}, 0, "\"directory\":{"},
        {{"directory", "/no/such/folder"}, 1, "UNABLE_TO_SATISFY_REQUEST_ERROR"},
        {{"special", "power"}, 1, "UNABLE_TO_RECOGNIZE_COMMAND_ERROR"},
        {{"--app", "Glimmet", "info", "os"}, 3, "CLIENT_IS_NOT_COMPATIBLE_ERROR"},
        {{"--password", "x", "info", "vx"}, 0, "3.0.0"},
        {{"nonsense"}, 2, ""},
    };
    for (const auto& c : cases) {
        const auto result = ctl(port, c.args);
        EXPECT_EQ(result.status, c.status) << c.args[0] << " " << c.args.back() << ": " << result.errors;
        EXPECT_NE(result.output.find(c.outputPart), std::string::npos)
            << c.args.back() << ": " << result.output;
    }
    ASSERT_EQ(config({"set", "connection_password", "sesame"}).status, 0);
    EXPECT_EQ(ctl(port, {"info", "vx"}).status, 3) << "no password given";
    EXPECT_EQ(ctl(port, {"--password", "wrong", "info", "vx"}).status, 3);
    EXPECT_EQ(ctl(port, {"--password", "sesame", "info", "vx"}).status, 0);
}

TEST_F(VelorixHelperE2ETest, velorixctl_screenshotWithDisplay_writesTheJpeg) {
    VXH_REQUIRE_PLATFORM(!TestPlatform::display().empty(), "no X server (VXH_TEST_DISPLAY unset)");
    auto server = startServer({"--headless", "--port", "0"}, {{"DISPLAY", TestPlatform::display()}});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    const auto file = (home_.path() / "shot.jpg").string();
    const auto result = ctl(port, {"screenshot", file, "--rect", "0;0;320;200"});
    ASSERT_EQ(result.status, 0) << result.output << result.errors;
    EXPECT_NE(result.output.find("\"rect\":[0,0,320,200]"), std::string::npos) << result.output;
    std::ifstream in(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_GT(bytes.size(), 4u);
    EXPECT_EQ(bytes.substr(0, 3), "\xff\xd8\xff");
    EXPECT_NE(result.output.find("\"bytes\":" + std::to_string(bytes.size())), std::string::npos);
}

} // namespace
