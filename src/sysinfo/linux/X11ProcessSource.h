#pragma once

#include "platform/x11/X11Connection.h"
#include "sysinfo/VXProcessSource.h"

#include <mutex>
#include <string>

// The processes that own a managed normal or dialog window, from the window manager's client
// list (EWMH), with their real process ids. Has its own X connection, which comes back after the X
// server was restarted.
class X11ProcessSource : public VXProcessSource {
public:
    // `displayName` empty: $DISPLAY at each connection attempt.
    explicit X11ProcessSource(std::string displayName = {});

    std::vector<VXRunningProcess> uiProcesses() override;
    std::optional<VXRunningProcess> processWithPid(std::int64_t pid) override;
    std::optional<VXArgbImage> windowIcon(std::int64_t pid, int size) override;

    // The base name of the process's executable (/proc/PID/exe, else /proc/PID/comm); empty when unknown.
    static std::string executableName(std::int64_t pid);

private:
    struct Window {
        std::uint32_t window;
        VXRunningProcess process;
    };
    // The first managed normal or dialog window of each process, in client-list order.
    std::vector<Window> firstWindows();

    std::mutex mutex_;
    X11Connection connection_;
};
