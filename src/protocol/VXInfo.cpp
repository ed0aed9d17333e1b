#include "protocol/VXInfo.h"

#include "protocol/PZValue.h"

VXInfo::VXInfo(std::optional<std::string> subject, std::optional<std::string> information)
    : subject_(std::move(subject)), information_(std::move(information)) {}

std::shared_ptr<VXInfo> VXInfo::infoWithSubjectInformation(std::optional<std::string> subject,
                                                           std::optional<std::string> information) {
    return std::make_shared<VXInfo>(std::move(subject), std::move(information));
}

std::optional<PZDictionary> VXInfo::getDictionary() const {
    if (!subject_ || !information_) {
        return std::nullopt;
    }
    PZDictionary dictionary;
    dictionary.set(*subject_, PZValue(*information_));
    return dictionary;
}

std::string VXInfo::getJSONString() const {
    std::string out = "{\"subject\":\"";
    appendEncoded(out, subject_);
    out += "\",\"information\":\"";
    appendEncoded(out, information_);
    out += "\"}";
    return out;
}

std::vector<std::uint8_t> VXInfo::getJSONData() const {
    return asciiData("{\"info\":" + getJSONString() + "}");
}

std::optional<std::string> VXInfo::getXMLString() const {
    std::string out = "<info subject=\"";
    appendEncoded(out, subject_);
    out += "\">";
    appendEncoded(out, information_);
    out += "</info>";
    return out;
}

std::optional<std::vector<std::uint8_t>> VXInfo::getXMLData() const {
    return asciiData(*getXMLString());
}
