#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>

#include "ProtocolTestSupport.h"
#include "protocol/PZValue.h"
#include "protocol/VXDiscardingStreamSink.h"
#include "protocol/VXFileStreamSink.h"
#include "protocol/VXProcessNameLookup.h"

using vxtest::E;
using vxtest::feed;
using vxtest::MemorySink;
using vxtest::RecordingDelegate;

namespace {

// A lookup with one known process.
class OneProcessLookup : public VXProcessNameLookup {
public:
    std::optional<std::string> processNameForPid(std::int64_t pid) override {
        asked.push_back(pid);
        return pid == 321 ? std::optional<std::string>("gedit") : std::nullopt;
    }
    std::vector<std::int64_t> asked;
};

struct Reader {
    explicit Reader(std::uint32_t protocol = VXTranslator::kProtocolJSON)
        : sink(std::make_shared<MemorySink>()), lookup(std::make_shared<OneProcessLookup>()),
          translator(sink, lookup) {
        translator.setDelegate(&delegate);
        translator.setProtocol(protocol);
    }
    std::shared_ptr<MemorySink> sink;
    std::shared_ptr<OneProcessLookup> lookup;
    VXTranslator translator;
    RecordingDelegate delegate;
};

std::string fileUpload(std::string_view content) {
    return R"j({"file":{"originalPath":")j" + E("/x/a.bin") + R"j(","name":")j" + E("a.bin") +
           R"j(","length":)j" + std::to_string(content.size()) + R"j(,"stream":)j" + std::string(content) +
           " }}";
}

// Messages with the delegate calls (and stream contents) each must produce.
struct MessageCase {
    std::string name;
    std::string wire;
    std::vector<std::string> calls;
};

