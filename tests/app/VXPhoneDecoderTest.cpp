// The phone-side decoder against every message shape the server writes, split at every byte
// boundary, and against hostile input.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "phone/VXPhoneDecoder.h"
#include "protocol/VXCommand.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXError.h"
#include "protocol/VXFile.h"
#include "protocol/VXInfo.h"
#include "protocol/VXList.h"
#include "protocol/VXProcess.h"
#include "protocol/VXProcessList.h"
#include "protocol/VXRequest.h"
#include "protocol/VXScreenshot.h"
#include "protocol/VXTrackpadCommand.h"

namespace {

std::string text(const std::vector<std::uint8_t>& data) {
    return {data.begin(), data.end()};
}

std::vector<std::uint8_t> bytes(std::string_view s) {
    return {s.begin(), s.end()};
}

// Content that a careless splitter would misread: braces, quotes, angle brackets, zero bytes.
std::vector<std::uint8_t> trickyContent() {
    std::string s = "}}\"{<file></file>\"stream\":";
    s.push_back('\0');
    s += "\xff\x80 end";
    return bytes(s);
}

struct Golden {
    std::string name;
    std::string wire;
    std::string kind;
    std::string type;
    std::string json; // the decoder's JSON form
    std::vector<std::uint8_t> stream;
};

std::vector<Golden> goldens() {
    std::vector<Golden> g;
    const auto add = [&](std::string name, std::string wire, std::string kind, std::string type,
                         std::string json, std::vector<std::uint8_t> stream = {}) {
        // @N stands for the stream's byte count.
        const auto count = std::to_string(stream.size());
        for (auto pos = json.find("@N"); pos != std::string::npos; pos = json.find("@N")) {
            json.replace(pos, 2, count);
        }
        g.push_back({std::move(name), std::move(wire), std::move(kind), std::move(type), std::move(json),
                     std::move(stream)});
    };

    const VXInfo volume("volume", "0.500000");
    add("infoJSON", text(volume.getJSONData()), "info", "volume",
        R"({"info":{"subject":"volume","information":"0.500000"}})");
    add("infoXML", text(*volume.getXMLData()), "info", "volume",
        R"({"info":{"subject":"volume","information":"0.500000"}})");
    const VXInfo os("os", "Mac Debian GNU/Linux 12 (bookworm), kernel 6.1 \"x\" {}<>");
    add("infoXMLQuotes", text(*os.getXMLData()), "info", "os",
        R"({"info":{"subject":"os","information":"Mac Debian GNU/Linux 12 (bookworm), kernel 6.1 \"x\" {}<>"}})");

    const auto error = VXError::unableToRecognizeRequestError();
    add("errorJSON", text(error->getJSONData()), "error", "user",
        R"({"error":{"type":"user","code":0,"message":"UNABLE_TO_RECOGNIZE_REQEUST_ERROR"}})");
    add("errorXML", text(*error->getXMLData()), "error", "user",
        R"({"error":{"type":"user","code":0,"message":"UNABLE_TO_RECOGNIZE_REQEUST_ERROR"}})");

    const VXRequest password("password", "start_connection");
    add("requestXML", text(*password.getXMLData()), "request", "password",
        R"({"request":{"type":"password","text":"start_connection"}})");
    PZDictionary arguments;
    arguments.set("size", PZValue("64.000000;32.000000"));
    arguments.set("SSTime", PZValue(12));
    const VXRequest icon("appIcon", std::nullopt, arguments);
    add("requestJSONNullTextAndArguments", text(icon.getJSONData()), "request", "appIcon",
        R"({"request":{"type":"appIcon","text":"","size":"64.000000;32.000000","SSTime":12}})");

    const VXCommand key("keyboard", VXProcess("gedit", 412), "cmd shift a");
    add("commandJSON", text(key.getJSONData()), "cmd", "keyboard",
        R"({"cmd":{"type":"keyboard","pid":412,"processName":"gedit","instruction":"cmd shift a"}})");
    add("commandXML", text(*key.getXMLData()), "cmd", "keyboard",
        R"({"cmd":{"type":"keyboard","pid":412,"processName":"gedit","instruction":"cmd shift a"}})");

    VXTrackpadCommand pad;
    pad.setTouchState(1);
    pad.setFingers(2);
    pad.setTapCount(1);
    pad.setShift({1.5, -2});
    pad.setZoom(3);
    add("trackpadJSON", text(pad.getJSONData()), "cmd", "trackpad",
        R"({"cmd":{"type":"trackpad","pid":0,"touch":1,"fingers":2,"tapCount":1,"shift":{"x":1.5,"y":-2},"zoom":3}})");
    add("trackpadXML", text(*pad.getXMLData()), "cmd", "trackpad",
        R"({"cmd":{"type":"trackpad","pid":0,"touch":1,"fingers":2,"tapCount":1,"zoom":3,"instruction":"1.50;-2.00"}})");

    VXProcess gedit("gedit", 412);
    gedit.setPath("/usr/share/applications/org.gnome.gedit.desktop");
    gedit.setMainWindowTitle("Text Editor");
    add("processJSON", text(gedit.getJSONData()), "process", "",
        R"({"process":{"name":"gedit","pid":412,"path":"/usr/share/applications/org.gnome.gedit.desktop","mainWindowTitle":"Text Editor"}})");
    add("processXML", text(*gedit.getXMLData()), "process", "", R"({"process":{"pid":412,"name":"gedit"}})");

    VXProcessList processes("UIElement");
    processes.addElement(VXProcess::processWithNamePid("Applications", -2));
    processes.addElement(VXProcess::processWithNamePid("Mac", -1));
    add("processListJSON", text(processes.getJSONData()), "processList", "",
        R"({"processList":{"name":"UIElement","elements":[{"name":"Applications","pid":-2},{"name":"Mac","pid":-1}]}})");

    VXDirectory directory("home");
    directory.setPath("/home/u");
    auto file = std::make_shared<VXFile>();
    file->setName("a.txt");
    directory.addElement(file);
    directory.addElement(VXDirectory::directoryWithName("sub"));
    add("directoryJSON", text(directory.getJSONData()), "directory", "",
        R"({"directory":{"name":"home","path":"/home/u","elements":[{"name":"a.txt","type":"file"},{"name":"sub","type":"dir"}]}})");
    add("emptyListJSON", text(VXList().getJSONData()), "list", "", R"({"list":{"elements":[]}})");

    VXFile iconFile(trickyContent(), "gedit.png");
    iconFile.setOriginalPath("/x/gedit.png");
    iconFile.setName("gedit.png");
    PZDictionary attributes;
    attributes.set("application", PZValue("gedit"));
    iconFile.setAttributes(attributes);
    add("fileJSONWithStream", text(iconFile.getJSONData()), "file", "",
        R"({"file":{"originalPath":"/x/gedit.png","name":"gedit.png","length":@N,"application":"gedit","stream":{"bytes":@N}}})",
        trickyContent());
    add("fileXMLWithStream", text(*iconFile.getXMLData()), "file", "",
        R"({"file":{"path":"gedit.png","name":"gedit.png","length":@N,"application":"gedit","stream":{"bytes":@N}}})",
        trickyContent());
    const VXFile emptyFile(std::vector<std::uint8_t>{}, "empty");
    add("fileJSONEmptyStream", text(emptyFile.getJSONData()), "file", "",
        R"({"file":{"originalPath":"","name":"","length":0,"stream":{"bytes":0}}})");

    const VXScreenshot shot(1700000000.25, {10, 20, 300, 200}, trickyContent());
    add("screenshotJSON", text(shot.getJSONData()), "screenshot", "",
        R"({"screenshot":{"time":1700000000.25,"rect":[10,20,300,200],"length":@N,"stream":{"bytes":@N}}})",
        trickyContent());
    const VXScreenshot noBytes(1, {0, 0, 1, 1}, std::string("/tmp/shot.jpg"));
    add("screenshotJSONWithoutBytes", text(noBytes.getJSONData()), "screenshot", "",
        R"({"screenshot":{"time":1,"rect":[0,0,1,1],"length":0,"stream":{"bytes":0}}})");
    return g;
}

