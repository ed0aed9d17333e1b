#include "protocol/VXList.h"

#include <algorithm>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"

VXList::VXList(std::optional<std::string> name) : name_(std::move(name)) {}

VXList::VXList(std::optional<std::string> name, std::vector<VXListElement> elements)
    : name_(std::move(name)), elements_(std::move(elements)) {}

std::shared_ptr<VXList> VXList::listWithName(std::optional<std::string> name) {
    return std::make_shared<VXList>(std::move(name));
}

std::shared_ptr<VXList> VXList::listWithNameArray(std::optional<std::string> name,
                                                  std::vector<VXListElement> elements) {
    return std::make_shared<VXList>(std::move(name), std::move(elements));
}

std::string VXList::getJSONStringOfArray(const std::vector<VXListElement>& elements) {
    std::string out = "[";
    for (const VXListElement& element : elements) {
        if (const auto* text = std::get_if<std::string>(&element)) {
            out += '"';
            out += *text;
            out += "\",";
        } else if (const auto* number = std::get_if<double>(&element)) {
            out += PZNumberText::formatNumber(*number);
            out += ',';
        } else if (const auto* message = std::get_if<std::shared_ptr<VXTranslationProtocol>>(&element)) {
            if (*message) {
                out += (*message)->getJSONString();
                out += ',';
            }
        }
    }
    if (out.size() >= 2) {
        out.pop_back();
    }
    out += ']';
    return out;
}

bool VXList::elementsEqual(const VXListElement& a, const VXListElement& b) {
    if (a.index() != b.index()) {
        return false;
    }
    if (const auto* message = std::get_if<std::shared_ptr<VXTranslationProtocol>>(&a)) {
        const auto& other = std::get<std::shared_ptr<VXTranslationProtocol>>(b);
        if (!*message || !other) {
            return *message == other;
        }
        return (*message)->isEqual(*other);
    }
    return a == b;
}

void VXList::addElement(VXListElement element) {
    elements_.push_back(std::move(element));
}

void VXList::removeElement(const VXListElement& element) {
    std::erase_if(elements_, [&](const VXListElement& e) { return elementsEqual(e, element); });
}

void VXList::removeAllElements() {
    elements_.clear();
}

std::string VXList::bodyWithElementsText(const std::string& elementsText) const {
    std::string out = "{";
    if (name_) {
        out += "\"name\":\"";
        PZStringEncoding::appendRawURLEncode(*name_, out);
        out += "\",";
    }
    out += "\"elements\":";
    out += elementsText;
    out += '}';
    return out;
}

std::string VXList::getJSONString() const {
    return bodyWithElementsText(getJSONStringOfArray(elements_));
}

std::vector<std::uint8_t> VXList::getJSONData() const {
    return asciiData("{\"list\":" + getJSONString() + "}");
}

std::optional<std::string> VXList::getXMLString() const {
    return std::nullopt;
}

std::optional<std::vector<std::uint8_t>> VXList::getXMLData() const {
    return std::nullopt;
}
