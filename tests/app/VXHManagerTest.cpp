// The application controller in process: real sockets and sessions, a real phone, the test's run loop.

#include <algorithm>

#include "app/AppTestSupport.h"
#include "app/PZNetService.h"
#include "app/VXHManager.h"
#include "app/VXLogNotificationPoster.h"
#include "app/VXNotificationPoster.h"
#include "input/VXCommandExecute.h"
#include "phone/VXPhone.h"
#include "session/VXClientManager.h"
#include "settings/SettingsManager.h"
#include "support/LogCapture.h"
#include "transport/PZException.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"

namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

// Records what the controller tells the user: "title|description|name", "alert: message|informative".
class RecordingPoster : public VXNotificationPoster {
public:
    void postNotification(const std::string& title, const std::string& description,
                          const std::string& name) override {
        add(title + "|" + description + "|" + name);
    }
    void showCriticalAlert(const std::string& message, const std::string& informativeText) override {
        add("alert: " + message + "|" + informativeText);
    }
    Lines lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    bool has(const std::string& line) const {
        const auto all = lines();
        return std::find(all.begin(), all.end(), line) != all.end();
    }

private:
    void add(std::string line) {
        std::lock_guard lock(mutex_);
        lines_.push_back(std::move(line));
    }
    mutable std::mutex mutex_;
    Lines lines_;
};

std::string ready(int port) {
    return "Ready|Waiting for connections on port " + std::to_string(port) +
           "|Server is waiting for connections";
}

class VXHManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"HOME", "XDG_CONFIG_HOME"}) {
            const char* value = std::getenv(name);
            savedEnv_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
        }
        setenv("HOME", home_.path().c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home_.path() / "config").c_str(), 1);
        options_.commandExecute = executor_;
        manager_ = VXHManager::create(poster_, options_);
    }
    void TearDown() override {
        manager_.reset();
        for (const auto& [name, value] : savedEnv_) {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
    }
    // Runs the main run loop (the test's thread) until done() or timeout; returns done().
    static bool runMainLoopUntil(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            PZRunLoop::current()->runOnce(20ms);
        }
        return done();
    }
    void expectStopped() const {
        EXPECT_EQ(manager_->getSocketPort(), 0);
        EXPECT_EQ(manager_->serverSocket(), nullptr);
        EXPECT_EQ(manager_->clientManager(), nullptr);
        EXPECT_EQ(manager_->bonjourService(), nullptr);
    }

    apptest::TemporaryFolder home_;
    std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv_;
    std::shared_ptr<RecordingPoster> poster_ = std::make_shared<RecordingPoster>();
    std::shared_ptr<VXCommandExecute> executor_ = VXCommandExecute::create({});
    VXClientOptions options_;
    std::shared_ptr<VXHManager> manager_;
};

TEST_F(VXHManagerTest, start_bindFailureWhileServingAndAfterTerminate_eachHandled) {
    expectStopped();
    int busyPort = 0;
    const int busy = apptest::boundSocket(INADDR_ANY, busyPort);
    manager_->setPortOverride(busyPort);
    manager_->start();
    close(busy);
    expectStopped();
    const auto busyText = std::to_string(busyPort);
    EXPECT_EQ(poster_->lines(),
              (Lines{"Error|Can't bind on port " + busyText + "|Server can't bind",
                     "alert: Can't bind socket on port " + busyText + ". Try to change the port.|"}));

    // Started again on a free port it serves; a start while serving changes nothing.
    const int port = apptest::freePort();
    manager_->setPortOverride(port);
    manager_->start();
    ASSERT_EQ(manager_->getSocketPort(), port);
    const auto socket = manager_->serverSocket();
    const auto clients = manager_->clientManager();
    const auto* service = manager_->bonjourService();
    manager_->setPortOverride(apptest::freePort());
    manager_->start();
    EXPECT_EQ(manager_->serverSocket(), socket);
    EXPECT_EQ(manager_->clientManager(), clients);
    EXPECT_EQ(manager_->bonjourService(), service);
    EXPECT_EQ(manager_->getSocketPort(), port);
    EXPECT_EQ(poster_->lines().size(), 3u);
    EXPECT_EQ(poster_->lines().back(), ready(port));

    // Terminated, nothing listens; started again, the same port serves a phone.
    manager_->terminate();
    expectStopped();
    try {
        VXPhone::connect("127.0.0.1", port, 2s);
        ADD_FAILURE() << "connected to a stopped server";
    } catch (const PZException& error) {
        EXPECT_EQ(error.name(), "VXPhone connect");
        EXPECT_NE(error.reason().find("127.0.0.1 port " + std::to_string(port)), std::string::npos);
    }
    manager_->setPortOverride(port);
    manager_->start();
    ASSERT_EQ(manager_->getSocketPort(), port);
    EXPECT_NO_THROW(VXPhone::connect("127.0.0.1", port, 5s)->handshake({}, 10s));
}

