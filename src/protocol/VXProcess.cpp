#include "protocol/VXProcess.h"

#include <algorithm>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "protocol/PZValue.h"

namespace {

// The pid as the 32-bit "%d" text.
std::string pidText(std::int64_t pid) {
    std::string text;
    PZNumberText::appendInteger(text, static_cast<std::int32_t>(pid));
    return text;
}

char foldASCII(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

std::weak_ordering compareCaseInsensitive(const std::optional<std::string>& a,
                                          const std::optional<std::string>& b) {
    const std::string& left = a ? *a : std::string();
    const std::string& right = b ? *b : std::string();
    const std::size_t n = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < n; ++i) {
        const auto l = static_cast<unsigned char>(foldASCII(left[i]));
        const auto r = static_cast<unsigned char>(foldASCII(right[i]));
        if (l != r) {
            return l < r ? std::weak_ordering::less : std::weak_ordering::greater;
        }
    }
    return left.size() <=> right.size();
}

// The integer value of a number or of a numeric string; 0 for anything else.
std::int64_t integerOf(const PZValue* value) {
    if (!value) {
        return 0;
    }
    if (const double* number = value->asNumber()) {
        return PZNumberText::integerValue(*number);
    }
    if (const std::string* text = value->asString()) {
        return PZNumberText::intValue(*text);
    }
    return 0;
}

} // namespace

VXProcess::VXProcess(std::optional<std::string> name, std::int64_t pid) : name_(std::move(name)), pid_(pid) {}

std::shared_ptr<VXProcess> VXProcess::processWithNamePid(std::optional<std::string> name, std::int64_t pid) {
    return std::make_shared<VXProcess>(std::move(name), pid);
}

std::shared_ptr<VXProcess> VXProcess::processWithDictionary(const PZDictionary& dictionary) {
    std::optional<std::string> name;
    if (const std::string* text = dictionary.findString("name")) {
        name = *text;
    }
    return std::make_shared<VXProcess>(std::move(name), integerOf(dictionary.find("pid")));
}

std::shared_ptr<VXProcess> VXProcess::initWithCoder(const PZDictionary& archive) {
    auto process = processWithDictionary(archive);
    process->pid_ = static_cast<std::int32_t>(process->pid_);
    if (const std::string* path = archive.findString("path")) {
        process->path_ = *path;
    }
    if (const std::string* title = archive.findString("mainWindowTitle")) {
        process->mainWindowTitle_ = *title;
    }
    return process;
}

PZDictionary VXProcess::toDictionary() const {
    PZDictionary dictionary;
    if (name_) {
        dictionary.set("name", PZValue(*name_));
    }
    dictionary.set("pid", PZValue(static_cast<double>(pid_)));
    if (mainWindowTitle_) {
        dictionary.set("mainWindowTitle", PZValue(*mainWindowTitle_));
    }
    return dictionary;
}

PZDictionary VXProcess::encodeWithCoder() const {
    PZDictionary archive;
    if (name_) {
        archive.set("name", PZValue(*name_));
    }
    archive.set("pid", PZValue(static_cast<double>(static_cast<std::int32_t>(pid_))));
    if (path_) {
        archive.set("path", PZValue(*path_));
    }
    if (mainWindowTitle_) {
        archive.set("mainWindowTitle", PZValue(*mainWindowTitle_));
    }
    return archive;
}

std::string VXProcess::description() const {
    std::string out = name_ ? *name_ : std::string("(null)");
    out += ' ';
    out += pidText(pid_);
    if (path_) {
        out += ' ';
        out += *path_;
    }
    return out;
}

bool VXProcess::isEqual(const VXTranslationProtocol& other) const {
    const auto* process = dynamic_cast<const VXProcess*>(&other);
    return process && isEqualToProcess(*process);
}

bool VXProcess::isEqualToProcess(const VXProcess& other) const {
    return name_ == other.name_ && pid_ == other.pid_;
}

std::weak_ordering VXProcess::compareOnName(const VXProcess& other) const {
    return compareCaseInsensitive(name_, other.name_);
}

std::weak_ordering VXProcess::compareOnPid(const VXProcess& other) const {
    if (pid_ == 0 && other.pid_ == 0) {
        return compareOnName(other);
    }
    return pid_ <=> other.pid_;
}

bool VXProcess::setFrontProcess(const std::function<bool(std::int64_t pid)>& bringToFront) const {
    switch (pid_) {
    case 0:
    case -2:
        return false;
    case -1:
        return true;
    default:
        return bringToFront && bringToFront(pid_);
    }
}

std::string VXProcess::getJSONString() const {
    std::string out = "{\"name\":\"";
    appendEncoded(out, name_);
    out += "\",\"pid\":";
    PZNumberText::appendInteger(out, pid_);
    if (path_) {
        out += ",\"path\":\"";
        PZStringEncoding::appendRawURLEncode(*path_, out);
        out += '"';
    }
    if (mainWindowTitle_) {
        out += ",\"mainWindowTitle\":\"";
        PZStringEncoding::appendRawURLEncode(*mainWindowTitle_, out);
        out += '"';
    }
    out += '}';
    return out;
}

std::vector<std::uint8_t> VXProcess::getJSONData() const {
    return asciiData("{\"process\":" + getJSONString() + "}");
}

std::optional<std::string> VXProcess::getXMLString() const {
    std::string out = "<process pid=\"";
    PZStringEncoding::appendRawURLEncode(pidText(pid_), out);
    out += "\">";
    appendEncoded(out, name_);
    out += "</process>";
    return out;
}

std::optional<std::vector<std::uint8_t>> VXProcess::getXMLData() const {
    return asciiData(*getXMLString());
}