std::vector<MessageCase> jsonCases() {
    const std::string trackpad = "%74%72%61%63%6b%70%61%64";
    return {
        {"request",
         R"j({"request":{"type":"%69%6e%66%6f"}})j",
         {R"j(request {"type":"%69%6e%66%6f","text":"(null)"})j"}},
        {"requestWithTextAndArguments",
         R"j({"request":{"type":")j" + E("screenshot") +
             R"j(","text":"%61","SSTime":"%31","n":2.5,"o":{"k":[1,true,null]}}})j",
         {R"j(request {"type":")j" + E("screenshot") + R"j(","text":"%61","SSTime":"%31","n":2.5})j"}},
        {"trackpad",
         R"j({"cmd":{"type":")j" + trackpad + R"j(","pid":3,"shift":{"x":1.5,"y":-2}}})j",
         {R"j(trackpad {"type":")j" + trackpad +
          R"j(","pid":3,"touch":0,"fingers":0,"tapCount":0,"shift":{"x":1.500000,"y":-2.000000}})j"}},
        {"trackpadAllMembersUpperCaseType",
         R"j({"cmd":{"type":")j" + E("TrackPad") +
             R"j(","pid":3,"touch":2,"fingers":3,"tapCount":1,"rotation":-4,"zoom":7,"shift":{"x":0.1,"y":"%31"},"instruction":"%61"}})j",
         {R"j(trackpad {"type":")j" + trackpad +
          R"j(","pid":3,"touch":2,"fingers":3,"tapCount":1,"shift":{"x":0.100000,"y":0.000000},"rotation":-4,"zoom":7})j"}},
        {"commandWithName",
         R"j({"cmd":{"type":")j" + E("keyboard") + R"j(","pid":9,"processName":")j" + E("Finder") +
             R"j(","instruction":")j" + E("cmd a") + R"j("}})j",
         {R"j(cmd {"type":")j" + E("keyboard") + R"j(","pid":9,"processName":")j" + E("Finder") +
          R"j(","instruction":")j" + E("cmd a") + R"j("})j"}},
        {"commandNameLookedUp",
         R"j({"cmd":{"type":")j" + E("focus") + R"j(","pid":321}})j",
         {R"j(cmd {"type":")j" + E("focus") + R"j(","pid":321,"processName":")j" + E("gedit") +
          R"j(","instruction":"(null)"})j"}},
        {"info",
         R"j({"info":{"subject":")j" + E("protocol") + R"j(","information":"%31"}})j",
         {R"j(info {"subject":")j" + E("protocol") + R"j(","information":"%31"})j"}},
        {"error",
         R"j({"error":{"type":")j" + E("user") + R"j(","code":-3.7,"message":")j" + E("BAD") + R"j("}})j",
         {R"j(error {"type":")j" + E("user") + R"j(","code":-3,"message":")j" + E("BAD") + R"j("})j"}},
        {"process",
         R"j({"process":{"name":"%61","pid":12,"path":"%2f"}})j",
         {R"j(process {"name":"%61","pid":12,"path":"%2f"})j"}},
        {"processList",
         R"j({"processList":{"name":"%6c","elements":[{"name":"%61","pid":1},{"pid":"%32"},7,{"pid":3}]}})j",
         {R"j(processList {"name":"%6c","elements":[{"name":"%61","pid":1},{"name":"(null)","pid":3}]})j"}},
        {"directory",
         R"j({"directory":{"name":"%64","path":"%2f%68","elements":[{"name":"%61","type":"%44%49%52"},)j"
         R"j({"name":"%62","type":"%74%78%74"},{"name":"%63"}]}})j",
         {R"j(directory {"name":"%64","path":"%2f%68","elements":[{"name":"%61","type":"%64%69%72"},{"name":"%62","type":"%66%69%6c%65"}]} dir:/h/a file:/h/b)j"}},
        {"directoryWithoutPath",
         R"j({"directory":{"elements":[{"name":"%61","type":"%64%69%72"}]}})j",
         {R"j(directory {"elements":[{"name":"%61","type":"%64%69%72"}]} dir:(null)/a)j"}},
        {"fileUploadWithBracesAndQuotes",
         fileUpload("x}}\"{y"),
         {"file local=mem:0 original=/x/a.bin name=a.bin length stream"}},
        {"arrayThenRequest",
         R"j([1,"%61",[2]]{"request":{"type":"%61"}})j",
         {R"j(request {"type":"%61","text":"(null)"})j"}},
        {"spacesBetweenMessages",
         R"j(  {"info":{"subject":"%61","information":"%62"}}  {"info" : {"subject" :"%63","information":"%64"} }  )j",
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
            streams->push_back(s.content);
        }
    }
    return reader.delegate.calls;
}

TEST(VXTranslatorJSON, translateBytes_goldenMessages_giveTheirDelegateCalls) {
    LogCapture log{LogCapture::Echo::Silenced};
    for (const auto& c : jsonCases()) {
        EXPECT_EQ(translate(c.wire, {}), c.calls) << c.name;
    }
}

TEST(VXTranslatorJSON, translateBytes_everyTwoAndThreeChunkSplit_givesTheSameCalls) {
    LogCapture log{LogCapture::Echo::Silenced};
    for (const auto& c : jsonCases()) {
        std::vector<std::string> whole;
        const auto expected = translate(c.wire, {}, &whole);
        for (std::size_t a = 1; a < c.wire.size(); ++a) {
            for (std::size_t b = a; b < c.wire.size(); ++b) {
                std::vector<std::string> streams;
                const auto calls = translate(c.wire, {a, b}, &streams);
                ASSERT_EQ(calls, expected) << c.name << " cut at " << a << "," << b;
                ASSERT_EQ(streams, whole) << c.name << " cut at " << a << "," << b;
            }
        }
    }
}

TEST(VXTranslatorJSON, translateBytes_singleByteChunksOfAllMessages_giveAllCalls) {
    LogCapture log{LogCapture::Echo::Silenced};
    std::string stream;
    std::vector<std::string> expected;
    for (const auto& c : jsonCases()) {
        stream += c.wire;
        expected.insert(expected.end(), c.calls.begin(), c.calls.end());
    }
    std::vector<std::size_t> cuts;
    for (std::size_t i = 1; i < stream.size(); ++i) {
        cuts.push_back(i);
    }
    auto calls = translate(stream, cuts);
    ASSERT_EQ(calls.size(), expected.size());
    for (std::size_t i = 0; i < calls.size(); ++i) {
        // Stream names count up across the whole connection.
        if (expected[i].rfind("file ", 0) != 0) {
            EXPECT_EQ(calls[i], expected[i]);
        }
    }
}

