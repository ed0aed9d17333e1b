#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <tuple>

#include "ProtocolTestSupport.h"
#include "protocol/PZValue.h"
#include "protocol/VXList.h"
#include "transport/PZException.h"

using vxtest::bytes;

namespace {

TEST(VXRequest, isEqualToRequest_table_comparesTypeTextAndArguments) {
    const auto ab = vxtest::dict({"a", "b"}, {PZValue("1"), PZValue(2)});
    const auto ba = vxtest::dict({"b", "a"}, {PZValue(2), PZValue("1")});
    const std::tuple<const char*, VXRequest, VXRequest, bool> cases[] = {
        {"bothWithoutText", VXRequest("appList"), VXRequest("appList"), true},
        {"oneWithoutText", VXRequest("appList"), VXRequest("appList", ""), false},
        {"otherType", VXRequest("info", "os"), VXRequest("file", "os"), false},
        {"argumentOrderIgnored", VXRequest("x", "t", ab), VXRequest("x", "t", ba), true},
        {"otherArgumentValue", VXRequest("x", "t", ab),
         VXRequest("x", "t", vxtest::dict({"a"}, {PZValue("2")})), false},
        {"argumentsVersusNone", VXRequest("x", "t", PZDictionary()), VXRequest("x", "t"), false},
        {"numberVersusString", VXRequest("x", "t", ab),
         VXRequest("x", "t", vxtest::dict({"a", "b"}, {PZValue(1), PZValue(2)})), false},
    };
    for (const auto& [name, left, right, equal] : cases) {
        EXPECT_EQ(left.isEqualToRequest(right), equal) << name;
        EXPECT_EQ(right.isEqualToRequest(left), equal) << name;
    }
}

TEST(VXCommand, sortKeyboardInstruction_table_sortsAllButTheLastWord) {
    const std::pair<const char*, const char*> cases[] = {
        {"shift cmd a", "cmd shift a"}, {"a", "a"}, {"", ""},
        {"Shift alt x", "Shift alt x"}, // plain byte order: upper case sorts first
        {"b  a c", " a b c"},           // the empty word of a double space sorts first
    };
    for (const auto& [input, sorted] : cases) {
        EXPECT_EQ(VXCommand::sortKeyboardInstruction(input), sorted) << input;
    }
}

TEST(VXCommand, commandWithCommand_sourceWithFullProcess_copiesOnlyNameAndPid) {
    VXProcess process("gedit", 77);
    process.setPath("/usr/bin/gedit");
    process.setMainWindowTitle("Editor");
    VXCommand source("focus", process, "now");
    const auto copy = VXCommand::commandWithCommand(source);
    EXPECT_EQ(copy->getJSONString(), VXCommand("focus", VXProcess("gedit", 77), "now").getJSONString());
    ASSERT_TRUE(copy->process());
    EXPECT_FALSE(copy->process()->path() || copy->process()->mainWindowTitle());
    EXPECT_EQ(copy->description(), "focus now");
}

TEST(VXProcess, compareOnPid_table_ordersByPidOrNameForZero) {
    const std::tuple<VXProcess, VXProcess, std::weak_ordering> cases[] = {
        {VXProcess("a", 10), VXProcess("b", 5), std::weak_ordering::greater},
        {VXProcess("a", 5), VXProcess("z", 5), std::weak_ordering::equivalent},
        {VXProcess("Zed", 0), VXProcess("alpha", 0), std::weak_ordering::greater},
        {VXProcess("ALPHA", 0), VXProcess("alpha", 0), std::weak_ordering::equivalent},
        {VXProcess("x", 0), VXProcess("a", -2), std::weak_ordering::greater},
    };
    for (const auto& [left, right, expected] : cases) {
        EXPECT_EQ(left.compareOnPid(right), expected) << left.description() << " / " << right.description();
    }
    EXPECT_EQ(VXProcess("beta", 1).compareOnName(VXProcess("Alpha", 2)), std::weak_ordering::greater);
    EXPECT_EQ(VXProcess("abc", 1).compareOnName(VXProcess("ABCD", 2)), std::weak_ordering::less);
}

TEST(VXProcess, isEqual_table_needsClassNameAndPid) {
    VXProcess a("Finder", 1);
    EXPECT_TRUE(a.isEqual(VXProcess("Finder", 1)));
    EXPECT_FALSE(a.isEqual(VXProcess("finder", 1)));
    EXPECT_FALSE(a.isEqual(VXProcess("Finder", 2)));
    EXPECT_FALSE(a.isEqual(VXInfo("Finder", "1")));
    VXProcess withPath("Finder", 1);
    withPath.setPath("/x");
    EXPECT_TRUE(a.isEqualToProcess(withPath));
    EXPECT_EQ(withPath.description(), "Finder 1 /x");
    EXPECT_EQ(a.description(), "Finder 1");
}

TEST(VXProcess, setFrontProcess_reservedPids_doNotReachThePlatform) {
    std::vector<std::int64_t> asked;
    const auto bring = [&](std::int64_t pid) {
        asked.push_back(pid);
        return pid == 500;
    };
    EXPECT_FALSE(VXProcess("x", 0).setFrontProcess(bring));
    EXPECT_TRUE(VXProcess("Mac", -1).setFrontProcess(bring));
    EXPECT_FALSE(VXProcess("Dock", -2).setFrontProcess(bring));
    EXPECT_TRUE(asked.empty());
    EXPECT_TRUE(VXProcess("a", 500).setFrontProcess(bring));
    EXPECT_FALSE(VXProcess("b", 501).setFrontProcess(bring));
    EXPECT_EQ(asked, (std::vector<std::int64_t>{500, 501}));
}

TEST(VXProcess, toDictionaryAndEncodeWithCoder_roundTrip_keepTheDocumentedKeys) {
    VXProcess process("gedit", 4242);
    process.setPath("/usr/bin/gedit");
    process.setMainWindowTitle("Editor");
    const PZDictionary dictionary = process.toDictionary();
    EXPECT_EQ(dictionary.size(), 3u);
    EXPECT_FALSE(dictionary.find("path"));
    const auto back = VXProcess::processWithDictionary(dictionary);
    EXPECT_TRUE(back->isEqualToProcess(process));

    const auto restored = VXProcess::initWithCoder(process.encodeWithCoder());
    EXPECT_EQ(restored->path(), "/usr/bin/gedit");
    EXPECT_EQ(restored->mainWindowTitle(), "Editor");
    EXPECT_EQ(restored->pid(), 4242);

    PZDictionary untitled = VXProcess("x", 1).toDictionary();
    EXPECT_FALSE(untitled.find("mainWindowTitle"));
}

TEST(VXList, removeElement_equalElements_removesEveryOne) {
    VXList list;
    auto finder = std::shared_ptr<VXTranslationProtocol>(VXProcess::processWithNamePid("Finder", 1));
    auto info = std::shared_ptr<VXTranslationProtocol>(std::make_shared<VXInfo>("a", "b"));
    list.addElement(finder);
    list.addElement(std::string("x"));
    list.addElement(std::shared_ptr<VXTranslationProtocol>(VXProcess::processWithNamePid("Finder", 1)));
    list.addElement(info);
    list.addElement(1.0);
    list.addElement(std::string("x"));
    list.removeElement(std::shared_ptr<VXTranslationProtocol>(VXProcess::processWithNamePid("Finder", 1)));
    list.removeElement(std::string("x"));
    // Other messages compare by identity: an equal-looking info stays.
    list.removeElement(std::shared_ptr<VXTranslationProtocol>(std::make_shared<VXInfo>("a", "b")));
    ASSERT_EQ(list.elements().size(), 2u);
    EXPECT_TRUE(VXList::elementsEqual(list.elements()[0], info));
    list.removeElement(info);
    const auto copy = list.getElements();
    list.removeAllElements();
    EXPECT_EQ(copy.size(), 1u);
    EXPECT_TRUE(list.elements().empty());
}

TEST(VXFile, fileWithContentsAtPath_existingAndMissing_readsOrGivesNothing) {
    vxtest::TemporaryHome home;
    const auto path = (home.path() / "data.bin").string();
    std::ofstream(path, std::ios::binary) << std::string("a\0b}}", 5);
    const auto file = VXFile::fileWithContentsAtPath(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->length(), 5u);
    EXPECT_EQ(file->path(), path);
    EXPECT_EQ(file->originalPath(), path);
    EXPECT_EQ(file->localPath(), path);
    EXPECT_EQ(file->name(), "data.bin");

    EXPECT_EQ(VXFile::fileWithContentsAtPath(path + ".missing"), nullptr);
    EXPECT_EQ(VXFile::fileWithContentsAtPath(home.path().string()), nullptr) << "a directory cannot be read";
    try {
        VXFile missing(path + ".missing");
        FAIL();
    } catch (const PZException& e) {
        EXPECT_EQ(e.name(), "VXFile initWithContentsAtPath:");
        EXPECT_EQ(e.reason(), "No file at path");
    }
}

TEST(VXFile, detectFileNameOfPath_table_takesTheTextAfterTheLastSlash) {
    EXPECT_EQ(VXFile::detectFileNameOfPath("/a/b.txt"), "b.txt");
    EXPECT_EQ(VXFile::detectFileNameOfPath("plain"), "plain");
    EXPECT_EQ(VXFile::detectFileNameOfPath("/a/dir/"), std::nullopt);
    EXPECT_EQ(VXFile::detectFileNameOfPath(""), std::nullopt);
}

TEST(VXError, predefinedErrors_table_areUserErrorsWithCodeZero) {
    const std::pair<std::shared_ptr<VXError>, const char*> cases[] = {
        {VXError::compatibilityError(), "CLIENT_IS_NOT_COMPATIBLE_ERROR"},
        {VXError::unableToSatisfyRequestError(), "UNABLE_TO_SATISFY_REQUEST_ERROR"},
        {VXError::unableToRecognizeRequestError(), "UNABLE_TO_RECOGNIZE_REQEUST_ERROR"},
        {VXError::unableToExecuteCommandError(), "UNABLE_TO_EXECUTE_COMMAND_ERROR"},
        {VXError::unableToRecognizeCommandError(), "UNABLE_TO_RECOGNIZE_COMMAND_ERROR"},
    };
    for (const auto& [error, message] : cases) {
        EXPECT_EQ(error->type(), "user");
        EXPECT_EQ(error->code(), 0);
        EXPECT_EQ(error->message(), message);
    }
}

TEST(VXInfo, getDictionary_presentAndAbsent_givesOneEntryOrNothing) {
    const auto dictionary = VXInfo("os", "Debian").getDictionary();
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(dictionary->size(), 1u);
    EXPECT_EQ(*dictionary->findString("os"), "Debian");
    EXPECT_FALSE(VXInfo("os", std::nullopt).getDictionary());
}

TEST(PZDictionary, set_existingKey_replacesInPlace) {
    PZDictionary d;
    d.set("a", PZValue(1));
    d.set("b", PZValue(2));
    d.set("a", PZValue("x"));
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d.keyAt(0), "a");
    EXPECT_EQ(*d.findString("a"), "x");
    EXPECT_EQ(d.findNumber("a"), nullptr);
    EXPECT_TRUE(d.remove("a"));
    EXPECT_FALSE(d.remove("a"));
    EXPECT_EQ(d.keyAt(0), "b");
    EXPECT_FALSE(PZValue(true) == PZValue(1)) << "booleans are not numbers";
}

} // namespace
