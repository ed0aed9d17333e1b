// The application controller in the test process: real server socket, client manager and sessions on
// loopback, a real phone, the main run loop driven by the test.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "app/AppTestSupport.h"
#include "app/PZNetService.h"
#include "app/VXHManager.h"
#include "app/VXLogNotificationPoster.h"
#include "app/VXNotificationPoster.h"
#include "input/VXCommandExecute.h"
#include "phone/VXPhone.h"
#include "session/VXClientManager.h"
#include "settings/SettingsManager.h"
#include "transport/PZException.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"

namespace {

using namespace std::chrono_literals;

struct Notification {
    std::string title;
    std::string description;
    std::string name;
};

// Records what the controller tells the user.
class RecordingPoster : public VXNotificationPoster {
public:
    void postNotification(const std::string& title, const std::string& description,
                          const std::string& name) override {
        std::lock_guard lock(mutex_);
        notifications_.push_back({title, description, name});
    }
    void showCriticalAlert(const std::string& message, const std::string& informativeText) override {
        std::lock_guard lock(mutex_);
        alerts_.push_back(message + "|" + informativeText);
    }
    std::vector<Notification> notifications() const {
        std::lock_guard lock(mutex_);
        return notifications_;
    }
    std::vector<std::string> alerts() const {
        std::lock_guard lock(mutex_);
        return alerts_;
    }
    bool has(const std::string& description) const {
        for (const auto& n : notifications()) {
            if (n.description == description) {
                return true;
            }
        }
        return false;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Notification> notifications_;
    std::vector<std::string> alerts_;
};

// A listening socket on every local address that keeps its port busy.
class BusyPort {
public:
    BusyPort() {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(fd_, 1);
        socklen_t length = sizeof address;
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~BusyPort() { close(fd_); }
    int port() const { return port_; }

private:
    int fd_ = -1;
    int port_ = 0;
};

class VXHManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        saveEnv("HOME");
        saveEnv("XDG_CONFIG_HOME");
        setenv("HOME", home_.path().c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home_.path() / "config").c_str(), 1);
        poster_ = std::make_shared<RecordingPoster>();
        executor_ = VXCommandExecute::create({});
        VXClientOptions options;
        options.commandExecute = executor_;
        manager_ = VXHManager::create(poster_, options);
    }
    void TearDown() override {
        manager_.reset();
        for (const auto& [name, value] : savedEnv_) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            } else {
                unsetenv(name.c_str());
            }
        }
    }
    void saveEnv(const char* name) {
        const char* value = std::getenv(name);
        savedEnv_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    // Runs the main run loop (the test's thread) until done() or timeout; returns done().
    static bool runMainLoopUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = 10s) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        auto loop = PZRunLoop::current();
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            loop->runOnce(20ms);
        }
        return done();
    }

    apptest::TemporaryFolder home_;
    std::vector<std::pair<std::string, std::optional<std::string>>> savedEnv_;
    std::shared_ptr<RecordingPoster> poster_;
    std::shared_ptr<VXCommandExecute> executor_;
    std::shared_ptr<VXHManager> manager_;
};

TEST_F(VXHManagerTest, start_portInUse_reportsTheBindFailureThenStartsOnAFreePort) {
    BusyPort busy;
    manager_->setPortOverride(busy.port());
    manager_->start();

    EXPECT_EQ(manager_->getSocketPort(), 0);
    EXPECT_EQ(manager_->serverSocket(), nullptr);
    EXPECT_EQ(manager_->clientManager(), nullptr);
    EXPECT_EQ(manager_->bonjourService(), nullptr);
    const auto port = std::to_string(busy.port());
    ASSERT_EQ(poster_->notifications().size(), 1u);
    EXPECT_EQ(poster_->notifications()[0].title, "Error");
    EXPECT_EQ(poster_->notifications()[0].description, "Can't bind on port " + port);
    EXPECT_EQ(poster_->notifications()[0].name, "Server can't bind");
    ASSERT_EQ(poster_->alerts().size(), 1u);
    EXPECT_EQ(poster_->alerts()[0], "Can't bind socket on port " + port + ". Try to change the port.|");

    const int freePort = apptest::freePort();
    manager_->setPortOverride(freePort);
    manager_->start();
    EXPECT_EQ(manager_->getSocketPort(), freePort);
    EXPECT_TRUE(poster_->has("Waiting for connections on port " + std::to_string(freePort)));
}

TEST_F(VXHManagerTest, start_whileServing_doesNothing) {
    manager_->setPortOverride(0);
    manager_->start();
    ASSERT_NE(manager_->getSocketPort(), 0);
    const auto socket = manager_->serverSocket();
    const auto clients = manager_->clientManager();
    const auto* service = manager_->bonjourService();
    const auto port = manager_->getSocketPort();

    manager_->setPortOverride(apptest::freePort());
    manager_->start();
    EXPECT_EQ(manager_->serverSocket(), socket);
    EXPECT_EQ(manager_->clientManager(), clients);
    EXPECT_EQ(manager_->bonjourService(), service);
    EXPECT_EQ(manager_->getSocketPort(), port);
    EXPECT_EQ(poster_->notifications().size(), 1u);
}

TEST_F(VXHManagerTest, getSocketPort_stoppedBeforeStartAndAfterTerminate_isZero) {
    EXPECT_EQ(manager_->getSocketPort(), 0);
    manager_->setPortOverride(0);
    manager_->start();
    EXPECT_GT(manager_->getSocketPort(), 0);
    manager_->terminate();
    EXPECT_EQ(manager_->getSocketPort(), 0);
    EXPECT_EQ(manager_->serverSocket(), nullptr);
    EXPECT_EQ(manager_->clientManager(), nullptr);
    EXPECT_EQ(manager_->bonjourService(), nullptr);
}