// The translator reuses the storage of finished objects: a message read after others must give
// exactly what it gives on a fresh translator, whatever came before it.
TEST(VXTranslatorJSON, translateBytes_messagesAfterLargerOnes_carryNothingOver) {
    LogCapture log{LogCapture::Echo::Silenced};
    const std::string trackpad = "%74%72%61%63%6b%70%61%64";
    std::vector<std::string> messages = {
        R"j({"request":{"type":"%61","text":"%62","a":"%31","b":{"c":1,"d":{"e":2}},"f":[{"g":3}],"h":4}})j",
        R"j({"request":{"type":"%61"}})j",
        R"j({"cmd":{"type":")j" + trackpad +
            R"j(","pid":3,"touch":2,"fingers":3,"tapCount":1,"rotation":-4,"zoom":7,"shift":{"x":0.5,"y":2}}})j",
        R"j({"cmd":{"type":")j" + trackpad + R"j(","pid":4,"shift":{"x":1}}})j",
        R"j({"cmd":{"type":")j" + trackpad + R"j(","pid":5}})j",
        R"j({"process":{"name":"%61","pid":12,"path":"%2f"}})j",
        R"j({"process":{"pid":13}})j",
        R"j({"info":{"subject":"%61","information":"%62"}})j",
        R"j({"error":{"type":"%61","code":1,"message":"%62"}})j",
        R"j({"error":{"type":"%61","code":2}})j",
    };
    for (const auto& c : jsonCases()) {
        messages.push_back(c.wire);
    }
    std::string stream;
    std::vector<std::string> expected;
    for (const auto& message : messages) {
        stream += message;
        const auto calls = translate(message, {});
        expected.insert(expected.end(), calls.begin(), calls.end());
    }
    EXPECT_EQ(translate(stream, {}), expected);
    // And in single-byte chunks, where no value is finished inside one chunk.
    std::vector<std::size_t> cuts;
    for (std::size_t i = 1; i < stream.size(); ++i) {
        cuts.push_back(i);
    }
    EXPECT_EQ(translate(stream, cuts), expected);
}

TEST(VXTranslatorJSON, translateBytes_requestInSingleByteChunks_hasTypeAndEmptyArguments) {
    Reader reader;
    for (const char c : std::string_view(R"j({"request":{"type":"%69%6e%66%6f"}})j")) {
        feed(reader.translator, std::string_view(&c, 1));
    }
    ASSERT_EQ(reader.delegate.requests.size(), 1u);
    EXPECT_EQ(reader.delegate.requests[0]->type(), "info");
    EXPECT_FALSE(reader.delegate.requests[0]->text());
    ASSERT_TRUE(reader.delegate.requests[0]->arguments());
    EXPECT_TRUE(reader.delegate.requests[0]->arguments()->empty());
    EXPECT_EQ(reader.translator.jsonParsingState(), 0);
}

TEST(VXTranslatorJSON, translateBytes_messagesThatDoNotQualify_giveNoCall) {
    const std::pair<const char*, const char*> cases[] = {
        {"requestWithoutType", R"j({"request":{"text":"%61"}})j"},
        {"requestNumericType", R"j({"request":{"type":5}})j"},
        {"commandWithoutType", R"j({"cmd":{"pid":1}})j"},
        {"infoWithoutInformation", R"j({"info":{"subject":"%61"}})j"},
        {"infoNumericInformation", R"j({"info":{"subject":"%61","information":1}})j"},
        {"errorWithoutCode", R"j({"error":{"type":"%61","message":"%62"}})j"},
        {"errorBooleanCode", R"j({"error":{"type":"%61","code":true}})j"},
        {"processWithoutPid", R"j({"process":{"name":"%61"}})j"},
        {"listIsIgnored", R"j({"list":{"elements":[]}})j"},
        {"screenshotIsIgnored", R"j({"screenshot":{"time":1,"length":0}})j"},
        {"unknownKey", R"j({"hello":{"type":"%61"}})j"},
        {"bodyNotAnObject", R"j({"request":"%61"})j"},
        {"tabStartsABareValue", "{\"request\":{\"type\":\t\"%69\"}}"},
        {"topLevelArrayOfRequests", R"j([{"request":{"type":"%61"}}])j"},
    };
    for (const auto& [name, wire] : cases) {
        Reader reader;
        LogCapture log{LogCapture::Echo::Silenced};
        feed(reader.translator, wire);
        EXPECT_TRUE(reader.delegate.calls.empty()) << name;
    }
}

