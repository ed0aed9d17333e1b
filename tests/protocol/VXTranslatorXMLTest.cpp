#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

#include "ProtocolTestSupport.h"
#include "protocol/VXDiscardingStreamSink.h"
#include "protocol/VXFileStreamSink.h"
#include "protocol/VXProcessNameLookup.h"

using vxtest::E;
using vxtest::feed;
using vxtest::MemorySink;
using vxtest::RecordingDelegate;

namespace {

class OneProcessLookup : public VXProcessNameLookup {
public:
    std::optional<std::string> processNameForPid(std::int64_t pid) override {
        return pid == 321 ? std::optional<std::string>("gedit") : std::nullopt;
    }
};

struct Reader {
    Reader() : sink(std::make_shared<MemorySink>()), translator(sink, std::make_shared<OneProcessLookup>()) {
        translator.setDelegate(&delegate);
    }
    std::shared_ptr<MemorySink> sink;
    VXTranslator translator;
    RecordingDelegate delegate;
};

struct MessageCase {
    std::string name;
    std::string wire;
    std::vector<std::string> calls;
};

std::vector<MessageCase> xmlCases() {
    const std::string trackpad = "%74%72%61%63%6b%70%61%64";
    return {
        {"request",
         R"j(<request type=")j" + E("info") + R"j(">)j" + E("protocol") + "</request>",
         {R"j(request {"type":")j" + E("info") + R"j(","text":")j" + E("protocol") + R"j("})j"}},
        {"requestWithArguments",
         R"j(<request type=")j" + E("screenshot") + R"j(" SSTime="%31"  SSRect = "%30%3b%30">)j" +
             "</request >",
         {R"j(request {"type":")j" + E("screenshot") +
          R"j(","text":"","SSTime":"%31","SSRect":"%30%3b%30"})j"}},
        {"info",
         R"j(<info subject=")j" + E("app") + R"j(">)j" + E("Remote") + "</info>",
         {R"j(info {"subject":")j" + E("app") + R"j(","information":")j" + E("Remote") + R"j("})j"}},
        {"process",
         R"j(<process pid="%34%32">)j" + E("Finder") + "</process>",
         {R"j(process {"name":")j" + E("Finder") + R"j(","pid":42})j"}},
        {"trackpad",
         R"j(<cmd type=")j" + trackpad +
             R"j(" pid="%33" touch="%31" fingers="%32" tapCount="%30" zoom="%2d%32">)j" + E("1.50;-2.00") +
             "</cmd>",
         {R"j(trackpad {"type":")j" + trackpad +
          R"j(","pid":3,"touch":1,"fingers":2,"tapCount":0,"shift":{"x":1.500000,"y":-2.000000},"zoom":-2})j"}},
        {"capitalTrackpadIsAPlainCommand",
         R"j(<cmd type=")j" + E("Trackpad") + R"j(" pid="%33%32%31">)j" + E("1.50;-2.00") + "</cmd>",
         {R"j(cmd {"type":")j" + E("Trackpad") + R"j(","pid":321,"processName":")j" + E("gedit") +
          R"j(","instruction":")j" + E("1.50;-2.00") + R"j("})j"}},
        {"commandWithName",
         R"j(<cmd type=")j" + E("keyboard") + R"j(" pid="%30" processName=")j" + E("Finder") + R"j(">)j" +
             E("cmd a") + "</cmd>",
         {R"j(cmd {"type":")j" + E("keyboard") + R"j(","pid":0,"processName":")j" + E("Finder") +
          R"j(","instruction":")j" + E("cmd a") + R"j("})j"}},
        {"fileThenRequest",
         R"j(<file name=")j" + E("up.bin") +
             R"j(" length="%33">a<b</file><request type="%61">%62</request>)j",
         {R"j(request {"type":"%61","text":"%62"})j"}},
        {"junkBetweenElements",
         R"j(xx <info subject="%61">%62</info> yy > <info subject="%63">%64</info>)j",
         {R"j(info {"subject":"%61","information":"%62"})j",
          R"j(info {"subject":"%63","information":"%64"})j"}},
    };
}

std::vector<std::string> translate(const std::string& wire, const std::vector<std::size_t>& cuts,
                                   std::vector<std::string>* streams = nullptr) {
    Reader reader;
    std::size_t start = 0;
    for (const std::size_t cut : cuts) {
        feed(reader.translator, std::string_view(wire).substr(start, cut - start));
        start = cut;
    }
    feed(reader.translator, std::string_view(wire).substr(start));
    if (streams) {
        for (const auto& s : reader.sink->streams) {
            streams->push_back(s.path + "=" + s.content);
        }
    }
    return reader.delegate.calls;
}

