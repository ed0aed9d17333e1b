#include "protocol/VXProcessList.h"

VXProcessList::VXProcessList(std::optional<std::string> name) : VXList(std::move(name)) {}

std::shared_ptr<VXProcessList> VXProcessList::processListWithName(std::optional<std::string> name) {
    return std::make_shared<VXProcessList>(std::move(name));
}

std::vector<std::uint8_t> VXProcessList::getJSONData() const {
    return asciiData("{\"processList\":" + getJSONString() + "}");
}