TEST(VXTranslatorJSON, decodeAndTellDelegate_severalKeys_fixedOrderDecides) {
    Reader reader;
    feed(reader.translator,
         R"j({"request":{"type":"%72"},"info":{"subject":"%61","information":"%62"},"cmd":{"type":"%6b"}})j");
    ASSERT_EQ(reader.delegate.calls.size(), 1u);
    EXPECT_EQ(reader.delegate.commands.size(), 1u);
    // A key whose value is not an object does not decide; one whose object does not qualify does.
    feed(reader.translator, R"j({"cmd":5,"request":{"type":"%72"}})j");
    EXPECT_EQ(reader.delegate.requests.size(), 1u);
    feed(reader.translator, R"j({"cmd":{"pid":1},"request":{"type":"%72"}})j");
    EXPECT_EQ(reader.delegate.calls.size(), 2u);
}

TEST(VXTranslatorJSON, translateBytes_fileUploadWithFileSink_writesContentToHomeTmpUnchanged) {
    vxtest::TemporaryHome home;
    LogCapture log{LogCapture::Echo::Silenced};
    VXTranslator translator;
    RecordingDelegate delegate;
    translator.setDelegate(&delegate);
    translator.setProtocol(VXTranslator::kProtocolJSON);
    const std::string content = std::string("a}}\"b{\0c", 8) + std::string(5000, 'z');
    feed(translator, fileUpload(content) + R"j({"request":{"type":"%61"}})j");
    ASSERT_EQ(delegate.files.size(), 1u);
    ASSERT_EQ(delegate.requests.size(), 1u) << "the reader continues after the upload";
    const auto& file = *delegate.files[0];
    ASSERT_TRUE(file.localPath());
    const std::filesystem::path path(*file.localPath());
    EXPECT_EQ(path.parent_path(), home.tmp());
    EXPECT_EQ(path.filename().string().size(), 36u);
    std::ifstream in(path, std::ios::binary);
    std::stringstream read;
    read << in.rdbuf();
    EXPECT_EQ(read.str(), content);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(*file.attributes()->findString("stream"), *file.localPath());
    EXPECT_EQ(*file.attributes()->findNumber("length"), static_cast<double>(content.size()));
    EXPECT_EQ(log.count("STREAMMMMM"), 1u);
    EXPECT_EQ(log.count("STREAM di lunghezza " + std::to_string(content.size())), 1u);
}

TEST(VXTranslatorJSON, translateBytes_fileUploadWithoutTmpFolder_dropsBytesAndHasNoLocalPath) {
    vxtest::TemporaryHome home;
    std::filesystem::remove(home.tmp());
    LogCapture log{LogCapture::Echo::Silenced};
    VXTranslator translator;
    RecordingDelegate delegate;
    translator.setDelegate(&delegate);
    translator.setProtocol(VXTranslator::kProtocolJSON);
    feed(translator, fileUpload("abc"));
    ASSERT_EQ(delegate.files.size(), 1u);
    EXPECT_FALSE(delegate.files[0]->localPath());
    EXPECT_TRUE(delegate.files[0]->attributes()->find("stream")->isNull());
    EXPECT_FALSE(std::filesystem::exists(home.tmp())) << "the folder is not created";
}

