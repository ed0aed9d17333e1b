#include "app/VXHManager.h"

#include "app/PZNetService.h"
#include "app/VXNotificationPoster.h"
#include "input/VXCommandExecute.h"
#include "session/VXClient.h"
#include "session/VXClientManager.h"
#include "settings/SettingsManager.h"
#include "transport/PZException.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"

std::shared_ptr<VXHManager> VXHManager::create(std::shared_ptr<VXNotificationPoster> notifier,
                                               VXClientOptions clientOptions) {
    return std::make_shared<VXHManager>(Key{}, std::move(notifier), std::move(clientOptions));
}

VXHManager::VXHManager(Key, std::shared_ptr<VXNotificationPoster> notifier, VXClientOptions clientOptions)
    : notifier_(std::move(notifier)), clientOptions_(std::move(clientOptions)) {}

VXHManager::~VXHManager() {
    terminate();
}

void VXHManager::applicationDidFinishLaunching() {
    // Desktop notifications are looked up when they are posted (the poster knows whether a notification
    // service answers), so nothing needs loading here.
    SettingsManager::checkIsFirstTime();
    if (!clientOptions_.commandExecute) {
        clientOptions_.commandExecute = VXCommandExecute::sharedCommandExecute();
    }
    clientOptions_.commandExecute->setKeyboardMethod(SettingsManager::getKeyboardInputMethod());
    // The weekly update check (its own thread) is started here once the updater exists.
    start();
}

void VXHManager::applicationWillTerminate() {
    terminate();
}

int VXHManager::configuredPort() const {
    return portOverride_ ? *portOverride_ : SettingsManager::getSocketPort();
}

void VXHManager::start() {
    if (serverSocket_ || clientManager_ || bonjourService_) {
        return;
    }
    const int port = configuredPort();
    try {
        serverSocket_ = std::make_shared<PZServerSocket>();
        clientManager_ = VXClientManager::clientManagerWithServerSocket(serverSocket_, clientOptions_);
        clientManager_->scheduleInRunLoop(PZRunLoop::current());
        clientManager_->setDelegate(weak_from_this());
        serverSocket_->startOnPort(port);
        clientManager_->start();
        notify("Ready", "Waiting for connections on port " + std::to_string(serverSocket_->getPort()),
               "Server is waiting for connections");
        bonjourService_ =
            std::make_unique<PZNetService>(PZNetService::kServerType, "", serverSocket_->getPort());
        bonjourService_->publish();
    } catch (const std::exception& error) {
        PZLog(error.what());
        if (serverSocket_) {
            serverSocket_->setDelegate({});
            serverSocket_->close();
            serverSocket_.reset();
        }
        if (clientManager_) {
            clientManager_->setDelegate({});
            clientManager_.reset();
        }
        notify("Error", "Can't bind on port " + std::to_string(port), "Server can't bind");
        if (notifier_) {
            notifier_->showCriticalAlert(
                "Can't bind socket on port " + std::to_string(port) + ". Try to change the port.", "");
        }
    }
}

void VXHManager::terminate() {
    if (bonjourService_) {
        bonjourService_->stop();
        bonjourService_.reset();
    }
    if (serverSocket_) {
        serverSocket_->setDelegate({});
        serverSocket_->close();
        serverSocket_.reset();
    }
    if (clientManager_) {
        clientManager_->setDelegate({});
        clientManager_.reset();
    }
}

int VXHManager::getSocketPort() const {
    return serverSocket_ && serverSocket_->bound() ? serverSocket_->getPort() : 0;
}

void VXHManager::notify(const std::string& title, const std::string& description, const std::string& name) {
    if (notifier_) {
        notifier_->postNotification(title, description, name);
    }
}

void VXHManager::clientManagerNewClientAccepted(VXClientManager&, const std::shared_ptr<VXClient>& client) {
    notify("Client", "New connection request from " + client->getStringAddress(), "New connection request");
}

void VXHManager::clientManagerNewClientConnected(VXClientManager&, const std::shared_ptr<VXClient>& client) {
    notify("Client", "New client connected: " + client->getDevice(), "New client connected");
}

void VXHManager::clientManagerReceivedInfoFromClient(VXClientManager&, const std::shared_ptr<VXInfo>&,
                                                     const std::shared_ptr<VXClient>&) {}

void VXHManager::clientManagerReceivedErrorFromClient(VXClientManager&, const std::shared_ptr<VXError>&,
                                                      const std::shared_ptr<VXClient>& client) {
    notify("Client", "Error occured with client " + client->getStringAddress(), "Client error");
}

void VXHManager::clientManagerClientDisconnected(VXClientManager&, const std::shared_ptr<VXClient>& client) {
    notify("Client", client->getDevice() + " with IP " + client->getStringAddress() + " disconnected",
           "Client disconnected");
}
