#include <gtest/gtest.h>

#include <clocale>
#include <functional>

#include "ProtocolTestSupport.h"
#include "protocol/PZValue.h"
#include "protocol/VXRequestFactory.h"

namespace {

struct FactoryCase {
    const char* name;
    std::function<std::shared_ptr<VXRequest>(VXRequestFactory&)> make;
    const char* type;
    std::optional<std::string> text;
    std::vector<std::pair<std::string, std::string>> arguments; // empty: no arguments at all
};

std::vector<FactoryCase> factoryCases() {
    const VXProcess gedit("gedit", 4321);
    return {
        {"password", [](auto& f) { return f.requestForPassword(); }, "password", "start_connection", {}},
        {"protocol", [](auto& f) { return f.requestForProtocolInfo(); }, "info", "protocol", {}},
        {"app", [](auto& f) { return f.requestForAppInfo(); }, "info", "app", {}},
        {"version", [](auto& f) { return f.requestForAppVersionInfo(); }, "info", "version", {}},
        {"os", [](auto& f) { return f.requestForOSInfo(); }, "info", "os", {}},
        {"vx", [](auto& f) { return f.requestForVXInfo(); }, "info", "vx", {}},
        {"device", [](auto& f) { return f.requestForDeviceInfo(); }, "info", "device", {}},
        {"volume", [](auto& f) { return f.requestForVolumeInfo(); }, "info", "volume", {}},
        {"uiElements",
         [](auto& f) { return f.requestForUIElementProcessList(); },
         "processList",
         "UIElement",
         {}},
        {"processIcon",
         [gedit](auto& f) {
             return f.requestForProcessIconSize(gedit, VXSize{32, 48});
         },
         "processIcon",
         "4321",
         {{"size", "32.000000;48.000000"}, {"name", "gedit"}}},
        {"appList", [](auto& f) { return f.requestForApplicationList(); }, "appList", std::nullopt, {}},
        {"appIcon",
         [gedit](auto& f) {
             return f.requestForApplicationIconSize(gedit, VXSize{64, 64.5});
         },
         "appIcon",
         "gedit",
         {{"size", "64.000000;64.500000"}}},
        {"directory",
         [](auto& f) { return f.requestForDirectoryInfo("/home/u"); },
         "directory",
         "/home/u",
         {}},
        {"file",
         [](auto& f) { return f.requestForFileAtPath("/etc/os-release"); },
         "file",
         "/etc/os-release",
         {}},
    };
}

void expectFactoryRequests() {
    VXRequestFactory factory;
    for (const auto& c : factoryCases()) {
        const auto first = c.make(factory);
        const auto second = c.make(factory);
        ASSERT_TRUE(first && second) << c.name << ": the duplicate guard never triggers";
        EXPECT_TRUE(first->isEqualToRequest(*second)) << c.name;
        EXPECT_EQ(first->type(), c.type) << c.name;
        EXPECT_EQ(first->text(), c.text) << c.name;
        if (c.arguments.empty()) {
            EXPECT_FALSE(first->arguments()) << c.name;
        } else {
            ASSERT_TRUE(first->arguments()) << c.name;
            ASSERT_EQ(first->arguments()->size(), c.arguments.size()) << c.name;
            for (const auto& [key, value] : c.arguments) {
                ASSERT_TRUE(first->arguments()->findString(key)) << c.name << " " << key;
                EXPECT_EQ(*first->arguments()->findString(key), value) << c.name;
            }
        }
    }
    EXPECT_TRUE(factory.sentRequests().empty());
}

TEST(VXRequestFactory, requestFor_everyRequest_hasItsTypeTextAndArguments) {
    expectFactoryRequests();
}

TEST(VXRequestFactory, requestFor_germanLocale_formatsSizesWithAPoint) {
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    expectFactoryRequests();
    std::setlocale(LC_ALL, previous.c_str());
}

TEST(VXRequestFactory, requestForApplicationList_json_sendsNullText) {
    VXRequestFactory factory;
    const std::string expected =
        R"j({"request":{"type":")j" + vxtest::E("appList") + R"j(","text":"(null)"}})j";
    EXPECT_EQ(vxtest::text(factory.requestForApplicationList()->getJSONData()), expected);
}

TEST(VXRequestFactory, requestWithTypeTextArguments_absentType_givesNothing) {
    VXRequestFactory factory;
    EXPECT_EQ(factory.requestWithTypeTextArguments(std::nullopt, "x"), nullptr);
    EXPECT_FALSE(factory.isRequestSent(VXRequest("info", "os")));
}

} // namespace
