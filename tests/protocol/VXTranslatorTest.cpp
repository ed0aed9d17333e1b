#include <gtest/gtest.h>

#include <memory>
#include <numeric>

#include "ProtocolTestSupport.h"
#include "protocol/PZValue.h"
#include "protocol/VXDiscardingStreamSink.h"
#include "protocol/VXProcessNameLookup.h"
#include "protocol/VXStreamSink.h"
#include "protocol/VXTranslator.h"
#include "protocol/VXTranslatorDelegate.h"

using vxtest::E;

namespace {

constexpr std::uint32_t XML = VXTranslator::kProtocolXML;
constexpr std::uint32_t JSON = VXTranslator::kProtocolJSON;
template <class M> using P = std::shared_ptr<M>;
using T = VXTranslator;

// Records each finished stream in calls as "stream mem:<name or n-th>=<content>".
class MemorySink : public VXStreamSink {
public:
    explicit MemorySink(std::vector<std::string>& calls) : calls_(calls) {}
    std::optional<std::string> openUniqueStream() override { return openNamedStream(std::to_string(count_)); }
    std::optional<std::string> openNamedStream(const std::string& name) override {
        ++count_;
        path_ = "mem:" + name;
        content_.clear();
        return path_;
    }
    void write(const std::uint8_t* data, std::size_t n) override {
        content_.append(reinterpret_cast<const char*>(data), n);
    }
    void finish() override { calls_.push_back("stream " + path_ + "=" + content_); }

private:
    std::vector<std::string>& calls_;
    int count_ = 0;
    std::string path_;
    std::string content_;
};

// A translator whose delegate, lookup (knowing only 321 "gedit") and memory sink record every call as a
// line; the delegate switches to JSON on a message of kind switchOn.
struct Reader : VXTranslatorDelegate, VXProcessNameLookup {
    explicit Reader(std::uint32_t protocol = JSON, bool realFiles = false) {
        if (!realFiles) {
            translator.setStreamSink(std::make_shared<MemorySink>(calls));
        }
        translator.setProcessNameLookup(P<VXProcessNameLookup>(P<void>(), this));
        translator.setDelegate(this);
        translator.setProtocol(protocol);
    }
    void feed(std::string_view data) {
        translator.translateBytes(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
    }
    void record(const std::string& kind, const std::string& line) {
        calls.push_back(kind + " " + line);
        if (kind == switchOn) {
            translator.setProtocol(JSON);
        }
    }
    std::optional<std::string> processNameForPid(std::int64_t pid) override {
        calls.push_back("lookup " + std::to_string(pid));
        return pid == 321 ? std::optional<std::string>("gedit") : std::nullopt;
    }
    void translatorDidGetCommand(T&, P<VXCommand> m) override {
        record(dynamic_cast<VXTrackpadCommand*>(m.get()) ? "trackpad" : "cmd", m->getJSONString());
    }
    void translatorDidGetRequest(T&, P<VXRequest> m) override {
        requests.push_back(m);
        record("request", m->getJSONString() + (m->arguments() ? "" : " noargs"));
    }
    void translatorDidGetInfo(T&, P<VXInfo> m) override { record("info", m->getJSONString()); }
    void translatorDidGetError(T&, P<VXError> m) override { record("error", m->getJSONString()); }
    void translatorDidGetProcess(T&, P<VXProcess> m) override { record("process", m->getJSONString()); }
    void translatorDidGetProcessList(T&, P<VXProcessList> m) override {
        record("processList", m->getJSONString());
    }
    void translatorDidGetFile(T&, P<VXFile> m) override {
        std::string line = "local=" + m->localPath().value_or("<none>") +
                           " original=" + m->originalPath().value_or("<none>") +
                           " name=" + m->name().value_or("<none>");
        for (std::size_t i = 0; m->attributes() && i < m->attributes()->size(); ++i) {
            line += " " + m->attributes()->keyAt(i);
        }
        files.push_back(m);
        record("file", line);
    }
    void translatorDidGetDirectory(T&, P<VXDirectory> m) override {
        std::string line = m->getJSONString();
        for (const auto& element : m->elements()) {
            const auto& message = std::get<P<VXTranslationProtocol>>(element);
            if (auto* file = dynamic_cast<VXFile*>(message.get())) {
                line += " file:" + file->originalPath().value_or("<none>");
            } else if (auto* dir = dynamic_cast<VXDirectory*>(message.get())) {
                line += " dir:" + dir->path().value_or("<none>");
            }
        }
        record("directory", line);
    }
    void translatorDidExceedLimit(T&, VXTranslatorLimit limit, const std::string& reason) override {
        record("limit", std::to_string(static_cast<int>(limit)) + " " + reason);
    }

    std::vector<std::string> calls; // before the translator, which may finish a stream when destroyed
    VXTranslator translator;
    std::string switchOn;
    std::vector<P<VXRequest>> requests;
    std::vector<P<VXFile>> files;
};

std::string fileUpload(std::string_view content) {
    return R"j({"file":{"originalPath":")j" + E("/x/a.bin") + R"j(","name":")j" + E("a.bin") +
           R"j(","length":)j" + std::to_string(content.size()) + R"j(,"stream":)j" + std::string(content) +
           " }}";
}