TEST_F(VXHManagerTest, start_afterTerminate_servesTheSamePortAgain) {
    const int port = apptest::freePort();
    manager_->setPortOverride(port);
    manager_->start();
    ASSERT_EQ(manager_->getSocketPort(), port);
    manager_->terminate();
    EXPECT_THROW(VXPhone::connect("127.0.0.1", port, 2s), PZException);

    manager_->start();
    ASSERT_EQ(manager_->getSocketPort(), port);
    auto phone = VXPhone::connect("127.0.0.1", port, 5s);
    EXPECT_NO_THROW(phone->handshake({}, 10s));
}

TEST_F(VXHManagerTest, start_noOverride_bindsTheStoredPortAndTheOverrideIsNeverStored) {
    const int stored = apptest::freePort();
    SettingsManager::setSocketPort(stored);
    manager_->start();
    EXPECT_EQ(manager_->getSocketPort(), stored);
    manager_->terminate();

    manager_->setPortOverride(0);
    EXPECT_EQ(manager_->configuredPort(), 0);
    manager_->start();
    EXPECT_NE(manager_->getSocketPort(), stored);
    EXPECT_EQ(SettingsManager::getSocketPort(), stored);
}

TEST_F(VXHManagerTest, start_withLogPoster_logsWaitingForConnectionsOnceAccepting) {
    std::vector<std::string> lines;
    std::mutex mutex;
    const auto token = PZLogger::addObserver([&](std::string_view line) {
        std::lock_guard lock(mutex);
        lines.emplace_back(line);
    });
    VXClientOptions options;
    options.commandExecute = executor_;
    auto manager = VXHManager::create(std::make_shared<VXLogNotificationPoster>(), options);
    manager->setPortOverride(0);
    manager->start();
    const int port = manager->getSocketPort();
    PZLogger::removeObserver(token);

    ASSERT_GT(port, 0);
    std::lock_guard lock(mutex);
    EXPECT_EQ(
        std::count(lines.begin(), lines.end(), "Waiting for connections on port " + std::to_string(port)), 1);
    // The line is written once the socket accepts: a phone connecting right after it is served.
    auto phone = VXPhone::connect("127.0.0.1", port, 5s);
    EXPECT_NO_THROW(phone->handshake({}, 10s));
}

TEST_F(VXHManagerTest,
       applicationDidFinishLaunching_storedSettings_firstRunDefaultsAndKeyboardMethodApplied) {
    SettingsManager::setKeyboardInputMethod(2);
    SettingsManager::setSocketPort(apptest::freePort());
    manager_->applicationDidFinishLaunching();

    EXPECT_EQ(executor_->keyboardMethod(), 2);
    EXPECT_EQ(manager_->getSocketPort(), SettingsManager::getSocketPort());
    EXPECT_TRUE(SettingsManager::checkUpdateAutomatically()) << "first-run defaults are written";
    manager_->applicationWillTerminate();
    EXPECT_EQ(manager_->getSocketPort(), 0);
}

TEST_F(VXHManagerTest, clientEvents_compatiblePhone_acceptedConnectedAndDisconnectedNotified) {
    manager_->setPortOverride(0);
    manager_->start();
    {
        auto phone = VXPhone::connect("127.0.0.1", manager_->getSocketPort(), 5s);
        VXPhone::Identity identity;
        identity.device = "Test Phone";
        phone->handshake(identity, 10s);
        ASSERT_TRUE(runMainLoopUntil([&] { return poster_->has("New client connected: Test Phone"); }));
        EXPECT_TRUE(poster_->has("New connection request from 127.0.0.1"));
    }
    ASSERT_TRUE(runMainLoopUntil([&] { return poster_->has("Test Phone with IP 127.0.0.1 disconnected"); }));
    const auto notifications = poster_->notifications();
    ASSERT_EQ(notifications.size(), 4u); // Ready, accepted, connected, disconnected
    EXPECT_EQ(notifications[1].name, "New connection request");
    EXPECT_EQ(notifications[2].name, "New client connected");
    EXPECT_EQ(notifications[3].title, "Client");
    EXPECT_EQ(notifications[3].name, "Client disconnected");
    EXPECT_TRUE(manager_->clientManager()->clients().empty());
}

TEST_F(VXHManagerTest, clientEvents_incompatiblePhone_clientErrorNotifiedAndNeverConnected) {
    manager_->setPortOverride(0);
    manager_->start();
    auto phone = VXPhone::connect("127.0.0.1", manager_->getSocketPort(), 5s);
    VXPhone::Identity identity;
    identity.app = "Glimmet";
    try {
        phone->handshake(identity, 10s);
        ADD_FAILURE() << "an incompatible phone completed the handshake";
    } catch (const PZException& error) {
        EXPECT_EQ(error.reason(), "incompatible: CLIENT_IS_NOT_COMPATIBLE_ERROR");
    }
    ASSERT_TRUE(runMainLoopUntil([&] { return poster_->has("Error occured with client 127.0.0.1"); }));
    for (const auto& n : poster_->notifications()) {
        EXPECT_NE(n.name, "New client connected");
        if (n.description == "Error occured with client 127.0.0.1") {
            EXPECT_EQ(n.name, "Client error");
        }
    }
}

} // namespace
