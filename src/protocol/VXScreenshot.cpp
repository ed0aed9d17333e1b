#include "protocol/VXScreenshot.h"

#include "protocol/PZNumberText.h"

VXScreenshot::VXScreenshot(double time, VXRect rect, std::vector<std::uint8_t> tiffData)
    : time_(time), rect_(rect), tiffData_(std::move(tiffData)) {}

VXScreenshot::VXScreenshot(double time, VXRect rect, std::string path)
    : time_(time), rect_(rect), path_(std::move(path)) {}

namespace {

// {"screenshot":{"time":T,"rect":[x,y,w,h],"length":N
std::string prefixText(double time, const VXRect& rect, std::size_t length) {
    std::string out = "{\"screenshot\":{\"time\":";
    PZNumberText::appendFixed(out, time);
    out += ",\"rect\":[";
    PZNumberText::appendFixed(out, rect.x);
    out += ',';
    PZNumberText::appendFixed(out, rect.y);
    out += ',';
    PZNumberText::appendFixed(out, rect.width);
    out += ',';
    PZNumberText::appendFixed(out, rect.height);
    out += "],\"length\":";
    PZNumberText::appendInteger(out, static_cast<std::int64_t>(length));
    return out;
}

} // namespace

std::string VXScreenshot::getJSONString() const {
    return prefixText(time_, rect_, tiffData_.size()) + "}}";
}

std::vector<std::uint8_t> VXScreenshot::getJSONData() const {
    const std::string prefix = prefixText(time_, rect_, tiffData_.size()) + ",\"stream\":";
    std::vector<std::uint8_t> out;
    out.reserve(prefix.size() + tiffData_.size() + 2);
    out.insert(out.end(), prefix.begin(), prefix.end());
    out.insert(out.end(), tiffData_.begin(), tiffData_.end());
    out.push_back('}');
    out.push_back('}');
    return out;
}

std::optional<std::string> VXScreenshot::getXMLString() const {
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> VXScreenshot::getXMLData() const {
    return std::nullopt;
}