// Input with the calls (and for the malformed cases the log lines) it must produce.
struct Case {
    std::string name;
    std::string wire;
    std::vector<std::string> calls;
    std::vector<std::string> logs = {};
};

// Each kind of message comes with more members before it comes with fewer, for the carry-over test.
std::vector<Case> goldenCases(std::uint32_t protocol) {
    const std::string trackpad = "%74%72%61%63%6b%70%61%64";
    const auto noShift = [&](const std::string& pid) {
        return R"j(trackpad {"type":")j" + trackpad + R"j(","pid":)j" + pid +
               R"j(,"touch":0,"fingers":0,"tapCount":0,"shift":{"x":0.000000,"y":0.000000}})j";
    };
    if (protocol == XML) {
        return {
            {"requestWithArguments",
             R"j(<request type="%73" SSTime="%31"  SSRect = "%30%3b%30"></request >)j",
             {R"j(request {"type":"%73","text":"","SSTime":"%31","SSRect":"%30%3b%30"})j"}},
            {"trackpad",
             R"j(<cmd type=")j" + trackpad +
                 R"j(" pid="%33" touch="%31" fingers="%32" tapCount="%30" rotation="%35" zoom="%2d%32">)j" +
                 E("1.50;-2.00") + "</cmd>",
             {R"j(trackpad {"type":")j" + trackpad +
              R"j(","pid":3,"touch":1,"fingers":2,"tapCount":0,"shift":{"x":1.500000,"y":-2.000000},"rotation":5,"zoom":-2})j"}},
            {"trackpadContentOfThreeParts",
             R"j(<cmd type=")j" + trackpad + R"j(" pid="%31">)j" + E("1;2;3") + "</cmd>",
             {noShift("1")}},
            {"trackpadWithoutContent",
             R"j(<cmd type=")j" + trackpad + R"j(" pid="%33"></cmd>)j",
             {noShift("3")}},
            {"commandWithName",
             R"j(<cmd type="%6b" pid="%30" processName="%46">%61</cmd>)j",
             {R"j(cmd {"type":"%6b","pid":0,"processName":"%46","instruction":"%61"})j"}},
            {"capitalTrackpadIsAPlainCommand",
             R"j(<cmd type=")j" + E("Trackpad") + R"j(" pid="%33%32%31">)j" + E("1;2") + "</cmd>",
             {"lookup 321", R"j(cmd {"type":")j" + E("Trackpad") + R"j(","pid":321,"processName":")j" +
                                E("gedit") + R"j(","instruction":")j" + E("1;2") + R"j("})j"}},
            {"fileThenRequest",
             R"j(<file name="%75" length="%33">a<b</file><request type="%61">%62</request>)j",
             {"stream mem:u=a<b", R"j(request {"type":"%61","text":"%62"})j"}},
            {"junkBetweenElements",
             R"j(xx <info subject="%61">%62</info> yy > <info subject="%63">%64</info>)j",
             {R"j(info {"subject":"%61","information":"%62"})j",
              R"j(info {"subject":"%63","information":"%64"})j"}},
        };
    }
    return {
        {"requestWithTextAndArguments",
         R"j({"request":{"type":"%73","text":"%61","SSTime":"%31","n":2.5,"o":{"k":[1,true,null]}}})j",
         {R"j(request {"type":"%73","text":"%61","SSTime":"%31","n":2.5})j"}},
        {"plainAndBackslashTextsAreNotUnescaped",
         R"j({"request":{"type":"%61","text":"plain\","%41":"%42\"}})j",
         {R"j(request {"type":"%61","text":"","%41":"%42"})j"}},
        {"trackpadAllMembersUpperCaseType",
         R"j({"cmd":{"type":")j" + E("TrackPad") +
             R"j(","pid":3,"touch":2,"fingers":3,"tapCount":1,"rotation":-4,"zoom":7,"shift":{"x":0.1,"y":"%31"},"instruction":"%61"}})j",
         {R"j(trackpad {"type":")j" + trackpad +
          R"j(","pid":3,"touch":2,"fingers":3,"tapCount":1,"shift":{"x":0.100000,"y":0.000000},"rotation":-4,"zoom":7})j"}},
        {"trackpadWithoutShift", R"j({"cmd":{"type":")j" + trackpad + R"j(","pid":5}})j", {noShift("5")}},
        {"commandWithName",
         R"j({"cmd":{"type":"%6b","pid":9,"processName":"%46","instruction":"%61"}})j",
         {R"j(cmd {"type":"%6b","pid":9,"processName":"%46","instruction":"%61"})j"}},
        {"commandNameLookedUp",
         R"j({"cmd":{"type":"%66","pid":321}})j",
         {"lookup 321", R"j(cmd {"type":"%66","pid":321,"processName":")j" + E("gedit") +
                            R"j(","instruction":"(null)"})j"}},
        {"firstKeyInFixedOrderDecides",
         R"j({"request":{"type":"%72"},"info":{"subject":"%61","information":"%62"},"cmd":{"type":"%6b"}})j",
         {"lookup 0", R"j(cmd {"type":"%6b","pid":0,"processName":"(null)","instruction":"(null)"})j"}},
        {"keyWithoutObjectDoesNotDecide",
         R"j({"cmd":5,"request":{"type":"%72"}})j",
         {R"j(request {"type":"%72","text":"(null)"})j"}},
        {"error",
         R"j({"error":{"type":"%75","code":-3.7,"message":"%42"}})j",
         {R"j(error {"type":"%75","code":-3,"message":"%42"})j"}},
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
         {"stream mem:0=x}}\"{y", "file local=mem:0 original=/x/a.bin name=a.bin length stream"}},
        {"arraysThenRequest",
         R"j([1,"%61",[2]][]{"request":{"type":"%61"}})j",
         {R"j(request {"type":"%61","text":"(null)"})j"}},
        {"spacesBetweenMessages",
         R"j(  {"info":{"subject":"%61","information":"%62"}}  {"info" : {"subject" :"%63","information":"%64"} }  )j",
         {R"j(info {"subject":"%61","information":"%62"})j",
          R"j(info {"subject":"%63","information":"%64"})j"}},
    };
}

