// The real velorixhelper, run headless, talked to through velorixctl and the phone library.

#include <regex>

#include "VelorixHelperE2ETest.h"
#include "phone/VXPhone.h"
#include "support/TestPlatform.h"

namespace {

using namespace std::chrono_literals;

// The port set with the config command is served; a --port override serves for one run and is never stored.
TEST_F(VelorixHelperE2ETest, storedPortAndOverride_served_onlyTheStoredOneKept) {
    ASSERT_EQ(config({"set", "first_time", "false"}).status, 0); // else the first launch stores 2846
    const int stored = apptest::freePort();
    const auto set = config({"set", "socket port", std::to_string(stored)});
    ASSERT_EQ(set.status, 0) << set.errors;
    const int override = apptest::freePort();
    for (const auto& [args, port] : {std::pair{std::vector<std::string>{"--headless"}, stored},
                                     {{"--headless", "--port", std::to_string(override)}, override}}) {
        auto server = startServer(args);
        EXPECT_EQ(waitForPort(*server), port) << server->errors();
        EXPECT_EQ(ctl(port, {"info", "protocol"}).status, 0);
        server->signal(SIGTERM);
        EXPECT_EQ(server->wait(30s), 0);
    }
    const auto get = config({"get", "socket port"});
    EXPECT_EQ(get.status, 0);
    EXPECT_EQ(get.output, std::to_string(stored) + "\n");
}

// SIGINT here, SIGTERM in the other tests.
TEST_F(VelorixHelperE2ETest, sigint_whileServingAPhone_stopsCleanlyWithStatusZero) {
    auto server = startServer({"--headless", "--port", "0"});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();
    // A phone that watches: its connection ends with the server, and velorixctl says so.
    E2ESubprocess watcher(kCtl, {"--port", std::to_string(port), "watch"}, environment());
    ASSERT_TRUE(server->waitForError("New client connected: velorixctl", 20s)) << server->errors();

    server->signal(SIGINT);
    EXPECT_EQ(server->wait(30s), 0) << server->errors();
    EXPECT_EQ(watcher.wait(30s), 3) << watcher.errors();
    EXPECT_NE(watcher.errors().find("connection lost"), std::string::npos) << watcher.errors();
}

TEST_F(VelorixHelperE2ETest, start_portInUse_exitsWithStatusOneAndTheText) {
    int busy = 0;
    const int fd = apptest::boundSocket(INADDR_ANY, busy);
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

TEST_F(VelorixHelperE2ETest, commandLine_helpVersionAndMistakes_answerAsDocumented) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string outputPart;
        std::string errorPart;
    };
    const std::vector<Case> cases = {
        {{"--help"}, 0, "Usage: velorixhelper [--headless] [--port N]\n", ""},
        {{"--version"}, 0, "velorixhelper 3.0.0\n", ""},
        {{"--bogus"}, 2, "", "unknown argument"},
        {{"--port", "http"}, 2, "", "--port needs a number"},
        {{"--port", "70000"}, 2, "", "--port needs a number"},
    };
    for (const auto& c : cases) {
        const auto result = E2ESubprocess::run(kServer, c.args, environment());
        EXPECT_EQ(result.status, c.status) << c.args[0] << ": " << result.errors;
        EXPECT_NE(result.output.find(c.outputPart), std::string::npos) << c.args[0] << ": " << result.output;
        EXPECT_NE(result.errors.find(c.errorPart), std::string::npos) << c.args[0] << ": " << result.errors;
    }
}

// One server under a locale that writes decimal commas: a phone in XML, velorixctl's requests and commands
// with their exit codes, the connection password, numbers with a decimal point.
TEST_F(VelorixHelperE2ETest, headless_phoneAndVelorixctl_answersEncodingsExitCodesAndNumbers) {
    auto server =
        startServer({"--headless", "--port", "0"}, {{"LANG", "de_DE.UTF-8"}, {"LC_ALL", "de_DE.UTF-8"}});
    const int port = waitForPort(*server);
    ASSERT_GT(port, 0) << server->errors();

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
    phone.reset();

    const auto vx = ctl(port, {"info", "vx"});
    EXPECT_EQ(vx.status, 0) << vx.errors;
    EXPECT_EQ(vx.output, "{\"info\":{\"subject\":\"vx\",\"information\":\"3.0.0\"}}\n");
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string outputPart;
    };
    const std::vector<Case> cases = {
        {{"info", "nothing"}, 1, "UNABLE_TO_RECOGNIZE_REQEUST_ERROR"},
        {{"--xml", "processlist"}, 0, "NewProcessesList"},
        {{"directory", home_.path().string()}, 0, "\"directory\":{"},
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
    for (const auto& [args, reason] : {std::pair{std::vector<std::string>{"info", "vx"}, "password required"},
                                       {{"--password", "wrong", "info", "vx"}, "wrong password"}}) {
        const auto refused = ctl(port, args);
        EXPECT_EQ(refused.status, 3) << reason;
        EXPECT_EQ(refused.errors, std::string("velorixctl: ") + reason + "\n");
    }
    EXPECT_EQ(ctl(port, {"--password", "sesame", "info", "vx"}).status, 0);

    VXH_REQUIRE_PLATFORM(apptest::capture("locale -a 2>/dev/null").find("de_DE.utf8") != std::string::npos,
                         "the de_DE.UTF-8 locale is not generated");
    const std::regex decimal(R"re("information":"-?[0-9]+\.[0-9]{6}")re");
    for (const char* subject : {"volume", "brightness"}) {
        const auto answer = ctl(port, {"--password", "sesame", "info", subject});
        EXPECT_EQ(answer.status, 0) << subject << ": " << answer.errors;
        EXPECT_TRUE(std::regex_search(answer.output, decimal)) << subject << " answered " << answer.output;
    }
    // The trackpad command's "%f" shift travels the same way; the server takes it without an error.
    const auto trackpad =
        ctl(port, {"--password", "sesame", "trackpad", "--fingers", "1", "--shift", "0.5;-1.25"});
    EXPECT_EQ(trackpad.status, 0) << trackpad.output << trackpad.errors;
}

} // namespace
