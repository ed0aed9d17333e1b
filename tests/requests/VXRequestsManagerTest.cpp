#include "requests/VXRequestsManager.h"
#include "VXHVersion.h"
#include "phone/VXPhoneDecoder.h"
#include "protocol/VXRequest.h"
#include "requests/VXRequestsClient.h"
#include "support/FakeSystem.h"
#include "sysinfo/VXSystemInfo.h"

#include <filesystem>
#include <fstream>

namespace {

constexpr std::uint32_t kXML = VXRequestsManager::kProtocolXML;
constexpr std::uint32_t kJSON = VXRequestsManager::kProtocolJSON;

class FixedVersionClient : public VXRequestsClient {
public:
    std::optional<std::string> version;
    std::optional<std::string> getVersion() const override { return version; }
};

std::string text(const std::vector<std::uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

std::vector<VXPhoneMessage> decode(const std::vector<std::uint8_t>& bytes) {
    return VXPhoneDecoder::decodeAll(text(bytes));
}

PZDictionary arguments(std::initializer_list<std::pair<std::string, std::string>> entries) {
    PZDictionary dictionary;
    for (const auto& [key, value] : entries) {
        dictionary.set(key, value);
    }
    return dictionary;
}

// The names and pids of a decoded JSON process list, in order.
std::vector<std::pair<std::string, double>> processEntries(const VXPhoneMessage& list) {
    std::vector<std::pair<std::string, double>> entries;
    const PZValue* elements = list.fields.find("elements");
    if (!elements || !elements->asArray()) {
        return entries;
    }
    for (const PZValue& element : *elements->asArray()) {
        const std::string* name = element.asDictionary()->findString("name");
        const double* pid = element.asDictionary()->findNumber("pid");
        entries.emplace_back(name ? *name : "", pid ? *pid : 0);
    }
    return entries;
}

class VXRequestsManagerTest : public ::testing::Test {
protected:
    void SetUp() override { manager_->setClient(&client_); }
    void TearDown() override {
        manager_.reset();
        system_.reset();
        std::filesystem::remove_all(home_);
    }

    std::vector<VXPhoneMessage> ask(std::uint32_t protocol, const std::string& type,
                                    std::optional<std::string> requestText = std::nullopt,
                                    std::optional<PZDictionary> requestArguments = std::nullopt) {
        manager_->setProtocol(protocol);
        return decode(
            manager_->manageRequest(VXRequest(type, std::move(requestText), std::move(requestArguments))));
    }

    std::filesystem::path home_ = std::filesystem::temp_directory_path() /
                                  ("vxh-requests-" + std::to_string(::getpid()) + "-" +
                                   ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::unique_ptr<FakeSystem> system_ = std::make_unique<FakeSystem>(home_.string());
    FixedVersionClient client_;
    std::unique_ptr<VXRequestsManager> manager_ = std::make_unique<VXRequestsManager>(system_->systemInfo);
};

TEST(VXRequestsClient, compareWithVersion_comparesPieceByPiece) {
    struct Case {
        const char* a;
        const char* b;
        int expected;
    };
    const Case cases[] = {{"1.10", "1.9", 1}, {"1.2", "1.2.0", 0}, {"2.1", "2.2", -1}, {"", "2.2", -1}};
    for (const auto& c : cases) {
        EXPECT_EQ(VXRequestsClient::compareWithVersion(c.a, c.b), c.expected) << c.a << " vs " << c.b;
    }
}

TEST_F(VXRequestsManagerTest, manageRequest_infoSubjects_answerInEitherEncoding) {
    struct Case {
        std::string subject;
        std::string information;
    };
    const Case cases[] = {
        {"volume", "0.500000"},
        {"brightness", "0.750000"},
        {"os", "Mac Testix 1.0, kernel 6.0-test"},
        {"vx", VXH_VERSION_STRING},
        {"protocol", "json"}, // whatever the session's encoding
        {"homeDirectory", home_.string()},
    };
    for (const std::uint32_t protocol : {kXML, kJSON}) {
        for (const auto& c : cases) {
            const auto messages = ask(protocol, "info", c.subject);
            ASSERT_EQ(messages.size(), 1u) << c.subject;
            EXPECT_EQ(messages[0].encoding,
                      protocol == kJSON ? VXPhoneMessage::Encoding::JSON : VXPhoneMessage::Encoding::XML);
            EXPECT_TRUE(messages[0].isInfo(c.subject));
            EXPECT_EQ(messages[0].string("information"), c.information) << c.subject;
        }
    }
    // The change push compares with what was answered last (0 at the start).
    EXPECT_FLOAT_EQ(manager_->getLastVolumeValueSent(), 0.5f);
    EXPECT_FLOAT_EQ(manager_->getLastBrightnessValueSent(), 0.75f);
    for (const char* subject : {"userName", "fullUserName"}) {
        const auto answer = ask(kJSON, "info", subject);
        ASSERT_EQ(answer.size(), 1u);
        EXPECT_FALSE(answer[0].string("information").value_or("").empty()) << subject;
    }
}

TEST_F(VXRequestsManagerTest, manageRequest_unansweredOrUnknown_emptyOrRecognizeError) {
    EXPECT_TRUE(manager_->manageRequest(VXRequest("info", "device")).empty());
    EXPECT_TRUE(manager_->manageRequest(VXRequest("processList", "Finder")).empty());
    EXPECT_TRUE(manager_->manageRequest(VXRequest("processList")).empty());
    struct Case {
        std::string type;
        std::optional<std::string> text;
    };
    const Case unknown[] = {{"info", "weather"}, {"teleport", "x"}};
    for (const std::uint32_t protocol : {kXML, kJSON}) {
        for (const auto& c : unknown) {
            const auto messages = ask(protocol, c.type, c.text);
            ASSERT_EQ(messages.size(), 1u) << c.type;
            EXPECT_TRUE(messages[0].isError());
            EXPECT_EQ(messages[0].string("message"), "UNABLE_TO_RECOGNIZE_REQEUST_ERROR") << c.type;
            EXPECT_EQ(messages[0].encoding,
                      protocol == kJSON ? VXPhoneMessage::Encoding::JSON : VXPhoneMessage::Encoding::XML);
        }
    }
}

TEST_F(VXRequestsManagerTest, processListUIElement_xmlCountsEntriesWithoutDockJsonDockFromVersion2_2) {
    system_->processes->setProcesses({FakeSystem::running(412, "gedit"), FakeSystem::running(77, "xterm")});
    client_.version = "3.0";
    const auto xml = ask(kXML, "processList", "uIeLeMeNt");
    ASSERT_EQ(xml.size(), 5u);
    EXPECT_TRUE(xml[0].isInfo("NewProcessesList"));
    EXPECT_EQ(xml[0].string("information"), "4");
    const std::vector<std::pair<std::string, double>> expected{
        {"Applications", -2}, {"Mac", -1}, {"gedit", 412}, {"xterm", 77}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(xml[i + 1].kind, "process");
        EXPECT_EQ(xml[i + 1].string("name"), expected[i].first);
        EXPECT_EQ(xml[i + 1].number("pid"), expected[i].second);
    }
    ASSERT_TRUE(manager_->getLastProcessesSent());
    EXPECT_EQ(manager_->getLastProcessesSent()->size(), 2u);

    struct Case {
        std::optional<std::string> version;
        bool dock;
    };
    const Case cases[] = {{"2.2", true}, {"2.1.9", false}, {std::nullopt, false}};
    for (const auto& c : cases) {
        client_.version = c.version;
        const auto json = ask(kJSON, "processList", "UIElement");
        ASSERT_EQ(json.size(), 1u);
        EXPECT_EQ(json[0].kind, "processList");
        EXPECT_EQ(json[0].string("name"), "UIElement");
        auto entries = expected;
        if (c.dock) {
            entries.insert(entries.begin() + 1, {"Dock", -2});
        }
        EXPECT_EQ(processEntries(json[0]), entries) << c.version.value_or("(none)");
    }
}

TEST_F(VXRequestsManagerTest, manageRequest_applicationsAndDockLists_xmlCountsThenProcessesJsonOneList) {
    system_->addApplication("org.example.Editor.desktop", "Editor");
    system_->addApplication("org.example.Atlas.desktop", "Atlas");
    for (const auto& [type, text] :
         {std::pair<std::string, std::string>{"appList", ""}, {"processList", "applications"}}) {
        const auto xml = ask(kXML, type, text);
        ASSERT_EQ(xml.size(), 3u) << type;
        EXPECT_TRUE(xml[0].isInfo("NewApplicationsList"));
        EXPECT_EQ(xml[0].string("information"), "2");
        EXPECT_EQ(xml[1].string("name"), "Atlas");
        EXPECT_EQ(xml[2].string("name"), "Editor");
        EXPECT_EQ(xml[2].number("pid"), 0);

        const auto json = ask(kJSON, type, text);
        ASSERT_EQ(json.size(), 1u);
        EXPECT_EQ(json[0].kind, "processList");
        EXPECT_EQ(json[0].string("name"), "Applications");
        EXPECT_EQ(processEntries(json[0]),
                  (std::vector<std::pair<std::string, double>>{{"Atlas", 0}, {"Editor", 0}}));
    }

    // The dock's list is JSON whatever the session's encoding, named as asked.
    system_->desktop->setFavorites(std::vector<std::string>{"org.example.Editor.desktop", "gone.desktop"});
    const auto messages = ask(kXML, "processList", "dOcK");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].encoding, VXPhoneMessage::Encoding::JSON);
    EXPECT_EQ(messages[0].string("name"), "dOcK");
    EXPECT_EQ(processEntries(messages[0]), (std::vector<std::pair<std::string, double>>{{"Editor", 0}}));

    system_->desktop->setFavorites(std::nullopt);
    const auto none = ask(kJSON, "processList", "Dock");
    ASSERT_EQ(none.size(), 1u);
    EXPECT_TRUE(processEntries(none[0]).empty());
}

TEST_F(VXRequestsManagerTest, manageRequest_processIcon_namedAfterPidOrNameAtTheSizesAsked) {
    system_->processes->setProcesses({FakeSystem::running(412, "gedit")});
    const auto messages = ask(kXML, "processIcon", "412");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].kind, "file");
    EXPECT_EQ(messages[0].string("path"), "412.png");
    EXPECT_EQ(messages[0].string("name"), "412.png");
    EXPECT_EQ(messages[0].string("process"), "412");
    EXPECT_FALSE(messages[0].fields.find("processName"));
    EXPECT_EQ(text(messages[0].stream), "pixels 2x2 64x64 PNG");

    const auto unknown = ask(kXML, "processIcon", "9999");
    ASSERT_EQ(unknown.size(), 1u);
    EXPECT_EQ(unknown[0].string("message"), "UNABLE_TO_SATISFY_REQUEST_ERROR");

    // With a name, at the sizes asked for.
    struct Case {
        std::optional<std::string> size;
        std::optional<std::string> rendered; // nothing: the icon cannot be drawn
    };
    const Case cases[] = {
        {std::nullopt, "64x64"}, {"128", "128x64"}, {"16.5;24", "16x24"}, {"16;x", std::nullopt}};
    for (const auto& c : cases) {
        PZDictionary args = arguments({{"name", "gedit"}});
        if (c.size) {
            args.set("size", *c.size);
        }
        const auto messages = ask(kJSON, "processIcon", "412", args);
        ASSERT_EQ(messages.size(), 1u) << c.size.value_or("(none)");
        if (!c.rendered) {
            EXPECT_EQ(messages[0].string("message"), "UNABLE_TO_SATISFY_REQUEST_ERROR");
            continue;
        }
        EXPECT_EQ(text(messages[0].stream), "pixels 2x2 " + *c.rendered + " PNG")
            << c.size.value_or("(none)");
        EXPECT_EQ(messages[0].string("processName"), "gedit");
        EXPECT_EQ(messages[0].string("process"), "412");
    }
}

