#include <gtest/gtest.h>

#include <clocale>
#include <functional>

#include "ProtocolTestSupport.h"
#include "protocol/PZValue.h"
#include "protocol/VXList.h"
#include "protocol/VXScreenshot.h"

using vxtest::bytes;
using vxtest::E;
using vxtest::text;

namespace {

struct WireCase {
    std::string name;
    std::function<std::shared_ptr<VXTranslationProtocol>()> make;
    std::string json;               // getJSONData
    std::optional<std::string> xml; // getXMLData; nothing for classes without XML
};

std::shared_ptr<VXTrackpadCommand> trackpad(std::int16_t rotation, std::int16_t zoom) {
    auto command = std::make_shared<VXTrackpadCommand>();
    command->setProcess(VXProcess(std::nullopt, 3));
    command->setTouchState(1);
    command->setFingers(2);
    command->setTapCount(0);
    command->setShift({1.5, -2});
    command->setRotation(rotation);
    command->setZoom(zoom);
    return command;
}

std::shared_ptr<VXFile> fileWithAttributes() {
    auto file = VXFile::fileWithDataPath(bytes("ab}}\"c"), "/tmp/x.txt");
    file->setOriginalPath("/tmp/x.txt");
    file->setName("x.txt");
    file->setAttributes(
        vxtest::dict({"fileType", "size", "flag"}, {PZValue("file"), PZValue(6), PZValue(true)}));
    return file;
}

std::shared_ptr<VXTranslationProtocol> processWithPathAndTitle() {
    auto p = VXProcess::processWithNamePid("gedit", -1);
    p->setPath("/usr/bin/gedit");
    p->setMainWindowTitle("Text Editor");
    return p;
}

std::shared_ptr<VXTranslationProtocol> listOfMixedElements() {
    return VXList::listWithNameArray(std::nullopt, {std::string("plain \"as is\""), 3.0, 1.5,
                                                    std::make_shared<VXInfo>("a", "b"),
                                                    std::shared_ptr<VXTranslationProtocol>()});
}

std::shared_ptr<VXTranslationProtocol> directoryWithEntries() {
    auto d = VXDirectory::directoryWithName("home");
    d->setPath("/home");
    auto typed = VXFile::fileWithDataPath({}, std::nullopt);
    typed->setName("a.app");
    typed->setAttributes(vxtest::dict({"fileType", "size"}, {PZValue("app"), PZValue(10)}));
    auto plain = VXFile::fileWithDataPath(bytes("x"), std::nullopt);
    plain->setName("b.txt");
    d->addElement(std::shared_ptr<VXTranslationProtocol>(typed));
    d->addElement(std::shared_ptr<VXTranslationProtocol>(plain));
    d->addElement(std::shared_ptr<VXTranslationProtocol>(VXDirectory::directoryWithName("sub")));
    d->addElement(std::string("skipped"));
    d->addElement(std::shared_ptr<VXTranslationProtocol>(std::make_shared<VXInfo>("skipped", "too")));
    return d;
}

std::shared_ptr<VXTranslationProtocol> processList() {
    auto l = VXProcessList::processListWithName("UIElement");
    l->addElement(std::shared_ptr<VXTranslationProtocol>(VXProcess::processWithNamePid("a", 412)));
    l->addElement(std::shared_ptr<VXTranslationProtocol>(VXProcess::processWithNamePid("b", 7)));
    return l;
}

std::vector<WireCase> wireCases() {
    const std::string trackpadType = "%74%72%61%63%6b%70%61%64";
    return {
        {"requestWithoutText", [] { return std::make_shared<VXRequest>("appList"); },
         R"j({"request":{"type":")j" + E("appList") + R"j(","text":"(null)"}})j",
         R"j(<request type=")j" + E("appList") + R"j("></request>)j"},
        {"requestNumberAndOtherArguments",
         [] {
             return std::make_shared<VXRequest>(
                 "info", "a",
                 vxtest::dict({"SSTime", "n", "x", "b", "z"},
                              {PZValue("1"), PZValue(5), PZValue(1.5), PZValue(true), PZValue()}));
         },
         R"j({"request":{"type":")j" + E("info") + R"j(","text":"%61","SSTime":"%31","n":5,"x":1.5}})j",
         R"j(<request type=")j" + E("info") + R"j(" SSTime="%31" n="%35" x="%31%2e%35">%61</request>)j"},
        {"info", [] { return std::make_shared<VXInfo>("protocol", "1"); },
         R"j({"info":{"subject":"%70%72%6f%74%6f%63%6f%6c","information":"%31"}})j",
         R"j(<info subject="%70%72%6f%74%6f%63%6f%6c">%31</info>)j"},
        {"infoWithoutInformation", [] { return std::make_shared<VXInfo>("os", std::nullopt); },
         R"j({"info":{"subject":"%6f%73","information":"(null)"}})j",
         R"j(<info subject="%6f%73">(null)</info>)j"},
        {"command", [] { return std::make_shared<VXCommand>("keyboard", VXProcess("Finder", 42), "cmd a"); },
         R"j({"cmd":{"type":")j" + E("keyboard") + R"j(","pid":42,"processName":")j" + E("Finder") +
             R"j(","instruction":")j" + E("cmd a") + R"j("}})j",
         R"j(<cmd type=")j" + E("keyboard") + R"j(" pid="%34%32" processName=")j" + E("Finder") + R"j(">)j" +
             E("cmd a") + "</cmd>"},
        {"commandWithoutProcess", [] { return std::make_shared<VXCommand>("volume", std::nullopt, "0.5"); },
         R"j({"cmd":{"type":")j" + E("volume") + R"j(","pid":0,"processName":"(null)","instruction":")j" +
             E("0.5") + R"j("}})j",
         R"j(<cmd type=")j" + E("volume") + R"j(" pid="%30" processName="(null)">)j" + E("0.5") + "</cmd>"},
        {"trackpadWithoutOptionalMembers", [] { return trackpad(0, 0); },
         R"j({"cmd":{"type":")j" + trackpadType +
             R"j(","pid":3,"touch":1,"fingers":2,"tapCount":0,"shift":{"x":1.500000,"y":-2.000000}}})j",
         R"j(<cmd type=")j" + trackpadType + R"j(" pid="%33" touch="%31" fingers="%32" tapCount="%30">)j" +
             E("1.50;-2.00") + "</cmd>"},
        {"trackpadWithRotationAndZoom", [] { return trackpad(5, -1); },
         R"j({"cmd":{"type":")j" + trackpadType +
             R"j(","pid":3,"touch":1,"fingers":2,"tapCount":0,"shift":{"x":1.500000,"y":-2.000000},"rotation":5,"zoom":-1}})j",
         R"j(<cmd type=")j" + trackpadType +
             R"j(" pid="%33" touch="%31" fingers="%32" tapCount="%30" rotation="%35" zoom="%2d%31">)j" +
             E("1.50;-2.00") + "</cmd>"},
        {"processWithPathAndTitle", processWithPathAndTitle,
         R"j({"process":{"name":")j" + E("gedit") + R"j(","pid":-1,"path":")j" + E("/usr/bin/gedit") +
             R"j(","mainWindowTitle":")j" + E("Text Editor") + R"j("}})j",
         R"j(<process pid="%2d%31">)j" + E("gedit") + "</process>"},
        {"errorWithCode", [] { return VXError::errorWithTypeCodeMessage("io", -12, std::nullopt); },
         R"j({"error":{"type":"%69%6f","code":-12,"message":"(null)"}})j",
         R"j(<error type="%69%6f" code="%2d%31%32">(null)</error>)j"},
        {"namedList", [] { return VXList::listWithName("n"); }, R"j({"list":{"name":"%6e","elements":[]}})j",
         std::nullopt},
        {"listOfMixedElements", listOfMixedElements,
         R"j({"list":{"elements":["plain "as is"",3,1.5,{"subject":"%61","information":"%62"}]}})j",
         std::nullopt},
        {"emptyDirectory", [] { return std::make_shared<VXDirectory>(); },
         R"j({"directory":{"elements":[]}})j", std::nullopt},
        {"directoryWithEntries", directoryWithEntries,
         R"j({"directory":{"name":")j" + E("home") + R"j(","path":")j" + E("/home") +
             R"j(","elements":[{"name":")j" + E("a.app") + R"j(","type":")j" + E("app") +
             R"j("},{"name":")j" + E("b.txt") + R"j(","type":")j" + E("file") + R"j("},{"name":")j" +
             E("sub") + R"j(","type":")j" + E("dir") + R"j("}]}})j",
         std::nullopt},
        {"processList", processList,
         R"j({"processList":{"name":")j" + E("UIElement") + R"j(","elements":[{"name":"%61","pid":412},)j" +
             R"j({"name":"%62","pid":7}]}})j",
         std::nullopt},
        {"fileWithRawContentAndAttributes", [] { return fileWithAttributes(); },
         R"j({"file":{"originalPath":")j" + E("/tmp/x.txt") + R"j(","name":")j" + E("x.txt") +
             R"j(","length":6,"fileType":")j" + E("file") + R"j(","size":6,"stream":ab}}"c}})j",
         R"j(<file path=")j" + E("/tmp/x.txt") + R"j(" name=")j" + E("x.txt") +
             R"j(" length="%36" fileType=")j" + E("file") + R"j(" size="%36">ab}}"c</file>)j"},
        {"emptyFile", [] { return VXFile::fileWithDataPath({}, "/tmp/e"); },
         R"j({"file":{"originalPath":"(null)","name":"(null)","length":0,"stream":}})j", std::string()},
        {"screenshot",
         [] {
             return std::make_shared<VXScreenshot>(1.5, VXRect{0, 0, 640, 480}, bytes("JP}\"G"));
         },
         R"j({"screenshot":{"time":1.500000,"rect":[0.000000,0.000000,640.000000,480.000000],"length":5,"stream":JP}"G}})j",
         std::nullopt},
        {"screenshotFromPathSendsNoBytes",
         [] {
             return std::make_shared<VXScreenshot>(0.25, VXRect{1, 2, 3, 4}, std::string("/tmp/shot.jpg"));
         },
         R"j({"screenshot":{"time":0.250000,"rect":[1.000000,2.000000,3.000000,4.000000],"length":0,"stream":}})j",
         std::nullopt},
    };
}