// As velorixhelper runs it: stored settings applied, the first run's defaults stored, the log poster writing
// "Waiting for connections" once. Served through an override so that a server already on 2846 does no harm.
TEST_F(VXHManagerTest, applicationDidFinishLaunching_withLogPoster_settingsAppliedAndReadyLoggedOnce) {
    LogCapture log;
    SettingsManager::setKeyboardInputMethod(2);
    auto manager = VXHManager::create(std::make_shared<VXLogNotificationPoster>(), options_);
    manager->setPortOverride(0);
    manager->applicationDidFinishLaunching();
    const int port = manager->getSocketPort();
    ASSERT_GT(port, 0);
    EXPECT_EQ(executor_->keyboardMethod(), 2);
    EXPECT_EQ(SettingsManager::getSocketPort(), 2846) << "first-run defaults are written";
    EXPECT_TRUE(SettingsManager::checkUpdateAutomatically());
    EXPECT_EQ(log.count("Waiting for connections on port " + std::to_string(port)), 1u);
    EXPECT_NO_THROW(VXPhone::connect("127.0.0.1", port, 5s)->handshake({}, 10s));
    manager->applicationWillTerminate();
    EXPECT_EQ(manager->getSocketPort(), 0);
}

TEST_F(VXHManagerTest, clientEvents_compatibleThenIncompatiblePhone_notifiedInTurn) {
    manager_->setPortOverride(0);
    manager_->start();
    const int port = manager_->getSocketPort();
    VXPhone::Identity identity;
    identity.device = "Test Phone";
    const std::string connected = "Client|New client connected: Test Phone|New client connected";
    const std::string disconnected = "Client|Test Phone with IP 127.0.0.1 disconnected|Client disconnected";
    {
        auto phone = VXPhone::connect("127.0.0.1", port, 5s);
        phone->handshake(identity, 10s);
        ASSERT_TRUE(runMainLoopUntil([&] { return poster_->has(connected); }));
    }
    ASSERT_TRUE(runMainLoopUntil([&] { return poster_->has(disconnected); }));
    EXPECT_EQ(poster_->lines(),
              (Lines{ready(port), "Client|New connection request from 127.0.0.1|New connection request",
                     connected, disconnected}));
    EXPECT_TRUE(manager_->clientManager()->clients().empty());

    identity.app = "Glimmet";
    auto phone = VXPhone::connect("127.0.0.1", port, 5s);
    try {
        phone->handshake(identity, 10s);
        ADD_FAILURE() << "an incompatible phone completed the handshake";
    } catch (const PZException& error) {
        EXPECT_EQ(error.reason(), "incompatible: CLIENT_IS_NOT_COMPATIBLE_ERROR");
    }
    ASSERT_TRUE(runMainLoopUntil(
        [&] { return poster_->has("Client|Error occured with client 127.0.0.1|Client error"); }));
    const auto lines = poster_->lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.ends_with("|New client connected"); }),
              1)
        << "the incompatible phone was never connected";
}

} // namespace
