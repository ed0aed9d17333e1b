#include <gtest/gtest.h>

#include <clocale>
#include <functional>

#include "ProtocolTestSupport.h"
#include "protocol/PZValue.h"
#include "protocol/VXRequestFactory.h"

namespace {

// "type text" and " key=value" for each argument; "<none>" for no text, " noargs" for no arguments.
std::string describe(const VXRequest& request) {
    std::string out = request.type() + " " + request.text().value_or("<none>");
    if (!request.arguments()) {
        return out + " noargs";
    }
    for (std::size_t i = 0; i < request.arguments()->size(); ++i) {
        const auto& key = request.arguments()->keyAt(i);
        out += " " + key + "=" + *request.arguments()->findString(key);
    }
    return out;
}

// Every request of the factory, in a German locale (sizes keep their point). Each is made twice: nothing
// is recorded as sent, so no duplicate is ever refused.
TEST(VXRequestFactory, requestFor_everyRequestInAGermanLocale_hasItsTypeTextAndArguments) {
    using Make = std::function<std::shared_ptr<VXRequest>(VXRequestFactory&)>;
    const VXProcess gedit("gedit", 4321);
    const std::pair<Make, std::string> cases[] = {
        {[](auto& f) { return f.requestForPassword(); }, "password start_connection noargs"},
        {[](auto& f) { return f.requestForProtocolInfo(); }, "info protocol noargs"},
        {[](auto& f) { return f.requestForAppInfo(); }, "info app noargs"},
        {[](auto& f) { return f.requestForAppVersionInfo(); }, "info version noargs"},
        {[](auto& f) { return f.requestForOSInfo(); }, "info os noargs"},
        {[](auto& f) { return f.requestForVXInfo(); }, "info vx noargs"},
        {[](auto& f) { return f.requestForDeviceInfo(); }, "info device noargs"},
        {[](auto& f) { return f.requestForVolumeInfo(); }, "info volume noargs"},
        {[](auto& f) { return f.requestForUIElementProcessList(); }, "processList UIElement noargs"},
        {[&](auto& f) {
             return f.requestForProcessIconSize(gedit, VXSize{32, 48});
         },
         "processIcon 4321 size=32.000000;48.000000 name=gedit"},
        {[](auto& f) { return f.requestForApplicationList(); }, "appList <none> noargs"},
        {[&](auto& f) {
             return f.requestForApplicationIconSize(gedit, VXSize{64, 64.5});
         },
         "appIcon gedit size=64.000000;64.500000"},
        {[](auto& f) { return f.requestForDirectoryInfo("/home/u"); }, "directory /home/u noargs"},
        {[](auto& f) { return f.requestForFileAtPath("/etc/os-release"); }, "file /etc/os-release noargs"},
    };
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    VXRequestFactory factory;
    for (const auto& [make, expected] : cases) {
        const auto first = make(factory);
        const auto second = make(factory);
        ASSERT_TRUE(first && second) << expected;
        EXPECT_EQ(describe(*first), expected);
        EXPECT_TRUE(first->isEqualToRequest(*second)) << expected;
    }
    EXPECT_TRUE(factory.sentRequests().empty());
    EXPECT_EQ(factory.requestWithTypeTextArguments(std::nullopt, "x"), nullptr);
    EXPECT_FALSE(factory.isRequestSent(VXRequest("info", "os")));
    std::setlocale(LC_ALL, previous.c_str());
}

} // namespace