TEST_F(VXRequestsManagerTest, manageRequest_appIcon_installedApplicationOrError) {
    const std::string entry = system_->addApplication("org.example.Editor.desktop", "Editor");
    system_->systemInfo->getInstalledApplications();
    const auto messages = ask(kXML, "appIcon", "Editor", arguments({{"size", "32;32"}}));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].kind, "file");
    EXPECT_EQ(messages[0].encoding, VXPhoneMessage::Encoding::XML);
    EXPECT_EQ(messages[0].string("name"), "Editor.png");
    EXPECT_EQ(messages[0].string("application"), "Editor");
    EXPECT_EQ(text(messages[0].stream),
              "file " + (home_ / "icons/org.example.Editor.desktop.png").string() + " 32x32 PNG");

    const auto missing = ask(kJSON, "appIcon", "Nowhere");
    ASSERT_EQ(missing.size(), 1u);
    EXPECT_EQ(missing[0].string("message"), "UNABLE_TO_SATISFY_REQUEST_ERROR");
}

TEST_F(VXRequestsManagerTest, manageRequest_fileIcon_extensionAttributeAndAlwaysJson) {
    system_->addFileTypeIcon("txt");
    struct Case {
        std::string path;
        std::string extension;
        std::string rendered;
    };
    std::ofstream(home_ / "icons/document.png") << "icon";
    const Case cases[] = {
        {"DIR", "DIR", "resource Folder.png 64x64 TIFF"},
        {"/home/u/notes.txt", "txt", "file " + (home_ / "icons/txt.png").string() + " 64x64 TIFF"},
        {"/tmp/README", " ", "file " + (home_ / "icons/document.png").string() + " 64x64 TIFF"},
        // The same fallback icon again: served from the rendered image cache.
        {"/tmp/archive.tar.zz", "zz", "file " + (home_ / "icons/document.png").string() + " 64x64 TIFF"},
    };
    for (const auto& c : cases) {
        const auto messages = ask(kXML, "fileIcon", c.path);
        ASSERT_EQ(messages.size(), 1u) << c.path;
        EXPECT_EQ(messages[0].encoding, VXPhoneMessage::Encoding::JSON);
        EXPECT_EQ(messages[0].kind, "file");
        EXPECT_EQ(messages[0].string("extensionIcon"), c.extension) << c.path;
        EXPECT_EQ(text(messages[0].stream), c.rendered) << c.path;
    }
    std::filesystem::remove(home_ / "icons/document.png");
    EXPECT_TRUE(manager_->manageRequest(VXRequest("fileIcon", "/tmp/README")).empty());
}