// The same bytes in a German locale, which writes a comma for the decimal point.
TEST(VXMessageEncoding, getJSONDataAndGetXMLData_everyClassInTwoLocales_matchTheWireForms) {
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    for (const char* locale : {"C", "de_DE.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << locale;
        for (const auto& c : wireCases()) {
            const auto message = c.make();
            EXPECT_EQ(text(message->getJSONData()), c.json) << c.name << " " << locale;
            const auto xml = message->getXMLData();
            ASSERT_EQ(xml.has_value(), c.xml.has_value()) << c.name;
            EXPECT_EQ(xml ? text(*xml) : "", c.xml.value_or("")) << c.name << " " << locale;
            EXPECT_EQ(message->getXMLString().has_value(), c.xml.has_value()) << c.name;
        }
    }
    std::setlocale(LC_ALL, previous.c_str());
}

TEST(VXMessageEncoding, getJSONString_anyMessage_leavesOutEnvelopeAndContent) {
    EXPECT_EQ(fileWithAttributes()->getJSONString(), R"j({"file":{"originalPath":")j" + E("/tmp/x.txt") +
                                                         R"j(","name":")j" + E("x.txt") +
                                                         R"j(","length":6}})j");
    EXPECT_EQ(
        VXScreenshot(2, VXRect{0, 0, 1, 1}, bytes("abc")).getJSONString(),
        R"j({"screenshot":{"time":2.000000,"rect":[0.000000,0.000000,1.000000,1.000000],"length":3}})j");
    EXPECT_EQ(VXProcessList::processListWithName(std::nullopt)->getJSONString(), R"j({"elements":[]})j");
}

TEST(VXMessageEncoding, getXMLString_fileWithPath_namesTheFirstComponentAndStopsAtZero) {
    auto file = VXFile::fileWithDataPath(bytes(std::string("ab\0cd", 5)), "docs/a.txt");
    EXPECT_EQ(*file->getXMLString(), R"j(<file path=")j" + E("docs/a.txt") + R"j(" name=")j" + E("docs") +
                                         R"j(" length="%35">ab</file>)j");
}

TEST(VXMessageEncoding, asciiData_nonASCIIOrZeroByte_isEmptyOrCut) {
    EXPECT_TRUE(VXTranslationProtocol::asciiData("caf\xC3\xA9").empty());
    EXPECT_EQ(text(VXTranslationProtocol::asciiData(std::string("ab\0cd", 5))), "ab");
    // A plain list string is written unencoded: non-ASCII text there makes the message unsendable.
    auto list = VXList::listWithNameArray(std::nullopt, {std::string("caf\xC3\xA9")});
    EXPECT_TRUE(list->getJSONData().empty());
}

} // namespace
