#include "ServerHarness.h"

#include "protocol/VXError.h"
#include "protocol/VXInfo.h"
#include "session/VXCLientManagerDelegate.h"
#include "session/VXClient.h"
#include "session/VXClientManager.h"
#include "settings/SettingsManager.h"
#include "support/FakeSystem.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <mutex>
#include <stdexcept>

namespace {

// The temporary home of the process, removed when it ends.
struct TemporaryHome {
    TemporaryHome() {
        char pattern[] = "/tmp/vxh-server-XXXXXX";
        if (!::mkdtemp(pattern)) {
            throw std::runtime_error("mkdtemp");
        }
        path = pattern;
        std::filesystem::create_directories(path + "/tmp");
        ::setenv("HOME", path.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (path + "/.config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (path + "/.local/share").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (path + "/.cache").c_str(), 1);
    }
    ~TemporaryHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

} // namespace

// The application's side of the manager: it records every event.
class ServerHarness::Recorder : public VXCLientManagerDelegate {
public:
    void clientManagerNewClientAccepted(VXClientManager&, const std::shared_ptr<VXClient>& client) override {
        record({Event::Kind::Accepted, client, {}, true});
    }
    void clientManagerNewClientConnected(VXClientManager&, const std::shared_ptr<VXClient>& client) override {
        record({Event::Kind::Connected, client, {}, true});
    }
    void clientManagerReceivedInfoFromClient(VXClientManager&, const std::shared_ptr<VXInfo>& info,
                                             const std::shared_ptr<VXClient>& client) override {
        record({Event::Kind::Info, client,
                info->subject().value_or("") + "=" + info->information().value_or(""), true});
    }
    void clientManagerReceivedErrorFromClient(VXClientManager&, const std::shared_ptr<VXError>& error,
                                              const std::shared_ptr<VXClient>& client) override {
        record({Event::Kind::Error, client, error->message().value_or(""), true});
    }
    void clientManagerClientDisconnected(VXClientManager& manager,
                                         const std::shared_ptr<VXClient>& client) override {
        const auto clients = manager.clients();
        record({Event::Kind::Disconnected,
                client,
                {},
                std::find(clients.begin(), clients.end(), client) != clients.end()});
    }

    void record(Event event) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            events.push_back(std::move(event));
        }
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Event> events;
};

const std::string& ServerHarness::testHome() {
    static const TemporaryHome home;
    return home.path;
}

std::unique_ptr<ServerHarness> ServerHarness::start(Options options) {
    auto harness = std::make_unique<ServerHarness>();
    harness->recorder_ = std::make_shared<Recorder>();
    harness->system_ = std::make_unique<FakeSystem>(testHome() + "/system");
    SettingsManager::setConnectionPassword(options.password);
    harness->serverSocket_ = std::make_shared<PZServerSocket>();
    harness->serverSocket_->startOnPort(0);

    VXClientOptions clientOptions;
    clientOptions.systemInfo = harness->system_->systemInfo;
    clientOptions.commandExecute = harness->system_->executor;
    clientOptions.handshakeTimeout = options.handshakeTimeout;
    clientOptions.checkInterval = options.checkInterval;
    harness->manager_ = VXClientManager::clientManagerWithServerSocket(harness->serverSocket_, clientOptions);
    harness->manager_->setDelegate(harness->recorder_);

    std::promise<std::shared_ptr<PZRunLoop>> ready;
    harness->mainThread_ = std::thread([manager = harness->manager_, &ready] {
        auto loop = PZRunLoop::current();
        manager->scheduleInRunLoop(loop);
        ready.set_value(loop);
        loop->run();
    });
    harness->mainLoop_ = ready.get_future().get();
    harness->manager_->start();
    return harness;
}

ServerHarness::~ServerHarness() {
    serverSocket_->close();
    // The manager's thread ends once the server socket is closed and every session has gone.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while ((manager_->started() || !manager_->clients().empty()) &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    mainLoop_->stop();
    mainThread_.join();
    manager_->setDelegate({});
}

int ServerHarness::port() const {
    return serverSocket_->getPort();
}

std::vector<ServerHarness::Event> ServerHarness::events() const {
    std::lock_guard<std::mutex> lock(recorder_->mutex);
    return recorder_->events;
}

bool ServerHarness::waitFor(const std::function<bool(const std::vector<Event>&)>& condition,
                            std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(recorder_->mutex);
    return recorder_->changed.wait_for(lock, timeout, [&] { return condition(recorder_->events); });
}

namespace servertest {

VXPhone::Identity identity(VXPhone::Encoding encoding, std::string app, std::string version) {
    VXPhone::Identity who;
    who.app = std::move(app);
    who.version = std::move(version);
    who.device = "Pixel 8";
    who.os = "Android 14";
    who.encoding = encoding;
    return who;
}

std::vector<VXPhoneMessage> answerIdentity(VXPhone& phone, const VXPhone::Identity& who, bool settle) {
    std::vector<VXPhoneMessage> others;
    std::vector<std::string> pending = {"protocol", "os", "vx", "app", "version", "device"};
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!pending.empty() && std::chrono::steady_clock::now() < deadline) {
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
        std::erase(pending, subject);
        if (subject == "protocol") {
            phone.send(VXInfo(subject, who.encoding == VXPhone::Encoding::JSON ? "json" : "xml"));
        } else if (subject == "app" || subject == "version" || subject == "os") {
            phone.send(VXInfo(subject, subject == "app"       ? who.app
                                       : subject == "version" ? who.version
                                                              : who.os));
        } else if (subject == "device" && settle) {
            phone.sendRequest("info", "os");
            phone.send(VXInfo(subject, who.device));
            phone.setEncoding(who.encoding);
        }
    }
    return others;
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
