#include "protocol/VXDirectory.h"

#include "protocol/PZStringEncoding.h"
#include "protocol/PZValue.h"
#include "protocol/VXFile.h"

VXDirectory::VXDirectory(std::optional<std::string> name) : VXList(std::move(name)) {}

std::shared_ptr<VXDirectory> VXDirectory::directoryWithName(std::optional<std::string> name) {
    return std::make_shared<VXDirectory>(std::move(name));
}

namespace {

void appendEntry(std::string& out, const std::optional<std::string>& name, const std::string& type) {
    out += "{\"name\":\"";
    if (name) {
        PZStringEncoding::appendRawURLEncode(*name, out);
    } else {
        out += "(null)";
    }
    out += "\",\"type\":\"";
    PZStringEncoding::appendRawURLEncode(type, out);
    out += "\"},";
}

} // namespace

std::string VXDirectory::getJSONString() const {
    std::string elements = "[";
    for (const VXListElement& element : elements_) {
        const auto* message = std::get_if<std::shared_ptr<VXTranslationProtocol>>(&element);
        if (!message || !*message) {
            continue;
        }
        if (const auto* file = dynamic_cast<const VXFile*>(message->get())) {
            const std::string* fileType =
                file->attributes() ? file->attributes()->findString("fileType") : nullptr;
            appendEntry(elements, file->name(), fileType ? *fileType : std::string("file"));
        } else if (const auto* directory = dynamic_cast<const VXDirectory*>(message->get())) {
            appendEntry(elements, directory->name(), "dir");
        }
    }
    if (elements.back() == ',') {
        elements.pop_back();
    }
    elements += ']';

    std::string out = "{";
    if (name_) {
        out += "\"name\":\"";
        PZStringEncoding::appendRawURLEncode(*name_, out);
        out += "\",";
    }
    if (path_) {
        out += "\"path\":\"";
        PZStringEncoding::appendRawURLEncode(*path_, out);
        out += "\",";
    }
    out += "\"elements\":";
    out += elements;
    out += '}';
    return out;
}

std::vector<std::uint8_t> VXDirectory::getJSONData() const {
    return asciiData("{\"directory\":" + getJSONString() + "}");
}