// Test names and failure messages show the case's name, not its bytes.
void PrintTo(const Golden& golden, std::ostream* out) {
    *out << golden.name;
}

void expectGolden(const Golden& golden, const VXPhoneMessage& message) {
    EXPECT_EQ(message.kind, golden.kind) << golden.name;
    EXPECT_EQ(message.type, golden.type) << golden.name;
    EXPECT_EQ(message.toJSON(), golden.json) << golden.name;
    EXPECT_EQ(message.stream, golden.stream) << golden.name;
}

class GoldenTest : public ::testing::TestWithParam<Golden> {};

TEST_P(GoldenTest, decode_wholeMessage_givesFieldsAndStream) {
    const auto& golden = GetParam();
    VXPhoneDecoder decoder;
    const auto messages = decoder.decode(golden.wire);
    ASSERT_FALSE(decoder.failed()) << decoder.error();
    ASSERT_EQ(messages.size(), 1u);
    expectGolden(golden, messages[0]);
    EXPECT_TRUE(decoder.idle());
}

TEST_P(GoldenTest, decode_splitAtEveryByteBoundary_givesTheSameMessage) {
    const auto& golden = GetParam();
    for (std::size_t cut = 0; cut <= golden.wire.size(); ++cut) {
        VXPhoneDecoder decoder;
        auto first = decoder.decode(std::string_view(golden.wire).substr(0, cut));
        const auto second = decoder.decode(std::string_view(golden.wire).substr(cut));
        first.insert(first.end(), second.begin(), second.end());
        ASSERT_EQ(first.size(), 1u) << golden.name << " cut at " << cut << ": " << decoder.error();
        expectGolden(golden, first[0]);
    }
}

