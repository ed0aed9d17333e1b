#include "sysinfo/VXIconThemeLookup.h"

#include "IconFixture.h"

#include <gtest/gtest.h>

namespace {

class VXIconThemeLookupTest : public testing::Test {
protected:
    std::string lookUp(const std::vector<std::string>& names, int size) {
        const auto path = lookup_.findIcon(names, size);
        if (!path) {
            return "(none)";
        }
        const std::string base = fixture_.tree().path() + "/";
        return path->starts_with(base) ? path->substr(base.size()) : *path;
    }

    IconFixture fixture_;
    VXIconThemeLookup lookup_{"TestTheme", fixture_.iconDirs()};
};

TEST_F(VXIconThemeLookupTest, findIcon_namesAndSizes_freedesktopLookupOrder) {
    const struct {
        std::vector<std::string> names;
        int size;
        const char* found;
    } cases[] = {
        {{"app-one"}, 16, "icons/TestTheme/16x16/apps/app-one.png"},
        {{"app-one"}, 64, "icons/TestTheme/scalable/apps/app-one.svg"}, // the scalable folder matches 8..512
        {{"fixed-only"}, 40, "icons/TestTheme/48x48/apps/fixed-only.png"}, // closest size
        {{"both"}, 48, "icons/TestTheme/48x48/apps/both.png"},             // PNG before SVG in one folder
        {{"text-x-generic"}, 50, "icons/TestTheme/48x48/mimetypes/text-x-generic.png"}, // within threshold
        {{"text-x-generic"}, 200, "icons/TestTheme/48x48/mimetypes/text-x-generic.png"},
        {{"parent-icon"}, 32, "icons/ParentTheme/32x32/apps/parent-icon.png"},  // inherited
        {{"hicolor-app"}, 48, "icons/hicolor/48x48/apps/hicolor-app.png"},      // the fallback theme
        {{"legacy-icon"}, 48, "pixmaps/legacy-icon.png"},                       // unthemed
        {{"missing", "app-one"}, 16, "icons/TestTheme/16x16/apps/app-one.png"}, // first name found
        {{""}, 48, "(none)"},
        {{"../TestTheme/16x16/apps/app-one"}, 16, "(none)"}, // names never leave the theme folders
        {{"app-one.png"}, 16, "(none)"},
        {{"app-one"}, -5, "icons/TestTheme/scalable/apps/app-one.svg"}, // clamped to 1: closest is 8..512
        {{"app-one"}, 1 << 30, "icons/TestTheme/scalable/apps/app-one.svg"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(lookUp(c.names, c.size), c.found) << c.names.front() << " at " << c.size;
        // The kept answer.
        EXPECT_EQ(lookUp(c.names, c.size), c.found) << c.names.front() << " at " << c.size;
    }
}

TEST_F(VXIconThemeLookupTest, findIcon_absolutePath_takenWhenItExists) {
    const std::string file = fixture_.tree().path("pixmaps/legacy-icon.png");
    EXPECT_EQ(lookup_.findIcon({file}, 48), file);
    EXPECT_EQ(lookUp({"/nonexistent/icon.png", "app-one"}, 48), "icons/TestTheme/48x48/apps/app-one.png");
    EXPECT_EQ(lookup_.findIcon({fixture_.tree().path("icons")}, 48), std::nullopt); // a folder is not an icon
}

TEST_F(VXIconThemeLookupTest, findIcon_hostileThemeNameOrBrokenIndex_fallsBackToHicolor) {
    fixture_.tree().write("icons/Broken/index.theme",
                          std::string("[Icon Theme]\nInherits=Broken,Broken\nDirectories=a,,../x,") +
                              std::string(5000, ',') + "\n[a]\nSize=abc\n[../x]\nSize=48\n");
    fixture_.tree().write("icons/x/app-one.png", "");
    for (const char* name : {"../icons/TestTheme", "/etc", "Missing Theme", "Broken"}) {
        VXIconThemeLookup lookup(name, fixture_.iconDirs());
        EXPECT_EQ(lookup.findIcon({"app-one"}, 48), std::nullopt) << name;
        EXPECT_TRUE(lookup.findIcon({"hicolor-app"}, 48).has_value()) << name;
    }
    EXPECT_EQ(VXIconThemeLookup().themeName(), "Adwaita"); // no theme set
    EXPECT_EQ(VXIconThemeLookup().baseDirectories().back(), "/usr/share/pixmaps");
}

} // namespace
