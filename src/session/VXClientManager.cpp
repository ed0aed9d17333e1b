#include "session/VXClientManager.h"

#include "session/VXClient.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"
#include "transport/PZThread.h"

#include <algorithm>
#include <chrono>
#include <exception>

namespace {

// A run of the manager's loop lasts until something was handled; this only bounds one wait.
constexpr auto kIdleWait = std::chrono::hours(1);

} // namespace

std::shared_ptr<VXClientManager>
VXClientManager::clientManagerWithServerSocket(std::shared_ptr<PZServerSocket> serverSocket,
                                               VXClientOptions options) {
    auto manager = std::make_shared<VXClientManager>(Key{}, std::move(serverSocket), std::move(options));
    if (manager->socket_) {
        manager->socket_->setDelegate(std::weak_ptr<PZServerSocketDelegate>(manager));
    }
    return manager;
}

VXClientManager::VXClientManager(Key, std::shared_ptr<PZServerSocket> serverSocket, VXClientOptions options)
    : socket_(std::move(serverSocket)), options_(options.withDefaults()) {}

VXClientManager::~VXClientManager() {
    if (socket_) {
        socket_->setDelegate({});
    }
    std::vector<std::shared_ptr<VXClient>> clients;
    {
        std::lock_guard<std::mutex> lock(monitor_);
        clients.swap(clients_);
    }
    for (const auto& client : clients) {
        client->disconnect();
        client->setDelegate({});
    }
}

void VXClientManager::start() {
    if (started_) {
        return;
    }
    auto self = std::static_pointer_cast<VXClientManager>(shared_from_this());
    PZThread::detach("monitorClients", [self] { self->monitorClients(); });
}

// The manager's thread: the deliveries of the server socket and of every session run here.
void VXClientManager::monitorClients() {
    PZLog("VXClientManager thread 0 +++++++++++++++++++++++++");
    started_ = true;
    auto loop = PZRunLoop::current();
    if (socket_) {
        socket_->scheduleInRunLoop(loop);
    }
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(monitor_);
            if ((!socket_ || !socket_->bound()) && clients_.empty()) {
                break;
            }
        }
        const auto result = loop->runOnce(kIdleWait);
        if (result == PZRunLoop::RunResult::Finished || result == PZRunLoop::RunResult::Stopped) {
            break;
        }
    }
    started_ = false;
    PZLog("VXClientManager thread 0 -------------------------");
}

std::vector<std::shared_ptr<VXClient>> VXClientManager::clients() const {
    std::lock_guard<std::mutex> lock(monitor_);
    return clients_;
}

std::weak_ptr<VXCLientManagerDelegate> VXClientManager::delegate() const {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    return delegate_;
}

void VXClientManager::setDelegate(std::weak_ptr<VXCLientManagerDelegate> delegate) {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    delegate_ = std::move(delegate);
}

void VXClientManager::serverSocketAcceptedAddress(PZServerSocket&, int descriptor,
                                                  const std::vector<std::uint8_t>& address) {
    std::shared_ptr<VXClient> client;
    try {
        client = VXClient::clientWithSocketNativeHandleAddress(descriptor, address, options_);
        client->setDelegate(
            std::weak_ptr<VXClientDelegate>(std::static_pointer_cast<VXClientManager>(shared_from_this())));
        client->scheduleInRunLoop(PZRunLoop::current());
        client->start();
    } catch (const std::exception& exception) {
        // No thread could be started for it: the connection is dropped (its socket owns the descriptor).
        PZLog(std::string("VXClientManager: connection dropped: ") + exception.what());
        if (client) {
            client->setDelegate({});
            client->close();
        }
        return;
    }
    {
        std::lock_guard<std::mutex> lock(monitor_);
        clients_.push_back(client);
    }
    postToDelegate([client](VXCLientManagerDelegate& delegate, VXClientManager& manager) {
        delegate.clientManagerNewClientAccepted(manager, client);
    });
}

void VXClientManager::serverSocketClosed(PZServerSocket&) {
    std::lock_guard<std::mutex> lock(monitor_);
    for (const auto& client : clients_) {
        client->disconnect();
    }
}

void VXClientManager::clientIsConform(const std::shared_ptr<VXClient>& client) {
    postToDelegate([client](VXCLientManagerDelegate& delegate, VXClientManager& manager) {
        delegate.clientManagerNewClientConnected(manager, client);
    });
}

void VXClientManager::clientReceivedInfo(const std::shared_ptr<VXClient>& client,
                                         const std::shared_ptr<VXInfo>& info) {
    postToDelegate([client, info](VXCLientManagerDelegate& delegate, VXClientManager& manager) {
        delegate.clientManagerReceivedInfoFromClient(manager, info, client);
    });
}

void VXClientManager::clientReceivedError(const std::shared_ptr<VXClient>& client,
                                          const std::shared_ptr<VXError>& error) {
    postToDelegate([client, error](VXCLientManagerDelegate& delegate, VXClientManager& manager) {
        delegate.clientManagerReceivedErrorFromClient(manager, error, client);
    });
}

void VXClientManager::clientDisconnected(const std::shared_ptr<VXClient>& client) {
    {
        std::lock_guard<std::mutex> lock(monitor_);
        const auto found = std::find(clients_.begin(), clients_.end(), client);
        if (found != clients_.end()) {
            clients_.erase(found);
        }
    }
    // The posted message keeps the session alive until it has been delivered.
    postToDelegate([client](VXCLientManagerDelegate& delegate, VXClientManager& manager) {
        delegate.clientManagerClientDisconnected(manager, client);
    });
}

template <typename F> void VXClientManager::postToDelegate(F&& fn) {
    postInvocation(delegate(), [manager = std::weak_ptr<VXClientManager>(
                                    std::static_pointer_cast<VXClientManager>(shared_from_this())),
                                fn = std::forward<F>(fn)](VXCLientManagerDelegate& delegate) mutable {
        if (auto strong = manager.lock()) {
            fn(delegate, *strong);
        }
    });
}
