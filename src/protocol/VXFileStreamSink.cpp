#include "protocol/VXFileStreamSink.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <random>
#include <unistd.h>

VXFileStreamSink::VXFileStreamSink() : VXFileStreamSink(homeTemporaryDirectory()) {}

VXFileStreamSink::VXFileStreamSink(std::string directory) : directory_(std::move(directory)) {}

VXFileStreamSink::~VXFileStreamSink() {
    finish();
}

std::string VXFileStreamSink::homeTemporaryDirectory() {
    std::string home;
    if (const char* env = std::getenv("HOME"); env && *env) {
        home = env;
    } else if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) {
        home = entry->pw_dir;
    }
    return home + "/tmp";
}

std::string VXFileStreamSink::makeUUIDString() {
    thread_local std::mt19937_64 generator{std::random_device{}()};
    std::uint64_t high = generator();
    std::uint64_t low = generator();
    // Version 4, variant 10.
    high = (high & ~std::uint64_t{0xF000}) | 0x4000;
    low = (low & ~(std::uint64_t{0xC} << 60)) | (std::uint64_t{0x8} << 60);
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (int i = 0; i < 32; ++i) {
        const std::uint64_t word = i < 16 ? high : low;
        const int shift = 60 - 4 * (i % 16);
        text.push_back(digits[(word >> shift) & 0xF]);
        if (i == 7 || i == 11 || i == 15 || i == 19) {
            text.push_back('-');
        }
    }
    return text;
}

std::optional<std::string> VXFileStreamSink::openUniqueStream() {
    finish();
    // A fresh name while the name is taken; O_EXCL makes the check and the creation one step.
    for (int attempt = 0; attempt < 16; ++attempt) {
        std::string path = directory_ + "/" + makeUUIDString();
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0) {
            fd_ = fd;
            return path;
        }
        if (errno != EEXIST) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<std::string> VXFileStreamSink::openNamedStream(const std::string& name) {
    finish();
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
        return std::nullopt;
    }
    std::string path = directory_ + "/" + name;
    // Replace whatever is there (a link is removed, never followed) by a new private file.
    ::unlink(path.c_str());
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return std::nullopt;
    }
    fd_ = fd;
    return path;
}

void VXFileStreamSink::write(const std::uint8_t* bytes, std::size_t count) {
    while (fd_ >= 0 && count > 0) {
        const ssize_t n = ::write(fd_, bytes, count);
        if (n > 0) {
            bytes += n;
            count -= static_cast<std::size_t>(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            // The disk refuses: the rest of this stream is dropped.
            ::close(fd_);
            fd_ = -1;
        }
    }
}

void VXFileStreamSink::finish() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}
