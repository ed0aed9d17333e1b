#pragma once

#include "protocol/VXProcessNameLookup.h"

// A lookup that finds no process.
class VXNullProcessNameLookup : public VXProcessNameLookup {
public:
    // Always nothing.
    std::optional<std::string> processNameForPid(std::int64_t) override { return std::nullopt; }
};
