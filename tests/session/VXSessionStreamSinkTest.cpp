#include "session/VXSessionStreamSink.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class VXSessionStreamSinkTest : public ::testing::Test {
protected:
    void SetUp() override {
        directory_ = std::filesystem::temp_directory_path() /
                     ("vxh-sink-" + std::to_string(::getpid()) + "-" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(directory_);
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    static std::string contents(const std::string& path) {
        std::ifstream file(path);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    std::filesystem::path directory_;
};

TEST_F(VXSessionStreamSinkTest, closedSink_makesNoFileAndDropsTheBytesAlsoAfterOpeningMidStream) {
    VXSessionStreamSink sink(directory_.string(), false);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>("abc");
    EXPECT_FALSE(sink.openUniqueStream());
    sink.write(bytes, 3);
    EXPECT_FALSE(sink.openNamedStream("report.txt"));
    sink.write(bytes, 3);
    sink.open(); // a stream begun while closed stays without a file
    sink.write(bytes, 3);
    sink.finish();
    EXPECT_TRUE(std::filesystem::is_empty(directory_));
}

TEST_F(VXSessionStreamSinkTest, openedSink_writesPrivateFiles) {
    VXSessionStreamSink sink(directory_.string(), false);
    sink.open();
    const auto unique = sink.openUniqueStream();
    ASSERT_TRUE(unique);
    sink.write(reinterpret_cast<const std::uint8_t*>("x}\"y"), 4);
    const auto named = sink.openNamedStream("report.txt"); // finishes the first stream
    ASSERT_TRUE(named);
    EXPECT_EQ(*named, (directory_ / "report.txt").string());
    sink.write(reinterpret_cast<const std::uint8_t*>("abc"), 3);
    sink.finish();
    EXPECT_EQ(contents(*unique), "x}\"y");
    EXPECT_EQ(contents(*named), "abc");
    for (const auto& path : {*unique, *named}) {
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u) << path;
    }
}

} // namespace
