#include "session/VXClient.h"
#include "protocol/VXInfo.h"
#include "protocol/VXTranslator.h"
#include "support/FakeSystem.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <filesystem>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// A session over one end of a socket pair, never started; the test plays its socket thread.
class DetachedSession {
public:
    explicit DetachedSession(FakeSystem& system) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("socketpair");
        }
        peer_ = ends[1];
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(&address);
        VXClientOptions options;
        options.systemInfo = system.systemInfo;
        options.commandExecute = system.executor;
        options.connectionPassword = [] { return std::optional<std::string>(); };
        client = VXClient::clientWithSocketNativeHandleAddress(
            ends[0], VXClient::Address(bytes, bytes + sizeof address), options);
    }
    ~DetachedSession() {
        client->close(); // ends the session's socket thread
        ::close(peer_);
    }

    void tell(const std::string& subject, const std::string& information) {
        client->translatorDidGetInfo(translator_, VXInfo::infoWithSubjectInformation(subject, information));
    }

    std::shared_ptr<VXClient> client;

private:
    VXTranslator translator_;
    int peer_ = -1;
};

class VXClientTest : public ::testing::Test {
protected:
    void TearDown() override {
        system_.reset();
        std::filesystem::remove_all(home_);
    }

    std::filesystem::path home_ =
        std::filesystem::temp_directory_path() / ("vxh-client-" + std::to_string(::getpid()));
    std::unique_ptr<FakeSystem> system_ = std::make_unique<FakeSystem>(home_.string());
};

TEST_F(VXClientTest, isCompatible_byApplicationAndMajorVersion) {
    struct Case {
        std::optional<std::string> app;
        std::optional<std::string> version;
        bool compatible;
    };
    const Case cases[] = {{"Velorix", "1.9", false},     {"Velorix", "2.0", true},
                          {"Quillo", "0.9", false},      {"Quillo", "1.0", true},
                          {"Velorix Lite", "0.1", true}, {"Glimmet", "5.0", false},
                          {"Other", "9.0", false},       {"Velorix", std::nullopt, false}};
    for (const auto& c : cases) {
        DetachedSession session(*system_);
        if (c.app) {
            session.tell("app", *c.app);
        }
        if (c.version) {
            session.tell("version", *c.version);
        }
        EXPECT_EQ(session.client->isCompatible(), c.compatible)
            << c.app.value_or("(none)") << " " << c.version.value_or("(none)");
    }
}

TEST_F(VXClientTest, identity_onlyAVxVersion_isVelorixOfThatVersion) {
    DetachedSession session(*system_);
    // Address, application, version, system and device.
    EXPECT_EQ(session.client->description(), "127.0.0.1 Unknown (null) Unknown Unknown");

    session.tell("vx", "3.1");
    EXPECT_EQ(session.client->getApp(), "Velorix");
    EXPECT_EQ(session.client->getVersion(), "3.1");
    EXPECT_TRUE(session.client->isCompatible());

    session.tell("version", "2.5");
    session.tell("app", "Quillo");
    session.tell("device", "Pixel");
    session.tell("os", "Android 14");
    EXPECT_EQ(session.client->description(), "127.0.0.1 Quillo 2.5 Android 14 Pixel");
    EXPECT_EQ(session.client->info().size(), 5u);
}

} // namespace