TEST_P(GoldenTest, decode_oneByteAtATime_givesTheSameMessage) {
    const auto& golden = GetParam();
    VXPhoneDecoder decoder;
    std::vector<VXPhoneMessage> messages;
    for (const char c : golden.wire) {
        for (auto& m : decoder.decode(std::string_view(&c, 1))) {
            messages.push_back(std::move(m));
        }
    }
    ASSERT_EQ(messages.size(), 1u) << decoder.error();
    expectGolden(golden, messages[0]);
}

INSTANTIATE_TEST_SUITE_P(AllShapes, GoldenTest, ::testing::ValuesIn(goldens()),
                         [](const auto& info) { return info.param.name; });

TEST(VXPhoneDecoderTest, decode_allMessagesBackToBackSplitAnywhere_givesThemInOrder) {
    const auto all = goldens();
    std::string wire;
    for (const auto& g : all) {
        wire += g.wire;
    }
    for (std::size_t cut = 0; cut <= wire.size(); cut += 7) {
        VXPhoneDecoder decoder;
        auto messages = decoder.decode(std::string_view(wire).substr(0, cut));
        const auto rest = decoder.decode(std::string_view(wire).substr(cut));
        messages.insert(messages.end(), rest.begin(), rest.end());
        ASSERT_EQ(messages.size(), all.size()) << "cut at " << cut << ": " << decoder.error();
        for (std::size_t i = 0; i < all.size(); ++i) {
            expectGolden(all[i], messages[i]);
        }
    }
}

TEST(VXPhoneDecoderTest, decode_whiteSpaceBetweenMessages_isSkipped) {
    const auto messages =
        VXPhoneDecoder::decodeAll(" \r\n{\"info\":{\"subject\":\"%61\",\"information\":\"%62\"}}\n\t");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].string("information"), "b");
}

struct HostileCase {
    const char* name;
    std::string input;
    const char* error; // a part of the expected reason
};

void PrintTo(const HostileCase& c, std::ostream* out) {
    *out << c.name;
}

class HostileTest : public ::testing::TestWithParam<HostileCase> {};

