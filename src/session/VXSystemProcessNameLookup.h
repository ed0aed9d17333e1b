#pragma once

#include "protocol/VXProcessNameLookup.h"

#include <memory>

class VXSystemInfo;

// Names the process of a command that arrived without one, through the system information.
class VXSystemProcessNameLookup : public VXProcessNameLookup {
public:
    // A lookup asking systemInfo (null: finds nothing).
    explicit VXSystemProcessNameLookup(std::shared_ptr<VXSystemInfo> systemInfo);

    // The name of the user-interface process with this pid, or nothing.
    std::optional<std::string> processNameForPid(std::int64_t pid) override;

private:
    std::shared_ptr<VXSystemInfo> systemInfo_;
};
