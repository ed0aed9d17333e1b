#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Finds the name of a running process by its pid, for commands that arrive without a process name.
// The system information service provides the real one.
class VXProcessNameLookup {
public:
    virtual ~VXProcessNameLookup() = default;

    // The name of the process with this pid, or nothing when there is none.
    virtual std::optional<std::string> processNameForPid(std::int64_t pid) = 0;
};