TEST(VXTranslatorXML, translateBytes_goldenElements_giveTheirDelegateCalls) {
    LogCapture log{LogCapture::Echo::Silenced};
    for (const auto& c : xmlCases()) {
        EXPECT_EQ(translate(c.wire, {}), c.calls) << c.name;
    }
}

TEST(VXTranslatorXML, translateBytes_everyTwoAndThreeChunkSplit_givesTheSameCalls) {
    LogCapture log{LogCapture::Echo::Silenced};
    for (const auto& c : xmlCases()) {
        std::vector<std::string> whole;
        const auto expected = translate(c.wire, {}, &whole);
        for (std::size_t a = 1; a < c.wire.size(); ++a) {
            for (std::size_t b = a; b < c.wire.size(); ++b) {
                std::vector<std::string> streams;
                ASSERT_EQ(translate(c.wire, {a, b}, &streams), expected)
                    << c.name << " cut at " << a << "," << b;
                ASSERT_EQ(streams, whole) << c.name << " cut at " << a << "," << b;
            }
        }
    }
}

// An element read after others must give exactly what it gives on a fresh translator.
TEST(VXTranslatorXML, translateBytes_elementsAfterLargerOnes_carryNothingOver) {
    LogCapture log{LogCapture::Echo::Silenced};
    const std::string trackpad = "%74%72%61%63%6b%70%61%64";
    std::vector<std::string> elements = {
        R"j(<request type="%61" a="%31" b="%32" c="%33">%74</request>)j",
        R"j(<request type="%61"></request>)j",
        R"j(<cmd type=")j" + trackpad +
            R"j(" pid="%33" touch="%31" fingers="%32" tapCount="%31" rotation="%34" zoom="%35">%31%3b%32</cmd>)j",
        R"j(<cmd type=")j" + trackpad + R"j(" pid="%34">%31</cmd>)j",
        R"j(<cmd type=")j" + E("keyboard") + R"j(" pid="%31" processName="%61">%62</cmd>)j",
        R"j(<cmd type=")j" + E("keyboard") + R"j(">%62</cmd>)j",
        R"j(<info subject="%61">%62%63%64</info>)j",
        R"j(<info subject="%61"></info>)j",
    };
    for (const auto& c : xmlCases()) {
        elements.push_back(c.wire);
    }
    std::string stream;
    std::vector<std::string> expected;
    for (const auto& element : elements) {
        stream += element;
        const auto calls = translate(element, {});
        expected.insert(expected.end(), calls.begin(), calls.end());
    }
    EXPECT_EQ(translate(stream, {}), expected);
}

TEST(VXTranslatorXML, translateBytes_serverWrittenElements_giveEqualMessages) {
    LogCapture log{LogCapture::Echo::Silenced};
    Reader reader;
    VXRequest request("directory", "/home/u", [] {
        PZDictionary d;
        d.set("k", PZValue("v"));
        return d;
    }());
    const auto wire = *request.getXMLData();
    reader.translator.translateBytes(wire.data(), wire.size());
    ASSERT_EQ(reader.delegate.requests.size(), 1u);
    EXPECT_TRUE(reader.delegate.requests[0]->isEqualToRequest(request));

    VXTrackpadCommand command;
    command.setProcess(VXProcess(std::nullopt, 9));
    command.setShift({0.25, 3});
    command.setRotation(-1);
    const auto commandWire = *command.getXMLData();
    reader.translator.translateBytes(commandWire.data(), commandWire.size());
    ASSERT_EQ(reader.delegate.commands.size(), 1u);
    EXPECT_EQ(reader.delegate.commands[0]->getJSONString(), command.getJSONString());
}

TEST(VXTranslatorXML, translateBytes_delegateSwitchesToJSONOnRequestOrInfo_readsRestOfChunkAsJSON) {
    for (const bool viaInfo : {false, true}) {
        Reader reader;
        reader.delegate.switchToJSONOnRequest = !viaInfo;
        reader.delegate.switchToJSONOnInfo = viaInfo;
        const std::string element =
            viaInfo ? R"j(<info subject="%70">%31</info>)j"
                    : R"j(<request type=")j" + E("info") + R"j(">)j" + E("protocol") + "</request>";
        feed(reader.translator,
             element + R"j({"cmd":{"type":"%61","pid":1}}<request type="%61">%62</request>)j");
        ASSERT_EQ(reader.delegate.calls.size(), 2u) << viaInfo;
        EXPECT_EQ(reader.delegate.commands.size(), 1u) << viaInfo;
        EXPECT_EQ(reader.translator.protocol(), VXTranslator::kProtocolJSON);
        // The XML element after the JSON message is misread as a bare JSON value.
        EXPECT_EQ(reader.translator.jsonParsingState(), 2);
    }
}

