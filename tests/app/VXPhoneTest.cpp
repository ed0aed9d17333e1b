// The phone client against scripted servers on loopback; the password exchange is tried end to end.

#include "phone/VXPhone.h"
#include "AppTestSupport.h"
#include "protocol/VXInfo.h"
#include "protocol/VXRequest.h"
#include "transport/PZException.h"

namespace {

using namespace std::chrono_literals;

std::string text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

// A one-connection server on 127.0.0.1 that runs script(fd) on its own thread.
class ScriptedServer {
public:
    explicit ScriptedServer(std::function<void(int)> script) {
        listener_ = apptest::boundSocket(INADDR_LOOPBACK, port_);
        thread_ = std::thread([this, script = std::move(script)] {
            const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                script(fd);
                close(fd);
            }
        });
    }
    ~ScriptedServer() {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }
    int port() const { return port_; }

    static void write(int fd, const std::string& bytes) {
        ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    static void write(int fd, const std::vector<std::uint8_t>& bytes) {
        ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    // Reads until text appears (or the peer closes); returns everything read.
    static std::string readUntil(int fd, const std::string& text) {
        std::string seen;
        char buffer[1024];
        while (seen.find(text) == std::string::npos) {
            const auto n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) {
                break;
            }
            seen.append(buffer, static_cast<std::size_t>(n));
        }
        return seen;
    }

private:
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
};

TEST(VXPhoneTest, receive_nothingThenAMessageThenTheEnd_timesOutThenGivesItThenReportsClosed) {
    ScriptedServer server([](int fd) {
        ScriptedServer::readUntil(fd, "go");
        ScriptedServer::write(fd, *VXInfo("volume", "0.5").getXMLData());
    });
    auto phone = VXPhone::connect("127.0.0.1", server.port(), 5s);
    EXPECT_FALSE(phone->receive(50ms).has_value());
    EXPECT_EQ(phone->state(), VXPhone::State::Open);
    ASSERT_TRUE(phone->sendRaw("go"));
    const auto message = phone->receive(5s);
    ASSERT_TRUE(message.has_value());
    EXPECT_TRUE(message->isInfo("volume"));
    EXPECT_FALSE(phone->receive(5s).has_value());
    EXPECT_EQ(phone->state(), VXPhone::State::Closed);
    EXPECT_FALSE(phone->sendRaw("x") && phone->sendRaw(std::string(1 << 20, 'x')))
        << "writing to a closed connection fails sooner or later";
}

TEST(VXPhoneTest, receive_serverSendsGarbage_failsWithTheDecoderReason) {
    ScriptedServer server([](int fd) {
        ScriptedServer::write(fd, *VXInfo("a", "b").getXMLData());
        ScriptedServer::write(fd, "}}} garbage");
        ScriptedServer::readUntil(fd, "never");
    });
    auto phone = VXPhone::connect("127.0.0.1", server.port(), 5s);
    const auto first = phone->receive(5s);
    ASSERT_TRUE(first.has_value()) << "the message before the garbage is kept";
    EXPECT_FALSE(phone->receive(5s).has_value());
    EXPECT_EQ(phone->state(), VXPhone::State::Failed);
    EXPECT_NE(phone->failure().find("between messages"), std::string::npos) << phone->failure();
    phone->close();
}

TEST(VXPhoneTest, handshake_answersEachInfoRequestThenSwitchesEncoding) {
    std::string received;
    {
        ScriptedServer server([&received](int fd) {
            for (const char* subject : {"protocol", "os", "vx", "app", "version", "device"}) {
                ScriptedServer::write(fd, *VXRequest("info", subject).getXMLData());
            }
            // After "device" the phone asks for "os" (XML), then proves the switch with a JSON request.
            received = ScriptedServer::readUntil(fd, text(VXRequest("info", "protocol").getJSONData()));
            ScriptedServer::write(fd, VXInfo("protocol", "json").getJSONData());
            ScriptedServer::readUntil(fd, "never");
        });
        auto phone = VXPhone::connect("127.0.0.1", server.port(), 5s);
        VXPhone::Identity identity;
        identity.app = "Velorix Lite";
        identity.version = "1.0";
        identity.device = "Pad";
        identity.os = "iOS";
        const auto messages = phone->handshake(identity, 5s);
        EXPECT_EQ(messages.size(), 7u);
        EXPECT_EQ(phone->encoding(), VXPhone::Encoding::JSON);
        phone->close();
    }
    const std::string expected =
        text(*VXInfo("protocol", "json").getXMLData()) + text(*VXInfo("os", "iOS").getXMLData()) +
        text(*VXInfo("app", "Velorix Lite").getXMLData()) + text(*VXInfo("version", "1.0").getXMLData()) +
        text(*VXRequest("info", "os").getXMLData()) + text(*VXInfo("device", "Pad").getXMLData()) +
        text(VXRequest("info", "protocol").getJSONData());
    EXPECT_EQ(received, expected);
}

TEST(VXPhoneTest, receiveRaw_rawMode_givesTheBytesUndecoded) {
    ScriptedServer server([](int fd) {
        const auto request = ScriptedServer::readUntil(fd, "\x01\x02");
        ScriptedServer::write(fd, "<<not a message>> " + request);
    });
    auto phone = VXPhone::connect("127.0.0.1", server.port(), 5s);
    ASSERT_TRUE(phone->sendRaw(std::string("{\"x\x01\x02", 5)));
    std::string got;
    while (got.size() < 23) {
        const auto chunk = phone->receiveRaw(5s);
        ASSERT_TRUE(chunk.has_value());
        got += text(*chunk);
    }
    EXPECT_EQ(got, std::string("<<not a message>> {\"x\x01\x02", 23));
    EXPECT_TRUE(phone->waitClosed(5s));
}

} // namespace