TEST(VXTranslatorJSON, translateBytes_streamInServerWriterForm_leavesTheOuterObjectOpen) {
    LogCapture log{LogCapture::Echo::Silenced};
    Reader reader;
    auto file = VXFile::fileWithDataPath(vxtest::bytes("abc"), "/p");
    file->setOriginalPath("/p");
    file->setName("p");
    const auto wire = file->getJSONData();
    reader.translator.translateBytes(wire.data(), wire.size());
    // One brace was swallowed after the content: the message is still open.
    EXPECT_TRUE(reader.delegate.calls.empty());
    EXPECT_EQ(reader.sink->streams.at(0).content, "abc");
    EXPECT_EQ(reader.translator.jsonTree().depth(), 1u);
    // The next message's first closing brace completes it; that message itself is lost.
    feed(reader.translator, R"j({"request":{"type":"%61"}})j");
    ASSERT_EQ(reader.delegate.calls.size(), 1u);
    EXPECT_EQ(reader.delegate.files.size(), 1u);
}

TEST(VXTranslatorJSON, prepareForStream_lengthAbsentLateOrNotANumber_givesEmptyStreamAndSwallowsOneByte) {
    const std::pair<const char*, const char*> cases[] = {
        {"lengthAfterStream", R"j({"file":{"stream":X,"length":3}})j"},
        {"noLength", R"j({"file":{"stream":X}})j"},
        {"stringLength", R"j({"file":{"length":"%33","stream":X}})j"},
        {"booleanLength", R"j({"file":{"length":true,"stream":X}})j"},
        {"zeroLength", R"j({"file":{"length":0,"stream":X}})j"},
    };
    for (const auto& [name, wire] : cases) {
        LogCapture log{LogCapture::Echo::Silenced};
        Reader reader;
        feed(reader.translator, wire);
        ASSERT_EQ(reader.delegate.files.size(), 1u) << name;
        ASSERT_EQ(reader.sink->streams.size(), 1u) << name;
        EXPECT_EQ(reader.sink->streams[0].content, "") << name;
        EXPECT_TRUE(reader.sink->streams[0].finished) << name;
        EXPECT_EQ(log.count("STREAM di lunghezza 0"), 1u) << name;
    }
}

TEST(VXTranslatorJSON, translateBytes_topLevelArray_returnsToStateZero) {
    Reader reader;
    feed(reader.translator, "[1,[2,3],\"%61\"]");
    EXPECT_EQ(reader.translator.jsonParsingState(), 0);
    EXPECT_EQ(reader.translator.jsonTree().depth(), 0u);
    feed(reader.translator, "[]");
    EXPECT_EQ(reader.translator.jsonParsingState(), 0);
}

TEST(VXTranslatorJSON, translateBytes_topLevelBareValueOrString_misreadsTheNextMessage) {
    for (const char* first : {"5 ", "\"%61\""}) {
        LogCapture log{LogCapture::Echo::Silenced};
        Reader reader;
        feed(reader.translator, first);
        EXPECT_EQ(reader.translator.jsonParsingState(), 2) << first;
        // The opening brace is skipped; the first closing brace ends the pseudo-message.
        feed(reader.translator, R"j({"request":{"type":"%69"}})j");
        EXPECT_TRUE(reader.delegate.calls.empty()) << first;
        // The second closing brace started a bare value, which swallows the next message too.
        EXPECT_EQ(reader.translator.jsonParsingState(), 1) << first;
        feed(reader.translator, R"j({"request":{"type":"%69"}})j");
        EXPECT_TRUE(reader.delegate.calls.empty()) << first;
    }
}

TEST(VXTranslatorJSON, translateBytes_emptyObjectOrBadSeparator_logsAndSkips) {
    LogCapture log{LogCapture::Echo::Silenced};
    Reader reader;
    feed(reader.translator, "{}");
    EXPECT_EQ(log.count("ERRORE NEL PARSING DEL JSON: carattere inaspettato } mentre si aspettava '\"'"), 1u);
    EXPECT_EQ(reader.translator.jsonParsingState(), 3);
    Reader second;
    feed(second.translator, R"j({"request"=:{"type":"%61"}})j");
    EXPECT_EQ(log.count("ERRORE NEL PARSING DEL JSON: carattere inaspettato = mentre si aspettava ':'"), 1u);
    EXPECT_EQ(second.delegate.requests.size(), 1u) << "the stray byte is skipped";
}