TEST_F(VXRequestsManagerTest, manageRequest_directory_listingOrError) {
    std::filesystem::create_directories(home_ / "docs/sub");
    std::ofstream(home_ / "docs/a.txt") << "a";
    const auto listing = ask(kJSON, "directory", (home_ / "docs").string());
    ASSERT_EQ(listing.size(), 1u);
    EXPECT_EQ(listing[0].kind, "directory");
    EXPECT_EQ(listing[0].string("path"), (home_ / "docs").string());
    const PZValue* elements = listing[0].fields.find("elements");
    ASSERT_TRUE(elements && elements->asArray());
    ASSERT_EQ(elements->asArray()->size(), 2u);
    EXPECT_EQ(*(*elements->asArray())[0].asDictionary()->findString("name"), "a.txt");
    EXPECT_EQ(*(*elements->asArray())[1].asDictionary()->findString("type"), "dir");

    const auto missing = ask(kXML, "directory", (home_ / "nowhere").string());
    ASSERT_EQ(missing.size(), 1u);
    EXPECT_EQ(missing[0].string("message"), "UNABLE_TO_SATISFY_REQUEST_ERROR");
    // A listing has no XML form: an XML session gets nothing.
    EXPECT_TRUE(ask(kXML, "directory", (home_ / "docs").string()).empty());
}