// Hostile and malformed input: what is dropped, what is still read, and what is logged.
std::vector<Case> malformedCases(std::uint32_t protocol) {
    if (protocol == XML) {
        const std::string process = R"j(<process pid="%37">%61</process>)j";
        const std::string call = R"j(process {"name":"%61","pid":7})j";
        const std::string noSlash = "VXTranslator error: after < there isn't '/'";
        const std::string saved = "file creato e salvato ( '<' ?=? '<' )";
        const std::string tooLong = "limit 2 stream longer than 512 MiB";
        const auto file = [&](const std::string& name) {
            return R"j(<file name=")j" + E(name) + R"j(" length="%32">xy</file>)j" + process;
        };
        return {
            {"infoWithoutSubject", R"j(<info other="%61">%62</info>)j" + process, {call}},
            {"unknownElement", R"j(<hello type="%61">%62</hello>)j" + process, {call}},
            {"requestWithoutType",
             R"j(<request SSTime="%31">%61</request>)j" + process,
             {call},
             {"(null) a "}},
            {"noSlashAfterLessThan",
             R"j(<info subject="%61">%62<xy/info>)j" + process,
             {R"j(info {"subject":"%61","information":"%62"})j", call},
             {noSlash, noSlash}},
            {"elementWithoutAttributesTakesContentForAName",
             "<process>%61</process>" + process,
             {R"j(process {"name":"%61","pid":0})j"}},
            {"fileWithoutLengthOrName",
             R"j(<file name="%61">X</file><file length="%32">xy</file>)j" + process,
             {"stream mem:a=", call},
             {"VXTranslator error: did get file without length", "file creato e salvato ( '<' ?=? 'X' )",
              noSlash, "VXTranslator error: did get file without name", saved}},
            // Only the last component of a file name is used, and never "", "." or "..".
            {"fileNameGoingUp", file("../../etc/passwd"), {"stream mem:passwd=xy", call}, {saved}},
            {"fileNameDotDot", file(".."), {call}, {saved}},
            {"fileNameOfAFolder", file("dir/"), {call}, {saved}},
            {"streamOver512MiB", R"j(<file name="%61" length=")j" + E("536870913") + R"j(">)j", {tooLong}},
        };
    }
    const std::string unexpected = "ERRORE NEL PARSING DEL JSON: carattere inaspettato ";
    const std::string points = "getValue error to get number: too much points";
    const std::string value = "setEndOfLastObject error value";
    const std::string stream = "STREAMMMMM";
    const std::string tooLong = "limit 2 stream longer than 512 MiB";
    const std::string request = R"j({"request":{"type":"%61"}})j";
    return {
        // A stream without a usable length is empty and swallows one byte.
        {"streamLengthAbsent",
         R"j({"file":{"stream":X}})j",
         {"stream mem:0=", "file local=mem:0 original=<none> name=<none> stream"},
         {stream, "STREAM di lunghezza 0"}},
        {"streamLengthNotANumber",
         R"j({"file":{"length":"%33","stream":X}})j",
         {"stream mem:0=", "file local=mem:0 original=<none> name=<none> length stream"},
         {stream, "STREAM di lunghezza 0"}},
        {"streamLengthZero",
         R"j({"file":{"length":0,"stream":X}})j",
         {"stream mem:0=", "file local=mem:0 original=<none> name=<none> length stream"},
         {stream, "STREAM di lunghezza 0"}},
        {"streamOf512MiB",
         R"j({"file":{"length":536870912,"stream":)j",
         {},
         {stream, "STREAM di lunghezza 536870912"}},
        {"streamOver512MiB", R"j({"file":{"length":536870913,"stream":)j", {tooLong}, {stream}},
        {"streamNegative", R"j({"file":{"length":-1,"stream":)j", {tooLong}, {stream}},
        {"nesting256Levels",
         std::string(256, '[') + std::string(256, ']') + request,
         {R"j(request {"type":"%61","text":"(null)"})j"}},
        {"nesting257Levels", std::string(257, '['), {"limit 1 message nested more than 256 levels deep"}},
        {"requestNumericType", R"j({"request":{"type":5}})j", {}},
        {"commandThatDoesNotQualifyStillDecides", R"j({"cmd":{"pid":1},"request":{"type":"%72"}})j", {}},
        {"infoWithoutInformation", R"j({"info":{"subject":"%61"}})j", {}},
        {"errorWithoutCode", R"j({"error":{"type":"%61","message":"%62"}})j", {}},
        {"processWithoutPid", R"j({"process":{"name":"%61"}})j", {}},
        {"unknownKey", R"j({"hello":{"type":"%61"}})j", {}},
        {"tabStartsABareValue", "{\"request\":{\"type\":\t\"%69\"}}", {}},
        {"emptyObjectWaitsForAKey",
         R"j({}{"request":{"type":"%61"}})j",
         {R"j(request {"type":"%61","text":"(null)"})j"},
         {unexpected + "} mentre si aspettava '\"'", unexpected + "{ mentre si aspettava '\"'"}},
        {"strayByteBeforeColonIsSkipped",
         R"j({"request"=:{"type":"%61"}})j",
         {R"j(request {"type":"%61","text":"(null)"})j"},
         {unexpected + "= mentre si aspettava ':'"}},
        // The stream as the server writes it: one brace is swallowed after the content, so the next
        // message's first closing brace completes the file and that message itself is lost.
        {"streamInServerWriterForm",
         R"j({"file":{"originalPath":"%2f%70","name":"%70","length":3,"stream":abc}}{"request":{"type":"%61"}})j",
         {"stream mem:0=abc", "file local=mem:0 original=/p name=p length stream"},
         {"STREAMMMMM", "STREAM di lunghezza 3"}},
        // A top-level bare value or string: the opening brace of the next message is skipped and its
        // first closing brace ends the pseudo-message; the second starts a bare value, which swallows
        // the message after it too.
        {"topLevelBareValue", R"j(5 {"request":{"type":"%69"}}{"request":{"type":"%69"}})j", {}},
        // Nothing is reset after a number with two points: every closing brace tries it again, and the
        // next message is not read either.
        {"numberWithTwoPoints",
         R"j({"cmd":{"type":"%61","pid":1.2.3}}{"request":{"type":"%61"}})j",
         {},
         {points, value, points, value, points, value, points, value, points, value}},
    };
}

