#include "sysinfo/VXSystemInfo.h"

#include "protocol/VXDirectory.h"
#include "protocol/VXFile.h"
#include "protocol/VXProcess.h"

#include "TempTree.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sys/stat.h>
#include <sys/utsname.h>

namespace {

std::unique_ptr<VXSystemInfo> withOsString(std::string text) {
    VXSystemInfoBackEnds backEnds;
    backEnds.operatingSystemVersionString = [text] { return text; };
    return std::make_unique<VXSystemInfo>(std::move(backEnds));
}

// The entries of a listing as "name/" for folders and "name" for files.
std::vector<std::string> entries(const VXDirectory& directory) {
    std::vector<std::string> result;
    for (const auto& element : directory.elements()) {
        const auto* message = std::get_if<std::shared_ptr<VXTranslationProtocol>>(&element);
        if (message == nullptr) {
            continue;
        }
        if (const auto* folder = dynamic_cast<const VXDirectory*>(message->get())) {
            result.push_back(folder->name().value_or("?") + "/");
        } else if (const auto* file = dynamic_cast<const VXFile*>(message->get())) {
            result.push_back(file->name().value_or("?"));
        }
    }
    return result;
}

TEST(VXSystemInfoTest, getSystemVersion_versionStrings_firstNumericWord) {
    const struct {
        const char* text;
        std::optional<std::string> version;
    } cases[] = {{"Version 10.6.8 (Build 10K549)", "10.6.8"},
                 {"Arch Linux, kernel 6.7.4-arch1-1", std::nullopt},
                 {"two  spaces 5", ""}, // an empty word counts as a number
                 {"", ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(withOsString(c.text)->getSystemVersion(), c.version) << c.text;
    }
}

TEST(VXSystemInfoTest, operatingSystemVersionString_thisMachine_prettyNameAndKernel) {
    VXSystemInfo info(VXSystemInfoBackEnds{});
    std::ifstream osRelease("/etc/os-release");
    std::string line;
    std::string pretty;
    while (std::getline(osRelease, line)) {
        if (line.starts_with("PRETTY_NAME=")) {
            pretty = line.substr(12);
            if (pretty.size() >= 2 && pretty.front() == '"') {
                pretty = pretty.substr(1, pretty.size() - 2);
            }
        }
    }
    utsname system{};
    ASSERT_EQ(uname(&system), 0);
    EXPECT_EQ(info.operatingSystemVersionString(), pretty + ", kernel " + system.release);
    if (pretty.starts_with("Debian GNU/Linux 12 ")) {
        EXPECT_EQ(info.getSystemVersion(), "12");
    }
}

TEST(VXSystemInfoTest, getDirectoryAtPath_relativeAbsoluteAndOddPaths_listedOrNothing) {
    TempTree tree;
    tree.write("Documents/report.pdf", "%PDF");
    tree.write("Documents/Photos/cat.jpg", "jpeg");
    tree.write("Documents/.secret", "hidden");
    tree.write("Documents/ünïcödé name.txt", "text");
    tree.folder("Documents/Empty Folder");
    tree.write(".profile", "x");
    symlink("/nonexistent/target", tree.path("Documents/dangling").c_str());
    symlink(tree.path("Documents/Photos").c_str(), tree.path("Documents/link-to-photos").c_str());
    VXSystemInfoBackEnds backEnds;
    backEnds.homeDirectory = tree.path();
    VXSystemInfo info(std::move(backEnds));

    const auto documents = info.getDirectoryAtPath("Documents"); // under the home folder
    ASSERT_NE(documents, nullptr);
    EXPECT_EQ(documents->name(), "Documents");
    EXPECT_EQ(documents->path(), tree.path() + "/Documents");
    EXPECT_EQ(entries(*documents), (std::vector<std::string>{"Empty Folder/", "Photos/", "link-to-photos/",
                                                             "report.pdf", "ünïcödé name.txt"}));
    const auto home = info.getDirectoryAtPath("");
    ASSERT_NE(home, nullptr);
    EXPECT_EQ(home->path(), tree.path() + "/");
    EXPECT_EQ(home->name(), tree.path().substr(tree.path().rfind('/') + 1));
    EXPECT_EQ(entries(*home), (std::vector<std::string>{"Documents/"}));
    const auto photos = info.getDirectoryAtPath(tree.path("Documents/Photos"));
    ASSERT_NE(photos, nullptr);
    EXPECT_EQ(entries(*photos), (std::vector<std::string>{"cat.jpg"}));
    const auto nameOf = [&info](const std::string& path) {
        const auto directory = info.getDirectoryAtPath(path);
        return directory ? directory->name() : std::optional<std::string>("(none)");
    };
    EXPECT_EQ(nameOf("/"), "/");
    EXPECT_EQ(nameOf("Documents/../Documents/Photos/"), "Photos");

    EXPECT_EQ(info.getDirectoryAtPath("Documents/report.pdf"), nullptr); // a file
    EXPECT_EQ(info.getDirectoryAtPath("Missing"), nullptr);
    EXPECT_EQ(info.getDirectoryAtPath(std::string("Documents\0x", 11)), nullptr);
    const std::string locked = tree.folder("Locked");
    chmod(locked.c_str(), 0);
    if (geteuid() != 0) { // root reads any folder
        EXPECT_EQ(info.getDirectoryAtPath("Locked"), nullptr);
    }
    chmod(locked.c_str(), 0700);
}

TEST(VXSystemInfoTest, everyQuery_noBackEndsOrPlatformOnes_neutralOrRealResults) {
    VXSystemInfo info(VXSystemInfoBackEnds{});
    EXPECT_EQ(info.getVolume(), 0.0f);
    EXPECT_EQ(info.getBrightness(), -1.0f);
    info.setVolume(0.5f);
    info.setBrightness(0.5f);
    EXPECT_TRUE(info.getUIElementProcesses().empty());
    EXPECT_EQ(info.getProcessWithPSN(1234), nullptr);
    EXPECT_EQ(info.screen(), nullptr);

    const auto shared = VXSystemInfo::shared();
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared, VXSystemInfo::shared());
    EXPECT_NE(shared->screen(), nullptr);
    EXPECT_EQ(shared->getVXHVersion(), "3.0.0");
}

} // namespace
