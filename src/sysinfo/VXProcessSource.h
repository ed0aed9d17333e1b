#pragma once

#include "sysinfo/VXArgbImage.h"
#include "sysinfo/VXRunningProcess.h"

#include <cstdint>
#include <optional>
#include <vector>

// The running processes that have a user interface. Implementations serialise their own use.
class VXProcessSource {
public:
    virtual ~VXProcessSource() = default;

    // One entry per process owning a managed normal or dialog window, in window-list order.
    virtual std::vector<VXRunningProcess> uiProcesses() = 0;
    // The process `pid` when it owns such a window; nothing otherwise.
    virtual std::optional<VXRunningProcess> processWithPid(std::int64_t pid) = 0;
    // The icon of the process's first window closest to `size` pixels square; nothing when none.
    virtual std::optional<VXArgbImage> windowIcon(std::int64_t pid, int size) = 0;
};