// The calls of wire on a fresh reader, cut into chunks at the given offsets.
std::vector<std::string> translate(std::uint32_t protocol, std::string_view wire,
                                   const std::vector<std::size_t>& cuts = {}) {
    Reader reader(protocol);
    std::size_t start = 0;
    for (const std::size_t cut : cuts) {
        reader.feed(wire.substr(start, cut - start));
        start = cut;
    }
    reader.feed(wire.substr(start));
    return reader.calls;
}

TEST(VXTranslator, translateBytes_goldenAndMalformedInput_giveTheirCallsAndLogs) {
    for (const std::uint32_t protocol : {JSON, XML}) {
        for (const auto& c : goldenCases(protocol)) {
            LogCapture log{LogCapture::Echo::Silenced};
            EXPECT_EQ(translate(protocol, c.wire), c.calls) << c.name;
        }
        for (const auto& c : malformedCases(protocol)) {
            LogCapture log{LogCapture::Echo::Silenced};
            EXPECT_EQ(translate(protocol, c.wire), c.calls) << c.name;
            EXPECT_EQ(log.lines(), c.logs) << c.name;
        }
    }
}

TEST(VXTranslator, translateBytes_everyTwoAndThreeChunkSplit_givesTheSameCalls) {
    LogCapture log{LogCapture::Echo::Silenced};
    for (const std::uint32_t protocol : {JSON, XML}) {
        for (const auto& c : goldenCases(protocol)) {
            for (std::size_t a = 1; a < c.wire.size(); ++a) {
                for (std::size_t b = a; b < c.wire.size(); ++b) {
                    ASSERT_EQ(translate(protocol, c.wire, {a, b}), c.calls)
                        << c.name << " cut at " << a << "," << b;
                }
            }
        }
    }
}