TEST(VXTranslatorJSON, translateBytes_backslashOrPlainText_isNotEscapedOrDecoded) {
    Reader reader;
    feed(reader.translator, R"j({"request":{"type":"%61","text":"plain\","%41":"%42\"}})j");
    ASSERT_EQ(reader.delegate.requests.size(), 1u);
    const auto& request = *reader.delegate.requests[0];
    EXPECT_EQ(request.text(), "") << "an unencoded value decodes to nothing";
    EXPECT_EQ(*request.arguments()->findString("%41"), "B") << "keys are taken as they are";
}

TEST(VXTranslatorJSON, translateBytes_numberWithTwoPoints_logsAndStaysInconsistent) {
    LogCapture log{LogCapture::Echo::Silenced};
    Reader reader;
    feed(reader.translator, R"j({"cmd":{"type":"%61","pid":1.2.3}})j");
    EXPECT_TRUE(reader.delegate.calls.empty());
    EXPECT_GE(log.count("getValue error to get number: too much points"), 1u);
    EXPECT_GE(log.count("setEndOfLastObject error value"), 1u);
    // Nothing is reset: the next message is not read either.
    feed(reader.translator, R"j({"request":{"type":"%61"}})j");
    EXPECT_TRUE(reader.delegate.calls.empty());
}

TEST(VXTranslatorJSON, translateBytes_protocolOtherThanZeroOrOne_ignoresInput) {
    Reader reader(7);
    feed(reader.translator, R"j({"request":{"type":"%61"}})j");
    EXPECT_TRUE(reader.delegate.calls.empty());
    reader.translator.setProtocol(VXTranslator::kProtocolJSON);
    reader.translator.translateBytes(nullptr, 0);
    feed(reader.translator, R"j({"request":{"type":"%61"}})j");
    EXPECT_EQ(reader.delegate.calls.size(), 1u);
}

TEST(VXTranslatorJSON, makeCommandWithDictionary_unknownPid_leavesTheNameAbsent) {
    Reader reader;
    feed(reader.translator, R"j({"cmd":{"type":"%61","pid":55,"instruction":"%62"}})j");
    feed(reader.translator, R"j({"cmd":{"type":"%61","pid":321,"processName":"%78"}})j");
    ASSERT_EQ(reader.delegate.commands.size(), 2u);
    EXPECT_FALSE(reader.delegate.commands[0]->process()->name());
    EXPECT_EQ(reader.delegate.commands[0]->instruction(), "b");
    EXPECT_EQ(reader.delegate.commands[1]->process()->name(), "x");
    EXPECT_EQ(reader.lookup->asked, (std::vector<std::int64_t>{55})) << "a given name is not looked up";
}

// ---------------------------------------------------------------------------------------------
// Limits

TEST(VXTranslatorLimits, translateBytes_messageOver16MiB_stopsTellsOnceAndIgnoresTheRest) {
    Reader reader;
    std::string big = R"j({"request":{"type":"%61","text":")j";
    feed(reader.translator, big);
    const std::string chunk(1 << 20, '1');
    for (int i = 0; i < 17 && !reader.translator.hasExceededLimit(); ++i) {
        feed(reader.translator, chunk);
    }
    EXPECT_TRUE(reader.translator.hasExceededLimit());
    ASSERT_EQ(reader.delegate.limits, std::vector<VXTranslatorLimit>{VXTranslatorLimit::messageSize});
    feed(reader.translator, R"j("}}{"request":{"type":"%61"}})j");
    EXPECT_EQ(reader.delegate.calls.size(), 1u) << "only the limit call";
}

TEST(VXTranslatorLimits, translateBytes_messageOf15MiB_isRead) {
    Reader reader;
    feed(reader.translator,
         R"j({"request":{"type":"%61","text":")j" + std::string(15 << 20, 'x') + R"j("}})j");
    EXPECT_FALSE(reader.translator.hasExceededLimit());
    EXPECT_EQ(reader.delegate.requests.size(), 1u);
}

