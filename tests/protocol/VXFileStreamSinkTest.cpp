#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "ProtocolTestSupport.h"
#include "protocol/VXFileStreamSink.h"

namespace {

std::string contents(const std::filesystem::path& path) {
    std::stringstream read;
    read << std::ifstream(path, std::ios::binary).rdbuf();
    return read.str();
}

// The descriptor of this process that has path open, or -1.
int descriptorOf(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path(), error);
        if (!error && target == path) {
            return std::stoi(entry.path().filename().string());
        }
    }
    return -1;
}

TEST(VXFileStreamSink, openUniqueStream_homeTmp_makesPrivateCloseOnExecFiles) {
    vxtest::TemporaryHome home;
    VXFileStreamSink sink;
    EXPECT_EQ(sink.directory(), home.tmp().string());
    const auto first = sink.openUniqueStream();
    ASSERT_TRUE(first);
    const int fd = descriptorOf(*first);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC);
    sink.write(reinterpret_cast<const std::uint8_t*>("ab"), 2);
    const auto second = sink.openUniqueStream(); // finishes the first
    ASSERT_TRUE(second);
    EXPECT_NE(*first, *second);
    EXPECT_EQ(descriptorOf(*first), -1);
    sink.write(reinterpret_cast<const std::uint8_t*>("c"), 1);
    sink.finish();
    sink.write(reinterpret_cast<const std::uint8_t*>("dropped"), 7);
    EXPECT_EQ(contents(*first), "ab");
    EXPECT_EQ(contents(*second), "c");
    struct stat info {};
    ASSERT_EQ(::stat(first->c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    const std::string name = std::filesystem::path(*first).filename().string();
    EXPECT_TRUE(std::regex_match(
        name, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << name;
}

TEST(VXFileStreamSink, open_missingFolder_makesNothing) {
    vxtest::TemporaryHome home;
    VXFileStreamSink sink((home.path() / "absent").string());
    EXPECT_FALSE(sink.openUniqueStream());
    EXPECT_FALSE(sink.openNamedStream("a"));
    sink.write(reinterpret_cast<const std::uint8_t*>("x"), 1);
    EXPECT_FALSE(std::filesystem::exists(home.path() / "absent"));
}

TEST(VXFileStreamSink, openNamedStream_unsafeNames_areRefused) {
    vxtest::TemporaryHome home;
    VXFileStreamSink sink(home.tmp().string());
    for (const char* name : {"", ".", "..", "a/b", "../x"}) {
        EXPECT_FALSE(sink.openNamedStream(name)) << name;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(home.tmp()), {}), 0);
}

TEST(VXFileStreamSink, openNamedStream_existingFile_isReplacedWithAPrivateOne) {
    vxtest::TemporaryHome home;
    const auto path = home.tmp() / "report.txt";
    { std::ofstream(path) << "a much longer old content"; }
    std::filesystem::permissions(path, std::filesystem::perms::all);
    VXFileStreamSink sink(home.tmp().string());
    ASSERT_EQ(sink.openNamedStream("report.txt"), path.string());
    sink.write(reinterpret_cast<const std::uint8_t*>("new"), 3);
    sink.finish();
    EXPECT_EQ(contents(path), "new");
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

} // namespace