// The translator reuses the storage of finished objects: a message read after others must give
// exactly what it gives on a fresh translator, whatever came before it, whole or byte by byte.
TEST(VXTranslator, translateBytes_allGoldenMessagesInOneStream_carryNothingOver) {
    LogCapture log{LogCapture::Echo::Silenced};
    for (const std::uint32_t protocol : {JSON, XML}) {
        std::string stream;
        std::vector<std::string> expected;
        for (const auto& c : goldenCases(protocol)) {
            stream += c.wire;
            expected.insert(expected.end(), c.calls.begin(), c.calls.end());
        }
        std::vector<std::size_t> everyByte(stream.size() - 1);
        std::iota(everyByte.begin(), everyByte.end(), 1);
        EXPECT_EQ(translate(protocol, stream), expected) << protocol;
        EXPECT_EQ(translate(protocol, stream, everyByte), expected) << protocol;
    }
}

TEST(VXTranslator, translateBytes_protocolOtherThanZeroOrOne_ignoresInput) {
    Reader reader(7);
    reader.feed(R"j({"request":{"type":"%61"}})j");
    EXPECT_TRUE(reader.calls.empty());
    reader.translator.setProtocol(JSON);
    reader.translator.translateBytes(nullptr, 0);
    reader.feed(R"j({"request":{"type":"%61"}})j");
    EXPECT_EQ(reader.calls.size(), 1u);
}

