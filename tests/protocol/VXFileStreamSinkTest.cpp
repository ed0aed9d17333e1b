#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <regex>

#include "ProtocolTestSupport.h"
#include "protocol/VXFileStreamSink.h"

using vxtest::contents;
using vxtest::mode;

namespace {

// The descriptor of this process that has path open, or -1.
int descriptorOf(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (std::filesystem::read_symlink(entry.path(), error) == path && !error) {
            return std::stoi(entry.path().filename().string());
        }
    }
    return -1;
}

void write(VXFileStreamSink& sink, std::string_view text) {
    sink.write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
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
    write(sink, "ab");
    const auto second = sink.openUniqueStream(); // finishes the first
    ASSERT_TRUE(second);
    EXPECT_NE(*first, *second);
    EXPECT_EQ(descriptorOf(*first), -1);
    write(sink, "c");
    sink.finish();
    write(sink, "dropped");
    EXPECT_EQ(contents(*first), "ab");
    EXPECT_EQ(contents(*second), "c");
    EXPECT_EQ(mode(*first), 0600);
    const std::string name = std::filesystem::path(*first).filename().string();
    EXPECT_TRUE(std::regex_match(
        name, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << name;
}

TEST(VXFileStreamSink, open_missingFolderOrUnsafeName_makesNothing) {
    vxtest::TemporaryHome home;
    VXFileStreamSink missing((home.path() / "absent").string());
    EXPECT_FALSE(missing.openUniqueStream());
    EXPECT_FALSE(missing.openNamedStream("a"));
    write(missing, "x");
    EXPECT_FALSE(std::filesystem::exists(home.path() / "absent"));
    VXFileStreamSink sink(home.tmp().string());
    for (const char* name : {"", ".", "..", "a/b", "../x"}) {
        EXPECT_FALSE(sink.openNamedStream(name)) << name;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(home.tmp()), {}), 0);
}

TEST(VXFileStreamSink, openNamedStream_existingFileOrLink_isReplacedWithAPrivateOne) {
    vxtest::TemporaryHome home;
    const auto path = home.tmp() / "report.txt";
    { std::ofstream(path) << "a much longer old content"; }
    std::filesystem::permissions(path, std::filesystem::perms::all);
    const auto victim = home.path() / "victim";
    { std::ofstream(victim) << "keep"; }
    std::filesystem::create_symlink(victim, home.tmp() / "link");
    VXFileStreamSink sink(home.tmp().string());
    ASSERT_EQ(sink.openNamedStream("report.txt"), path.string());
    write(sink, "new");
    ASSERT_TRUE(sink.openNamedStream("link"));
    write(sink, "xy");
    sink.finish();
    EXPECT_EQ(contents(path), "new");
    EXPECT_EQ(mode(path), 0600);
    EXPECT_EQ(contents(victim), "keep");
    EXPECT_FALSE(std::filesystem::is_symlink(home.tmp() / "link"));
    EXPECT_EQ(contents(home.tmp() / "link"), "xy");
}

} // namespace
