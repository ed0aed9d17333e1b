#pragma once

// Helpers shared by the protocol tests.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "protocol/PZValue.h"
#include "protocol/VXCommand.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXError.h"
#include "protocol/VXFile.h"
#include "protocol/VXInfo.h"
#include "protocol/VXProcess.h"
#include "protocol/VXProcessList.h"
#include "protocol/VXRequest.h"
#include "protocol/VXTrackpadCommand.h"
#include "support/LogCapture.h"

namespace vxtest {

// "%" + lowercase hex of each character; for ASCII test texts only (one character = one unit).
inline std::string E(std::string_view text) {
    std::string out;
    char buffer[8];
    for (const char c : text) {
        std::snprintf(buffer, sizeof buffer, "%%%x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        out += buffer;
    }
    return out;
}

inline std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

inline std::string text(const std::vector<std::uint8_t>& data) {
    return {data.begin(), data.end()};
}

inline std::string contents(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The permission bits of path, or -1 when it cannot be read.
inline int mode(const std::filesystem::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 0777) : -1;
}

inline PZDictionary dict(std::vector<std::string> keys, std::vector<PZValue> values) {
    return PZDictionary::fromParallelArrays(std::move(keys), std::move(values));
}

// A fresh $HOME (with a "tmp" folder) for the life of the object.
class TemporaryHome {
public:
    TemporaryHome() {
        oldHome_ = std::getenv("HOME") ? std::optional<std::string>(std::getenv("HOME")) : std::nullopt;
        std::string pattern = (std::filesystem::temp_directory_path() / "vxh-home-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
        std::filesystem::create_directory(path_ / "tmp");
        ::setenv("HOME", path_.c_str(), 1);
    }
    ~TemporaryHome() {
        oldHome_ ? ::setenv("HOME", oldHome_->c_str(), 1) : ::unsetenv("HOME");
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path tmp() const { return path_ / "tmp"; }

private:
    std::filesystem::path path_;
    std::optional<std::string> oldHome_;
};

} // namespace vxtest