TEST(VXTranslatorXML, translateBytes_delegateSwitchesOnCommand_restOfChunkStaysXML) {
    class Switcher : public RecordingDelegate {
    public:
        void translatorDidGetCommand(VXTranslator& translator, std::shared_ptr<VXCommand> command) override {
            RecordingDelegate::translatorDidGetCommand(translator, std::move(command));
            translator.setProtocol(VXTranslator::kProtocolJSON);
        }
    } delegate;
    Reader reader;
    reader.translator.setDelegate(&delegate);
    feed(reader.translator, R"j(<cmd type="%61" processName="%62">%63</cmd><info subject="%61">%62</info>)j");
    EXPECT_EQ(delegate.calls.size(), 2u);
}

TEST(VXTranslatorXML, makeCommandWithArgumentsContent_contentNotTwoParts_givesNoShift) {
    for (const char* content : {"1;2;3", "5", ""}) {
        Reader reader;
        feed(reader.translator,
             R"j(<cmd type=")j" + E("trackpad") + R"j(" pid="%31">)j" + E(content) + "</cmd>");
        ASSERT_EQ(reader.delegate.commands.size(), 1u) << content;
        auto* command = dynamic_cast<VXTrackpadCommand*>(reader.delegate.commands[0].get());
        ASSERT_NE(command, nullptr);
        EXPECT_EQ(command->shift(), (VXPoint{0, 0})) << content;
    }
}

TEST(VXTranslatorXML, translateBytes_fileElementWithFileSink_writesContentHoldingAngleBracket) {
    vxtest::TemporaryHome home;
    LogCapture log{LogCapture::Echo::Silenced};
    VXTranslator translator;
    RecordingDelegate delegate;
    translator.setDelegate(&delegate);
    feed(translator, R"j(<file name=")j" + E("notes.txt") +
                         R"j(" length="%33">a<b</file><info subject="%61">%62</info>)j");
    std::ifstream in(home.tmp() / "notes.txt", std::ios::binary);
    std::stringstream read;
    read << in.rdbuf();
    EXPECT_EQ(read.str(), "a<b");
    struct stat info {};
    ASSERT_EQ(::stat((home.tmp() / "notes.txt").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(log.count("file creato e salvato ( '<' ?=? '<' )"), 1u);
    EXPECT_TRUE(delegate.files.empty()) << "no call follows a file element";
    EXPECT_EQ(delegate.infos.size(), 1u);
}

TEST(VXTranslatorXML, translateBytes_fileElementOverFileOrLink_replacesWithoutFollowing) {
    vxtest::TemporaryHome home;
    LogCapture log{LogCapture::Echo::Silenced};
    const auto victim = home.path() / "victim";
    { std::ofstream(victim) << "keep"; }
    std::filesystem::create_symlink(victim, home.tmp() / "link");
    { std::ofstream(home.tmp() / "old") << "old content that is longer"; }
    VXTranslator translator;
    feed(translator, R"j(<file name=")j" + E("link") + R"j(" length="%32">xy</file>)j");
    feed(translator, R"j(<file name=")j" + E("old") + R"j(" length="%31">z</file>)j");
    std::stringstream kept;
    kept << std::ifstream(victim).rdbuf();
    EXPECT_EQ(kept.str(), "keep");
    EXPECT_FALSE(std::filesystem::is_symlink(home.tmp() / "link"));
    std::stringstream replaced;
    replaced << std::ifstream(home.tmp() / "old").rdbuf();
    EXPECT_EQ(replaced.str(), "z");
}

TEST(VXTranslatorXML, translateBytes_fileElementNames_areReducedToTheLastComponent) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"../../etc/passwd", "mem:passwd"},
        {"/abs/name.txt", "mem:name.txt"},
        {"..", std::nullopt},
        {".", std::nullopt},
        {"", std::nullopt},
        {"dir/", std::nullopt},
        {"a/..", std::nullopt},
    };
    for (const auto& [name, path] : cases) {
        LogCapture log{LogCapture::Echo::Silenced};
        Reader reader;
        feed(reader.translator,
             R"j(<file name=")j" + E(name) + R"j(" length="%32">xy</file><process pid="%31">%61</process>)j");
        if (path) {
            ASSERT_EQ(reader.sink->streams.size(), 1u) << name;
            EXPECT_EQ(reader.sink->streams[0].path, *path) << name;
            EXPECT_EQ(reader.sink->streams[0].content, "xy") << name;
        } else {
            EXPECT_TRUE(reader.sink->streams.empty()) << name;
        }
        EXPECT_EQ(reader.delegate.processes.size(), 1u) << "the content is skipped either way: " << name;
    }
}