// ---------------------------------------------------------------------------------------------
// JSON quirks

TEST(VXTranslatorJSON, translateBytes_fileUploadWithFileSink_writesContentToHomeTmpUnchangedIfItExists) {
    vxtest::TemporaryHome home;
    LogCapture log{LogCapture::Echo::Silenced};
    Reader reader(JSON, true);
    const std::string content = std::string("a}}\"b{\0c", 8) + std::string(5000, 'z');
    reader.feed(fileUpload(content) + R"j({"request":{"type":"%61"}})j");
    ASSERT_EQ(reader.files.size(), 1u);
    ASSERT_EQ(reader.requests.size(), 1u) << "the reader continues after the upload";
    const auto& file = *reader.files[0];
    ASSERT_TRUE(file.localPath());
    const std::filesystem::path path(*file.localPath());
    EXPECT_EQ(path.parent_path(), home.tmp());
    EXPECT_EQ(vxtest::contents(path), content);
    EXPECT_EQ(*file.attributes()->findString("stream"), *file.localPath());
    EXPECT_EQ(*file.attributes()->findNumber("length"), static_cast<double>(content.size()));

    // Without the folder the bytes are dropped and the file has no local path; the folder is not made.
    std::filesystem::remove_all(home.tmp());
    reader.feed(fileUpload("abc"));
    ASSERT_EQ(reader.files.size(), 2u);
    EXPECT_FALSE(reader.files[1]->localPath());
    EXPECT_TRUE(reader.files[1]->attributes()->find("stream")->isNull());
    EXPECT_FALSE(std::filesystem::exists(home.tmp()));
}

// ---------------------------------------------------------------------------------------------
// XML quirks

// After the delegate switches to JSON on a request or info the rest of the chunk is JSON; on a command it
// stays XML.
TEST(VXTranslatorXML, translateBytes_delegateSwitchesToJSON_restOfChunkIsJSONAfterRequestOrInfoOnly) {
    const std::string rest = R"j({"cmd":{"type":"%61","pid":1}}<request type="%61">%62</request>)j";
    for (const std::string kind : {"request", "info", "cmd"}) {
        Reader reader(XML);
        reader.switchOn = kind;
        reader.feed("<" + kind + R"j( type="%61" subject="%70">%31</)j" + kind + ">" + rest);
        // On a command the JSON message is skipped as junk and the request is read as XML.
        EXPECT_EQ(reader.calls.back(),
                  kind == "cmd"
                      ? R"j(request {"type":"%61","text":"%62"})j"
                      : R"j(cmd {"type":"%61","pid":1,"processName":"(null)","instruction":"(null)"})j")
            << kind;
        EXPECT_EQ(reader.translator.protocol(), JSON);
        // The XML element after the JSON message is misread as a bare JSON value.
        EXPECT_EQ(reader.translator.jsonParsingState(), kind == "cmd" ? 0 : 2) << kind;
    }
}

// ---------------------------------------------------------------------------------------------
// Limits

