#include "protocol/VXFile.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"
#include "protocol/PZValue.h"
#include "transport/PZException.h"

namespace {

// Reads the whole file; false when it cannot be opened or read.
bool readWholeFile(const std::string& path, std::vector<std::uint8_t>& data) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    std::uint8_t buffer[65536];
    bool ok = true;
    while (true) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            data.insert(data.end(), buffer, buffer + n);
        } else if (n == 0) {
            break;
        } else if (errno != EINTR) {
            ok = false;
            break;
        }
    }
    ::close(fd);
    return ok;
}

void appendBytes(std::vector<std::uint8_t>& out, const std::string& text) {
    out.insert(out.end(), text.begin(), text.end());
}

void appendLengthText(std::string& out, std::uint64_t length) {
    std::string text;
    PZNumberText::appendInteger(text, static_cast<std::int64_t>(length));
    out += text;
}

} // namespace

VXFile::VXFile(const std::string& path) {
    if (!readWholeFile(path, data_)) {
        throw PZException("VXFile initWithContentsAtPath:", "No file at path");
    }
    path_ = path;
    originalPath_ = path;
    localPath_ = path;
    name_ = detectFileNameOfPath(path);
}

VXFile::VXFile(std::vector<std::uint8_t> data, std::optional<std::string> path)
    : path_(std::move(path)), data_(std::move(data)) {}

std::shared_ptr<VXFile> VXFile::fileWithDataPath(std::vector<std::uint8_t> data,
                                                 std::optional<std::string> path) {
    return std::make_shared<VXFile>(std::move(data), std::move(path));
}

std::shared_ptr<VXFile> VXFile::fileWithContentsAtPath(const std::string& path) {
    try {
        return std::make_shared<VXFile>(path);
    } catch (const PZException&) {
        return nullptr;
    }
}

std::optional<std::string> VXFile::detectFileNameOfPath(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (name.empty()) {
        return std::nullopt;
    }
    return std::string(name);
}

std::string VXFile::getJSONString() const {
    std::string out = "{\"file\":{\"originalPath\":\"";
    appendEncoded(out, originalPath_);
    out += "\",\"name\":\"";
    appendEncoded(out, name_);
    out += "\",\"length\":";
    appendLengthText(out, length());
    out += "}}";
    return out;
}

std::vector<std::uint8_t> VXFile::getJSONData() const {
    std::string prefix = "{\"file\":{\"originalPath\":\"";
    appendEncoded(prefix, originalPath_);
    prefix += "\",\"name\":\"";
    appendEncoded(prefix, name_);
    prefix += "\",\"length\":";
    appendLengthText(prefix, length());
    if (attributes_) {
        appendJSONMembers(prefix, *attributes_);
    }
    prefix += ",\"stream\":";
    std::vector<std::uint8_t> out;
    out.reserve(prefix.size() + data_.size() + 2);
    appendBytes(out, prefix);
    out.insert(out.end(), data_.begin(), data_.end());
    out.push_back('}');
    out.push_back('}');
    return out;
}

std::optional<std::string> VXFile::getXMLString() const {
    std::optional<std::string> firstComponent;
    if (path_) {
        firstComponent = path_->substr(0, path_->find('/'));
    }
    std::string length;
    appendLengthText(length, static_cast<std::int32_t>(this->length()));
    std::string out = "<file path=\"";
    appendEncoded(out, path_);
    out += "\" name=\"";
    appendEncoded(out, firstComponent);
    out += "\" length=\"";
    PZStringEncoding::appendRawURLEncode(length, out);
    out += "\">";
    for (const std::uint8_t byte : data_) {
        if (byte == 0) {
            break;
        }
        out.push_back(static_cast<char>(byte));
    }
    out += "</file>";
    return out;
}

std::optional<std::vector<std::uint8_t>> VXFile::getXMLData() const {
    if (data_.empty()) {
        return std::vector<std::uint8_t>();
    }
    std::optional<std::string> lastComponent;
    if (path_) {
        const std::size_t slash = path_->rfind('/');
        lastComponent = slash == std::string::npos ? *path_ : path_->substr(slash + 1);
    }
    std::string length;
    PZNumberText::appendInteger(length, static_cast<std::int32_t>(this->length()));
    std::string prefix = "<file path=\"";
    appendEncoded(prefix, path_);
    prefix += "\" name=\"";
    appendEncoded(prefix, lastComponent);
    prefix += "\" length=\"";
    PZStringEncoding::appendRawURLEncode(length, prefix);
    prefix += '"';
    if (attributes_) {
        appendXMLAttributes(prefix, *attributes_);
    }
    prefix += '>';
    std::vector<std::uint8_t> out;
    out.reserve(prefix.size() + data_.size() + 7);
    appendBytes(out, prefix);
    out.insert(out.end(), data_.begin(), data_.end());
    appendBytes(out, "</file>");
    return out;
}
