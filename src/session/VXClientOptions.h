#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class VXCommandExecute;
class VXSystemInfo;

// What every session is built with. Empty members take the application's own services.
struct VXClientOptions {
    using Duration = std::chrono::steady_clock::duration;

    // The system information asked by the dispatcher and the change push; null: the shared one.
    std::shared_ptr<VXSystemInfo> systemInfo;
    // The executor shared by every session; null: the shared one.
    std::shared_ptr<VXCommandExecute> commandExecute;
    // Reads the configured connection password (each call reads the store); empty: the settings.
    std::function<std::optional<std::string>()> connectionPassword;
    // The folder that receives streams once the password is satisfied; empty: $HOME/tmp.
    std::string streamDirectory;
    // How long a phone may take to complete the handshake before its compatibility is checked.
    Duration handshakeTimeout = std::chrono::seconds(120);
    // How often a conform session looks for changes to push.
    Duration checkInterval = std::chrono::seconds(1);

    // A copy with every empty member filled with the application's own service.
    VXClientOptions withDefaults() const;
};