TEST(VXTranslatorLimits, translateBytes_messageOver16MiB_stopsTellsOnceAndIgnoresTheRest) {
    const std::tuple<std::uint32_t, std::string, std::string> cases[] = {
        {JSON, R"j({"request":{"type":"%61","text":")j", R"j("}}{"request":{"type":"%61"}})j"},
        {XML, R"j(<info subject="%61">)j", R"j(</info><info subject="%61">%62</info>)j"},
    };
    const std::string chunk(1 << 20, '1');
    for (const auto& [protocol, start, rest] : cases) {
        Reader reader(protocol);
        reader.feed(start);
        for (int i = 0; i < 17; ++i) {
            reader.feed(chunk);
        }
        EXPECT_TRUE(reader.translator.hasExceededLimit()) << protocol;
        reader.feed(rest);
        EXPECT_EQ(reader.calls, std::vector<std::string>{"limit 0 message larger than 16 MiB"}) << protocol;
    }
}

TEST(VXTranslatorLimits, translateBytes_messageOf15MiB_isRead) {
    Reader reader;
    reader.feed(R"j({"request":{"type":"%61","text":")j" + std::string(15 << 20, 'x') + R"j("}})j");
    EXPECT_FALSE(reader.translator.hasExceededLimit());
    EXPECT_EQ(reader.requests.size(), 1u);
}

// Quadratic lookups would keep these busy for hours; they must finish well within the timeout.
TEST(VXTranslatorLimits, translateBytes_manyKeysAttributesAndStreams_areReadInLinearTime) {
    Reader reader;
    reader.translator.setStreamSink(std::make_shared<VXDiscardingStreamSink>());
    std::string request = R"({"request":{"type":"%61")";
    for (int i = 0; i < 200000; ++i) {
        request += ",\"k" + std::to_string(i) + "\":\"%31\"";
    }
    reader.feed(request + ",\"k7\":\"%32\"}}");
    ASSERT_EQ(reader.requests.size(), 1u);
    EXPECT_EQ(reader.requests[0]->arguments()->size(), 200000u);
    EXPECT_EQ(*reader.requests[0]->arguments()->findString("k7"), "2") << "a later duplicate wins";

    LogCapture log{LogCapture::Echo::Silenced};
    std::string streams = R"({"file":{"length":1)";
    for (int i = 0; i < 100000; ++i) {
        streams += R"(,"stream":xy)";
    }
    reader.feed(streams + "}}");
    ASSERT_EQ(reader.files.size(), 1u);
    EXPECT_EQ(log.count("STREAM di lunghezza 1"), 100000u);

    Reader xml(XML);
    std::string element = R"(<request type="%61")";
    for (int i = 0; i < 200000; ++i) {
        element += " a" + std::to_string(i % 150000) + "=\"%31\"";
    }
    xml.feed(element + "></request>");
    ASSERT_EQ(xml.requests.size(), 1u);
    EXPECT_EQ(xml.requests[0]->arguments()->size(), 150000u);
}

// Bytes skipped between messages and stream content are not held: 20 MiB of each stay under the limit.
TEST(VXTranslatorLimits, translateBytes_skippedBytesAndStreamContent_costNothing) {
    for (const std::uint32_t protocol : {JSON, XML}) {
        Reader reader(protocol);
        reader.translator.setStreamSink(std::make_shared<VXDiscardingStreamSink>());
        const auto feed20MiB = [&](char c) {
            for (int i = 0; i < 20; ++i) {
                reader.feed(std::string(1 << 20, c));
            }
        };
        if (protocol == JSON) {
            feed20MiB(' ');
            reader.feed(R"j({"file":{"length":20971520,"stream":)j");
            feed20MiB('}');
            reader.feed(" }}5 "); // a top-level bare value: what follows is skipped
            feed20MiB('g');
        } else {
            feed20MiB('j');
            reader.feed(R"j(<file name="%61" length=")j" + E("20971520") + R"j(">)j");
            feed20MiB('<');
            reader.feed(R"j(</file><info subject="%61">%62</info>)j");
        }
        EXPECT_FALSE(reader.translator.hasExceededLimit()) << protocol;
        ASSERT_EQ(reader.calls.size(), 1u) << protocol;
        EXPECT_EQ(reader.calls[0].substr(0, 4), protocol == JSON ? "file" : "info");
    }
}

} // namespace
