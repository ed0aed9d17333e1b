#pragma once

#include <memory>
#include <optional>
#include <string>

#include "protocol/VXList.h"

// A list of VXProcess elements.
class VXProcessList : public VXList {
public:
    // An empty list without name.
    VXProcessList() = default;
    // An empty list with a name.
    explicit VXProcessList(std::optional<std::string> name);
    // The class constructor with a name.
    static std::shared_ptr<VXProcessList> processListWithName(std::optional<std::string> name);

    // {"processList":<the list body>}.
    std::vector<std::uint8_t> getJSONData() const override;
};
