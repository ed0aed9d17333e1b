#include "sysinfo/VXDesktopEntry.h"

#include "TempTree.h"

#include <gtest/gtest.h>

namespace {

std::optional<VXDesktopEntry> parse(const std::string& text, const std::string& locale = {}) {
    return VXDesktopEntry::parse(text, "/x/app.desktop", "app.desktop", locale);
}

TEST(VXDesktopEntryTest, parse_localisedNames_takesBestMatchForLocale) {
    const std::string text = "[Desktop Entry]\n"
                             "Name[de]=Rechner (de)\n"
                             "Name[de_CH]=Rechner (CH)\n"
                             "Name=Calculator\n"
                             "Name[sr]=Kalkulator (sr)\n"
                             "Name[sr@latin]=Kalkulator (latin)\n"
                             "Name[pt_BR@x]=Calculadora (br x)\n"
                             "Type=Application\n";
    const struct {
        const char* locale;
        const char* name;
    } cases[] = {{"", "Calculator"},
                 {"de_CH.UTF-8", "Rechner (CH)"},
                 {"de_AT.UTF-8", "Rechner (de)"},
                 {"sr_RS@latin", "Kalkulator (latin)"},
                 {"pt_BR.UTF-8@x", "Calculadora (br x)"},
                 {"pt_BR", "Calculator"}};
    for (const auto& c : cases) {
        const auto entry = parse(text, c.locale);
        ASSERT_TRUE(entry) << c.locale;
        EXPECT_EQ(entry->name(), c.name) << c.locale;
    }
}

TEST(VXDesktopEntryTest, parse_fields_readFromMainGroupOnly) {
    const auto entry = parse("# comment\n"
                             "Name=Before the group\n"
                             "[Desktop Entry]\r\n"
                             "Type = Application\r\n"
                             "Name=Text\\sEditor\\\\2\r\n"
                             "Icon=accessories-text-editor\n"
                             "Exec=/usr/bin/gedit %U\n"
                             "StartupWMClass=Gedit\n"
                             "NoDisplay=false\n"
                             "\n"
                             "[Desktop Action new-window]\n"
                             "Name=New Window\n"
                             "Exec=gedit --new-window\n"
                             "[Desktop Entry]\n"
                             "Name=Second main group\n");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->type(), "Application");
    EXPECT_EQ(entry->name(), "Text Editor\\2");
    EXPECT_EQ(entry->icon(), "accessories-text-editor");
    EXPECT_EQ(entry->exec(), "/usr/bin/gedit %U");
    EXPECT_EQ(entry->startupWMClass(), "Gedit");
    EXPECT_TRUE(entry->isListedApplication());
}

TEST(VXDesktopEntryTest, parse_hostileText_neverFailsBadly) {
    std::string binary = "[Desktop Entry]\nName=Bin";
    for (int i = 0; i < 256; ++i) {
        binary.push_back(static_cast<char>(i));
    }
    const struct {
        const char* what;
        std::string text;
        bool parses;
        std::string name;
    } cases[] = {
        {"empty", "", false, ""},
        {"only a bracket", "[", false, ""},
        {"invalid UTF-8 in the name", "[Desktop Entry]\nName=caf\xC3\x28 \xFF\xFE end\n", true,
         "caf\xEF\xBF\xBD( \xEF\xBF\xBD\xEF\xBF\xBD end"},
        {"surrogate encoded", "[Desktop Entry]\nName=\xED\xA0\x80\n", true,
         "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"unterminated locale", "[Desktop Entry]\nName[de=X\nName=Y\n", true, "Y"},
        {"line without equals", "[Desktop Entry]\nName\nName=Z\n", true, "Z"},
        {"very long line", "[Desktop Entry]\nName=" + std::string(100000, 'n') + "\n", true,
         std::string(100000, 'n')},
        {"trailing backslash", "[Desktop Entry]\nName=ends\\\n", true, "ends\\"},
    };
    for (const auto& c : cases) {
        const auto entry = parse(c.text);
        EXPECT_EQ(entry.has_value(), c.parses) << c.what;
        if (entry && !c.name.empty()) {
            EXPECT_EQ(entry->name(), c.name) << c.what;
        }
    }
    const auto withBinary = parse(binary);
    ASSERT_TRUE(withBinary);
    EXPECT_TRUE(withBinary->name().starts_with("Bin\xEF\xBF\xBD")); // the NUL byte replaced
}

TEST(VXDesktopEntryTest, load_fileTooLargeOrMissing_givesNothing) {
    TempTree tree;
    const std::string big =
        tree.write("big.desktop", "[Desktop Entry]\nName=Big\n" + std::string(2 << 20, '#'));
    const std::string small = tree.write("small.desktop", "[Desktop Entry]\nName=Small\n");
    EXPECT_FALSE(VXDesktopEntry::load(big, "big.desktop", ""));
    EXPECT_FALSE(VXDesktopEntry::load(tree.path("missing.desktop"), "missing.desktop", ""));
    EXPECT_FALSE(VXDesktopEntry::load(tree.path(), "folder", ""));
    const auto entry = VXDesktopEntry::load(small, "small.desktop", "");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->path(), small);
    EXPECT_EQ(entry->desktopId(), "small.desktop");
}

TEST(VXDesktopEntryTest, keys_kindsAndExecLines_listedOnlyVisibleApplicationsAndProgramBaseName) {
    const struct {
        const char* keys;
        bool listed;
        const char* program;
    } cases[] = {{"Type=Application\nName=A", true, ""},
                 {"Type=Link\nName=A\nURL=http://x", false, ""},
                 {"Type=Application\nName=A\nNoDisplay=true", false, ""},
                 {"Type=Application\nName=A\nHidden=true", false, ""},
                 {"Type=Application\nName=A\nHidden=yes", true, ""}, // only "true" is true
                 {"Type=Application", false, ""},
                 {"Name=A", false, ""},
                 {"Exec=/usr/bin/gedit %U", false, "gedit"},
                 {"Exec=env GDK_BACKEND=x11 LANG=C /opt/tool/bin/tool --flag", false, "tool"},
                 {"Exec=/usr/bin/env -u X app", false, "app"},
                 {"Exec=\"/opt/My App/run me\" %f", false, "run me"},
                 {"Exec=", false, ""},
                 {"Exec=env", false, ""},
                 {"TryExec=/usr/bin/only-try\nExec=", false, "only-try"}};
    for (const auto& c : cases) {
        const auto entry = parse(std::string("[Desktop Entry]\n") + c.keys + "\n");
        ASSERT_TRUE(entry) << c.keys;
        EXPECT_EQ(entry->isListedApplication(), c.listed) << c.keys;
        EXPECT_EQ(entry->executableName(), c.program) << c.keys;
    }
}

} // namespace
