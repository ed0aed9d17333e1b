// The phone-side decoder against every message shape the server writes, cut anywhere, and hostile input.

#include <cstdint>
#include <random>

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
    const VXInfo os("os", "Mac Debian GNU/Linux 12 (bookworm), kernel 6.1 \"x\" {}<>");
    add("infoXMLQuotes", text(*os.getXMLData()), "info", "os",
        R"({"info":{"subject":"os","information":"Mac Debian GNU/Linux 12 (bookworm), kernel 6.1 \"x\" {}<>"}})");

    const auto error = VXError::unableToRecognizeRequestError();
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

    const VXScreenshot shot(1700000000.25, {10, 20, 300, 200}, trickyContent());
    add("screenshotJSON", text(shot.getJSONData()), "screenshot", "",
        R"({"screenshot":{"time":1700000000.25,"rect":[10,20,300,200],"length":@N,"stream":{"bytes":@N}}})",
        trickyContent());
    const VXScreenshot noBytes(1, {0, 0, 1, 1}, std::string("/tmp/shot.jpg"));
    add("screenshotJSONWithoutBytes", text(noBytes.getJSONData()), "screenshot", "",
        R"({"screenshot":{"time":1,"rect":[0,0,1,1],"length":0,"stream":{"bytes":0}}})");
    return g;
}

void expectGolden(const Golden& golden, const VXPhoneMessage& message) {
    EXPECT_EQ(message.kind, golden.kind) << golden.name;
    EXPECT_EQ(message.type, golden.type) << golden.name;
    EXPECT_EQ(message.toJSON(), golden.json) << golden.name;
    EXPECT_EQ(message.stream, golden.stream) << golden.name;
}

// Decodes wire cut in two at cut.
std::vector<VXPhoneMessage> decodeCut(VXPhoneDecoder& decoder, std::string_view wire, std::size_t cut) {
    auto messages = decoder.decode(wire.substr(0, cut));
    const auto rest = decoder.decode(wire.substr(cut));
    messages.insert(messages.end(), rest.begin(), rest.end());
    return messages;
}

// Each shape cut in two at every byte (whole at the ends); then all back to back with white space between,
// cut anywhere.
TEST(VXPhoneDecoderTest, decode_everyShapeWholeOrSplitAnywhere_givesFieldsAndStream) {
    const auto all = goldens();
    std::string wire = " \r\n"; // white space between messages is skipped
    for (const auto& golden : all) {
        wire += golden.wire + "\n\t ";
        for (std::size_t cut = 0; cut <= golden.wire.size(); ++cut) {
            VXPhoneDecoder decoder;
            const auto cutMessages = decodeCut(decoder, golden.wire, cut);
            ASSERT_EQ(cutMessages.size(), 1u) << golden.name << " cut at " << cut << ": " << decoder.error();
            expectGolden(golden, cutMessages[0]);
            EXPECT_TRUE(decoder.idle()) << golden.name;
        }
    }
    for (std::size_t cut = 0; cut <= wire.size(); cut += 7) {
        VXPhoneDecoder decoder;
        const auto messages = decodeCut(decoder, wire, cut);
        ASSERT_EQ(messages.size(), all.size()) << "cut at " << cut << ": " << decoder.error();
        for (std::size_t i = 0; i < all.size(); ++i) {
            expectGolden(all[i], messages[i]);
        }
    }
}

// Broken input fails with the reason, holds nothing, and even a good message after it is not read.
TEST(VXPhoneDecoderTest, decode_brokenInput_failsWithReasonAndIgnoresTheRest) {
    const struct {
        const char* name;
        std::string input;
        const char* error; // a part of the expected reason
    } cases[] = {
        {"strayClosingBrace", "{\"a\":[1}", "unbalanced"},
        {"garbageBetweenMessages", "xyz", "between messages"},
        {"deepNesting", "{\"a\":" + std::string(300, '['), "nesting"},
        {"hugeLengthField", "{\"file\":{\"length\":99999999999999999999999,\"stream\":abc",
         "not a byte count"},
        {"lengthBeyondLimit", "{\"file\":{\"length\":600000000,\"stream\":abc", "larger than the limit"},
        {"xmlLengthBeyondLimit", "<file name=\"%61\" length=\"%39%39%39%39%39%39%39%39%39%39\">", "larger"},
        {"xmlNegativeLength", "<file name=\"%61\" length=\"%2d%31\">", "not a byte count"},
        {"xmlEndTagMismatch", "<info subject=\"%61\">%62</error>", "does not match"},
        {"xmlAttributeWithoutQuotes", "<info subject=x>%62</info>", "attribute"},
        {"xmlEndTagNeverCloses", "<info subject=\"%61\">%62<" + std::string(200, '/'), "end tag"},
        {"emptyObject", "{}", "malformed"},
    };
    for (const auto& c : cases) {
        VXPhoneDecoder decoder;
        EXPECT_TRUE(decoder.decode(c.input).empty()) << c.name;
        ASSERT_TRUE(decoder.failed()) << c.name;
        EXPECT_NE(decoder.error().find(c.error), std::string::npos) << c.name << ": " << decoder.error();
        EXPECT_EQ(decoder.bufferedBytes(), 0u) << c.name;
        EXPECT_TRUE(decoder.decode("{\"info\":{\"subject\":\"%61\",\"information\":\"%62\"}}").empty())
            << c.name;
    }
}

TEST(VXPhoneDecoderTest, decode_hugeDeclaredStreamTruncated_holdsOnlyTheBytesReceived) {
    VXPhoneDecoder decoder;
    // 500 MiB declared (within the limit), 10 bytes sent: nothing is allocated for the rest.
    const auto messages = decoder.decode("{\"file\":{\"length\":524288000,\"stream\":0123456789");
    EXPECT_TRUE(messages.empty());
    EXPECT_FALSE(decoder.failed());
    EXPECT_FALSE(decoder.idle());
    EXPECT_LE(decoder.bufferedBytes(), 100u);
}

// A message that never ends, in JSON (braces left open) or XML (content without its end tag), fails at
// the message limit without holding more.
TEST(VXPhoneDecoderTest, decode_messageWithoutEnd_failsAtTheMessageLimit) {
    VXPhoneDecoder::Limits limits;
    limits.maxMessageBytes = 4096;
    for (const char* start : {"{\"info\":{\"subject\":\"", "<info subject=\"%61\">"}) {
        VXPhoneDecoder decoder(limits);
        std::string chunk = start;
        for (int i = 0; i < 100 && !decoder.failed(); ++i) {
            decoder.decode(chunk);
            chunk = std::string(100, start[0] == '{' ? 'a' : '%');
            EXPECT_LE(decoder.bufferedBytes(), limits.maxMessageBytes) << start;
        }
        EXPECT_TRUE(decoder.failed()) << start;
        EXPECT_NE(decoder.error().find("larger than the limit"), std::string::npos)
            << start << decoder.error();
    }
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