TEST(VXTranslatorLimits, translateBytes_nesting257Levels_exceedsWhile256AreRead) {
    Reader deep;
    feed(deep.translator, std::string(257, '['));
    EXPECT_EQ(deep.delegate.limits, std::vector<VXTranslatorLimit>{VXTranslatorLimit::nestingDepth});

    Reader fine;
    feed(fine.translator, std::string(256, '[') + std::string(256, ']') + R"j({"request":{"type":"%61"}})j");
    EXPECT_TRUE(fine.delegate.limits.empty());
    EXPECT_EQ(fine.delegate.requests.size(), 1u);
}

TEST(VXTranslatorLimits, prepareForStream_lengthOver512MiBOrNegative_exceeds) {
    for (const char* length : {"536870913", "-1", "1e300"}) {
        Reader reader;
        feed(reader.translator, std::string(R"j({"file":{"length":)j") + length + R"j(,"stream":)j");
        EXPECT_EQ(reader.delegate.limits, std::vector<VXTranslatorLimit>{VXTranslatorLimit::streamLength})
            << length;
        EXPECT_TRUE(reader.sink->streams.empty()) << length;
    }
    Reader exact;
    feed(exact.translator, R"j({"file":{"length":536870912,"stream":)j");
    EXPECT_TRUE(exact.delegate.limits.empty());
    EXPECT_EQ(exact.translator.jsonParsingState(), 6);
}

TEST(VXTranslatorLimits, translateBytes_objectsWithManyKeysAndStreams_areReadInLinearTime) {
    // Quadratic lookups would keep this test busy for hours; it must finish well within its timeout.
    Reader reader;
    reader.translator.setStreamSink(std::make_shared<VXDiscardingStreamSink>());
    std::string request = R"({"request":{"type":"%61")";
    for (int i = 0; i < 200000; ++i) {
        request += ",\"k" + std::to_string(i) + "\":\"%31\"";
    }
    request += ",\"k7\":\"%32\"}}";
    feed(reader.translator, request);
    ASSERT_EQ(reader.delegate.requests.size(), 1u);
    EXPECT_EQ(reader.delegate.requests[0]->arguments()->size(), 200000u);
    EXPECT_EQ(*reader.delegate.requests[0]->arguments()->findString("k7"), "2") << "a later duplicate wins";

    LogCapture log{LogCapture::Echo::Silenced};
    std::string streams = R"({"file":{"length":1)";
    for (int i = 0; i < 100000; ++i) {
        streams += R"(,"stream":xy)";
    }
    feed(reader.translator, streams + "}}");
    ASSERT_EQ(reader.delegate.files.size(), 1u);
    EXPECT_EQ(log.count("STREAM di lunghezza 1"), 100000u);
}

TEST(VXTranslatorLimits, translateBytes_skippedBytesAndStreamContent_costNothing) {
    Reader reader;
    const std::string spaces(1 << 20, ' ');
    for (int i = 0; i < 20; ++i) {
        feed(reader.translator, spaces); // between messages
    }
    // 20 MiB of stream content through a discarding sink.
    auto discarding = std::make_shared<VXDiscardingStreamSink>();
    reader.translator.setStreamSink(discarding);
    feed(reader.translator, R"j({"file":{"length":20971520,"stream":)j");
    const std::string content(1 << 20, '}');
    for (int i = 0; i < 20; ++i) {
        feed(reader.translator, content);
    }
    feed(reader.translator, " }}");
    EXPECT_EQ(reader.delegate.files.size(), 1u);
    // Garbage skipped in state 2 after a top-level bare value.
    feed(reader.translator, "5 ");
    const std::string garbage(1 << 20, 'g');
    for (int i = 0; i < 20; ++i) {
        feed(reader.translator, garbage);
    }
    EXPECT_TRUE(reader.delegate.limits.empty());
    EXPECT_FALSE(reader.translator.hasExceededLimit());
}

} // namespace