TEST(VXTranslatorXML, translateBytes_fileElementWithoutLengthOrName_logsAndSkips) {
    LogCapture log{LogCapture::Echo::Silenced};
    Reader reader;
    feed(reader.translator,
         R"j(<file name="%61">X</file><file length="%32">xy</file><info subject="%61">%62</info>)j");
    EXPECT_EQ(log.count("VXTranslator error: did get file without length"), 1u);
    EXPECT_EQ(log.count("VXTranslator error: did get file without name"), 1u);
    ASSERT_EQ(reader.sink->streams.size(), 1u);
    EXPECT_EQ(reader.sink->streams[0].content, "") << "without length the first byte ends the content";
    EXPECT_EQ(log.count("file creato e salvato ( '<' ?=? 'X' )"), 1u);
    EXPECT_EQ(reader.delegate.infos.size(), 1u);
}

TEST(VXTranslatorXML, translateBytes_malformedElements_areDroppedAndReadingGoesOn) {
    struct Case {
        const char* name;
        std::string wire;
        std::size_t logged;
    };
    const Case cases[] = {
        {"infoWithoutSubject", R"j(<info other="%61">%62</info>)j", 0},
        {"unknownElement", R"j(<hello type="%61">%62</hello>)j", 0},
        {"requestWithoutType", R"j(<request SSTime="%31">%61</request>)j", 1},
        {"noSlashAfterLessThan", R"j(<info subject="%61">%62<xy/info>)j", 2},
    };
    for (const auto& c : cases) {
        LogCapture log{LogCapture::Echo::Silenced};
        Reader reader;
        feed(reader.translator, c.wire + R"j(<process pid="%37">%61</process>)j");
        EXPECT_EQ(log.lines().size(), c.logged) << c.name;
        if (std::string(c.name) == "noSlashAfterLessThan") {
            EXPECT_EQ(log.count("VXTranslator error: after < there isn't '/'"), 2u);
            EXPECT_EQ(reader.delegate.infos.size(), 1u);
        } else if (std::string(c.name) == "requestWithoutType") {
            EXPECT_EQ(log.count("(null) a "), 1u);
        }
        ASSERT_EQ(reader.delegate.processes.size(), 1u) << c.name;
        EXPECT_EQ(reader.delegate.processes[0]->pid(), 7) << c.name;
    }
}

TEST(VXTranslatorXML, translateBytes_elementWithoutAttributes_isNotDispatched) {
    Reader reader;
    feed(reader.translator, "<process>%61</process>");
    EXPECT_TRUE(reader.delegate.calls.empty());
    EXPECT_EQ(reader.translator.parsingState(), 3) << "the content was taken for an attribute name";
}

TEST(VXTranslatorXML, translateBytes_hugeContentOrFileLength_exceedsLimit) {
    Reader content;
    feed(content.translator, R"j(<info subject="%61">)j");
    const std::string chunk(1 << 20, '1');
    for (int i = 0; i < 17; ++i) {
        feed(content.translator, chunk);
    }
    EXPECT_EQ(content.delegate.limits, std::vector<VXTranslatorLimit>{VXTranslatorLimit::messageSize});
    feed(content.translator, R"j(</info><info subject="%61">%62</info>)j");
    EXPECT_TRUE(content.delegate.infos.empty());

    for (const char* length : {"536870913", "-1"}) {
        Reader file;
        feed(file.translator, R"j(<file name="%61" length=")j" + E(length) + R"j(">)j");
        EXPECT_EQ(file.delegate.limits, std::vector<VXTranslatorLimit>{VXTranslatorLimit::streamLength})
            << length;
        EXPECT_TRUE(file.sink->streams.empty());
    }
}

TEST(VXTranslatorXML, translateBytes_elementWithManyAttributes_isReadInLinearTime) {
    Reader reader;
    std::string element = R"(<request type="%61")";
    for (int i = 0; i < 200000; ++i) {
        element += " a" + std::to_string(i % 150000) + "=\"%31\"";
    }
    feed(reader.translator, element + "></request>");
    ASSERT_EQ(reader.delegate.requests.size(), 1u);
    EXPECT_EQ(reader.delegate.requests[0]->arguments()->size(), 150000u);
}

TEST(VXTranslatorXML, translateBytes_junkOutsideElementsAndLargeFileContent_costNothing) {
    Reader reader;
    reader.translator.setStreamSink(std::make_shared<VXDiscardingStreamSink>());
    const std::string junk(1 << 20, 'j');
    for (int i = 0; i < 20; ++i) {
        feed(reader.translator, junk);
    }
    feed(reader.translator, R"j(<file name="%61" length=")j" + E("20971520") + R"j(">)j");
    const std::string content(1 << 20, '<');
    for (int i = 0; i < 20; ++i) {
        feed(reader.translator, content);
    }
    feed(reader.translator, R"j(</file><info subject="%61">%62</info>)j");
    EXPECT_TRUE(reader.delegate.limits.empty());
    EXPECT_EQ(reader.delegate.infos.size(), 1u);
}

} // namespace