TEST_P(HostileTest, decode_brokenInput_failsWithReasonAndIgnoresTheRest) {
    const auto& c = GetParam();
    VXPhoneDecoder decoder;
    const auto messages = decoder.decode(c.input);
    EXPECT_TRUE(messages.empty());
    ASSERT_TRUE(decoder.failed()) << c.name;
    EXPECT_NE(decoder.error().find(c.error), std::string::npos) << decoder.error();
    EXPECT_EQ(decoder.bufferedBytes(), 0u);
    // Once failed, even a good message is not read.
    EXPECT_TRUE(decoder.decode("{\"info\":{\"subject\":\"%61\",\"information\":\"%62\"}}").empty());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HostileTest,
    ::testing::Values(
        HostileCase{"strayClosingBrace", "{\"a\":[1}", "unbalanced"},
        HostileCase{"garbageBetweenMessages", "xyz", "between messages"},
        HostileCase{"topLevelArray", "[1,2]", "between messages"},
        HostileCase{"deepNesting", "{\"a\":" + std::string(300, '['), "nesting"},
        HostileCase{"hugeLengthField", "{\"file\":{\"length\":99999999999999999999999,\"stream\":abc",
                    "not a byte count"},
        HostileCase{"negativeLength", "{\"file\":{\"length\":-5,\"stream\":abc", "not a byte count"},
        HostileCase{"fractionalLength", "{\"file\":{\"length\":1.5,\"stream\":abc", "not a byte count"},
        HostileCase{"lengthBeyondLimit", "{\"file\":{\"length\":600000000,\"stream\":abc",
                    "larger than the limit"},
        HostileCase{"xmlLengthBeyondLimit", "<file name=\"%61\" length=\"%39%39%39%39%39%39%39%39%39%39\">",
                    "larger"},
        HostileCase{"xmlNegativeLength", "<file name=\"%61\" length=\"%2d%31\">", "not a byte count"},
        HostileCase{"xmlEndTagMismatch", "<info subject=\"%61\">%62</error>", "does not match"},
        HostileCase{"xmlAttributeWithoutQuotes", "<info subject=x>%62</info>", "attribute"},
        HostileCase{"xmlEndTagNeverCloses", "<info subject=\"%61\">%62<" + std::string(200, '/'), "end tag"},
        HostileCase{"balancedButMalformed", "{\"a\" \"b\"}", "malformed"},
        HostileCase{"emptyObject", "{}", "malformed"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(VXPhoneDecoderTest, decode_hugeDeclaredStreamTruncated_holdsOnlyTheBytesReceived) {
    VXPhoneDecoder decoder;
    // 500 MiB declared (within the limit), 10 bytes sent: nothing is allocated for the rest.
    const auto messages = decoder.decode("{\"file\":{\"length\":524288000,\"stream\":0123456789");
    EXPECT_TRUE(messages.empty());
    EXPECT_FALSE(decoder.failed());
    EXPECT_FALSE(decoder.idle());
    EXPECT_LE(decoder.bufferedBytes(), 100u);
}

TEST(VXPhoneDecoderTest, decode_unbalancedOpenBraces_failAtTheMessageLimit) {
    VXPhoneDecoder::Limits limits;
    limits.maxMessageBytes = 4096;
    VXPhoneDecoder decoder(limits);
    std::string endless = "{\"info\":{\"subject\":\"";
    for (int i = 0; i < 100 && !decoder.failed(); ++i) {
        decoder.decode(endless);
        endless = std::string(100, 'a');
        EXPECT_LE(decoder.bufferedBytes(), limits.maxMessageBytes);
    }
    EXPECT_TRUE(decoder.failed());
    EXPECT_NE(decoder.error().find("larger than the limit"), std::string::npos);
}

TEST(VXPhoneDecoderTest, decode_xmlContentWithoutEnd_failsAtTheMessageLimit) {
    VXPhoneDecoder::Limits limits;
    limits.maxMessageBytes = 1000;
    VXPhoneDecoder decoder(limits);
    decoder.decode("<info subject=\"%61\">" + std::string(2000, '%'));
    EXPECT_TRUE(decoder.failed());
}

TEST(VXPhoneDecoderTest, decode_streamLengthAfterStream_readsAnEmptyStream) {
    // Without a preceding "length" the stream is empty and the text continues at once.
    const auto messages = VXPhoneDecoder::decodeAll("{\"file\":{\"stream\":,\"length\":3}}");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_TRUE(messages[0].hasStream);
    EXPECT_TRUE(messages[0].stream.empty());
}

TEST(VXPhoneDecoderTest, decode_randomBytes_neverCrashesAndStaysBounded) {
    std::mt19937 random(12345);
    const std::string alphabet = "{}[]\":,<>/=% abcdefgilmnorstu0123456789-\n";
    VXPhoneDecoder::Limits limits;
    limits.maxMessageBytes = 64 * 1024;
    limits.maxStreamBytes = 1024 * 1024;
    for (int round = 0; round < 300; ++round) {
        VXPhoneDecoder decoder(limits);
        // Start most rounds with a valid opening so that the random part reaches deep states.
        std::string input =
            round % 3 == 0 ? "{\"file\":{\"length\":" : (round % 3 == 1 ? "<file length=\"" : "");
        const auto size = 1 + random() % 400;
        for (unsigned i = 0; i < size; ++i) {
            input.push_back(round % 5 == 0 ? static_cast<char>(random() % 256)
                                           : alphabet[random() % alphabet.size()]);
        }
        std::size_t pos = 0;
        while (pos < input.size()) {
            const auto n = 1 + random() % 17;
            decoder.decode(std::string_view(input).substr(pos, n));
            pos += n;
            ASSERT_LE(decoder.bufferedBytes(), input.size() + 8);
        }
    }
}

} // namespace