TEST_F(VXRequestsManagerTest, manageRequest_screenshot_rectangleDefaultsAndJpeg) {
    struct Case {
        std::optional<std::string> rect;
        VXPixelRect captured;
    };
    const Case cases[] = {{std::nullopt, {0, 0, 320, 200}},
                          {"100;100;0;0", {100, 100, 220, 100}},
                          {"10;20;30;40", {10, 20, 30, 40}},
                          {"10;20;30", {0, 0, 320, 200}}};
    for (const auto& c : cases) {
        std::optional<PZDictionary> args;
        if (c.rect) {
            args = arguments({{"rect", *c.rect}, {"size", "480;320"}});
        }
        const auto messages = ask(kJSON, "screenshot", std::nullopt, args);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].kind, "screenshot");
        ASSERT_GE(messages[0].stream.size(), 2u);
        EXPECT_EQ(messages[0].stream[0], 0xFF); // a JPEG
        EXPECT_EQ(messages[0].stream[1], 0xD8);
        EXPECT_EQ(system_->screen->requested().back(), c.captured) << c.rect.value_or("(none)");
        const PZValue* rect = messages[0].fields.find("rect");
        ASSERT_TRUE(rect && rect->asArray() && rect->asArray()->size() == 4);
        EXPECT_EQ(*(*rect->asArray())[2].asNumber(), c.captured.width);
        EXPECT_EQ(*(*rect->asArray())[3].asNumber(), c.captured.height);
    }
    const auto outside = ask(kJSON, "screenshot", std::nullopt, arguments({{"rect", "1000;1000;10;10"}}));
    ASSERT_EQ(outside.size(), 1u);
    EXPECT_EQ(outside[0].string("message"), "UNABLE_TO_SATISFY_REQUEST_ERROR");
    // Numbers no screen has are held to bounds instead of overflowing the conversion to pixels.
    for (const char* hostile : {"1e300;-1e300;1e300;1e300", "nan;inf;-inf;nan"}) {
        const auto answer = ask(kJSON, "screenshot", std::nullopt, arguments({{"rect", hostile}}));
        ASSERT_EQ(answer.size(), 1u) << hostile;
        const VXPixelRect asked = system_->screen->requested().back();
        EXPECT_LE(std::abs(static_cast<long long>(asked.x)) + asked.width, 1LL << 30) << hostile;
    }
    // A screenshot has no XML form.
    EXPECT_TRUE(ask(kXML, "screenshot").empty());
}

TEST_F(VXRequestsManagerTest, dataFromVolumeAndBrightness_pushRenderedInTheSessionsEncoding) {
    manager_->setProtocol(kXML);
    EXPECT_EQ(text(manager_->dataFromVolumeValue(0.5f)),
              "<info subject=\"%76%6f%6c%75%6d%65\">%30%2e%35%30%30%30%30%30</info>");
    manager_->setProtocol(kJSON);
    const auto messages = decode(manager_->dataFromBrightnessValue(-1.0f));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_TRUE(messages[0].isInfo("brightness"));
    EXPECT_EQ(messages[0].string("information"), "-1.000000");
    manager_->setProtocol(7);
    EXPECT_FALSE(manager_->dataFromUIElementProcesses({}));
    EXPECT_FALSE(manager_->dataFromApplications({}));
}

} // namespace
