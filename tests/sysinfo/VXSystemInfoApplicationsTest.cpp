#include "protocol/VXProcess.h"
#include "sysinfo/VXSystemInfo.h"
#include "sysinfo/fakes/FakeDesktopSettings.h"
#include "sysinfo/fakes/FakeProcessSource.h"
#include "sysinfo/linux/GSettingsDesktopSettings.h"
#include "sysinfo/linux/ProgramOutput.h"

#include "TempTree.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sys/stat.h>
#include <thread>

namespace {

std::string entry(const std::string& keys) {
    return "[Desktop Entry]\nType=Application\n" + keys + "\n";
}

// A user data directory and two system ones, in priority order.
class ApplicationsFixture : public testing::Test {
protected:
    void SetUp() override {
        tree_.write("home/applications/editor.desktop", entry("Name=Zed Editor\nExec=zed"));
        tree_.write("home/applications/calc.desktop", entry("Name=my Calc\nExec=calc"));
        tree_.write("sys1/applications/calc.desktop", entry("Name=Calculator\nExec=calc"));
        tree_.write("sys1/applications/kde/tool.desktop", entry("Name=alpha tool\nExec=/usr/bin/atool %f"));
        tree_.write("sys1/applications/hidden.desktop", entry("Name=Hidden one\nHidden=true"));
        tree_.write("sys1/applications/nodisplay.desktop", entry("Name=Settings helper\nNoDisplay=true"));
        tree_.write("sys1/applications/link.desktop",
                    "[Desktop Entry]\nType=Link\nName=A link\nURL=http://x\n");
        tree_.write("sys1/applications/broken.desktop", std::string("\x00\x01\xff garbage", 11));
        tree_.write("sys1/applications/noname.desktop", entry("Exec=nameless"));
        tree_.write("sys1/applications/readme.txt", entry("Name=Not a desktop file"));
        tree_.write("sys1/applications/.hidden-folder/secret.desktop", entry("Name=Secret"));
        tree_.write("sys2/applications/calc.desktop", entry("Name=Shadowed Calculator"));
        tree_.write("sys2/applications/viewer.desktop",
                    entry("Name=Viewer\nName[de]=Betrachter\nStartupWMClass=Eog\nExec=eog %U\nIcon=viewer"));
        tree_.write("sys2/applications/org.gnome.gedit.desktop",
                    entry("Name=Text Editor\nExec=gedit-wrapper"));

        VXSystemInfoBackEnds backEnds;
        backEnds.dataDirs = {tree_.path("home"), tree_.path("sys1"), tree_.path("sys2")};
        backEnds.processes = processes_;
        backEnds.desktop = desktop_;
        info_ = std::make_unique<VXSystemInfo>(std::move(backEnds));
    }

    static std::vector<std::string> names(const VXSystemInfo::ProcessArray& processes) {
        std::vector<std::string> result;
        for (const auto& process : processes) {
            result.push_back(process->name().value_or("(none)"));
        }
        return result;
    }

    TempTree tree_;
    std::shared_ptr<FakeProcessSource> processes_ = std::make_shared<FakeProcessSource>();
    std::shared_ptr<FakeDesktopSettings> desktop_ = std::make_shared<FakeDesktopSettings>();
    std::unique_ptr<VXSystemInfo> info_;
};

TEST_F(ApplicationsFixture, getInstalledApplications_fixtureTreeThenAnAddedEntry_visibleEntriesSortedByName) {
    const auto applications = info_->getInstalledApplications();
    EXPECT_EQ(names(applications),
              (std::vector<std::string>{"alpha tool", "my Calc", "Text Editor", "Viewer", "Zed Editor"}));
    for (const auto& application : applications) {
        EXPECT_EQ(application->pid(), 0);
    }
    EXPECT_EQ(applications[0]->path(), tree_.path("sys1/applications/kde/tool.desktop"));
    EXPECT_EQ(applications[1]->path(), tree_.path("home/applications/calc.desktop"));

    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // a folder's time stamp can be coarse
    tree_.write("sys2/applications/new/brand-new.desktop", entry("Name=Brand New"));
    const auto again = info_->getInstalledApplications(); // the entry added later is seen
    EXPECT_EQ(again.size(), 6u);
    EXPECT_EQ(names(again)[1], "Brand New");
}

TEST_F(ApplicationsFixture, getInstalledApplications_germanLocale_usesLocalisedNames) {
    const std::optional<std::string> saved =
        std::getenv("LC_ALL") != nullptr ? std::optional<std::string>(std::getenv("LC_ALL")) : std::nullopt;
    setenv("LC_ALL", "de_DE.UTF-8", 1);
    VXSystemInfoBackEnds backEnds;
    backEnds.dataDirs = {tree_.path("sys2")};
    const auto applications = VXSystemInfo(std::move(backEnds)).getInstalledApplications();
    saved ? setenv("LC_ALL", saved->c_str(), 1) : unsetenv("LC_ALL");
    EXPECT_EQ(names(applications),
              (std::vector<std::string>{"Betrachter", "Shadowed Calculator", "Text Editor"}));
}

TEST_F(ApplicationsFixture, getApplicationsAtPath_anyFolder_recursesInNameOrderThroughLinkLoops) {
    EXPECT_EQ(names(info_->getApplicationsAtPath(tree_.path("sys1/applications"))),
              (std::vector<std::string>{"Calculator", "alpha tool"}));
    EXPECT_EQ(names(info_->getApplicationsAtPath(tree_.path("sys1/applications/"))).size(), 2u);
    EXPECT_TRUE(info_->getApplicationsAtPath(tree_.path("nowhere")).empty());
    EXPECT_TRUE(info_->getApplicationsAtPath(tree_.path("sys1/applications/calc.desktop")).empty());
    const std::string folder = tree_.folder("loop/applications/a");
    ASSERT_EQ(symlink("..", (folder + "/up").c_str()), 0);
    tree_.write("loop/applications/a/app.desktop", entry("Name=In a loop"));
    EXPECT_EQ(names(info_->getApplicationsAtPath(tree_.path("loop"))),
              (std::vector<std::string>{"In a loop"}));
}

TEST_F(ApplicationsFixture, getDockApplications_favourites_resolvedToEntriesInOrder) {
    desktop_->setFavorites(std::vector<std::string>{
        "viewer.desktop", "uninstalled.desktop", "kde-tool.desktop", "hidden.desktop", "../../etc/passwd"});
    const auto dock = info_->getDockApplications();
    ASSERT_TRUE(dock);
    EXPECT_EQ(names(*dock), (std::vector<std::string>{"Viewer", "alpha tool", "Hidden one"}));
    EXPECT_EQ((*dock)[0]->path(), tree_.path("sys2/applications/viewer.desktop"));
    EXPECT_EQ((*dock)[0]->pid(), 0);

    desktop_->setFavorites(std::vector<std::string>{});
    ASSERT_TRUE(info_->getDockApplications());
    EXPECT_TRUE(info_->getDockApplications()->empty());
    desktop_->setFavorites(std::nullopt); // no setting: nothing
    EXPECT_FALSE(info_->getDockApplications());
    EXPECT_FALSE(VXSystemInfo(VXSystemInfoBackEnds{}).getDockApplications());
}

TEST_F(ApplicationsFixture, getUIElementProcesses_runningPrograms_namesFromExecutableTitlesFromEntries) {
    LogCapture log;
    processes_->setProcesses({
        {4101, "eog", "eog", "Eog", "photo.jpg"},     // StartupWMClass
        {4102, "gedit", "gedit", "Gedit", "notes"},   // last part of a reverse-DNS id
        {77, "", "x", "X", "t"},                      // no name: logged and left out
        {4103, "atool", "whatever", "Whatever", "t"}, // Exec program
        {4104, "calc", "calc", "Calc", "1+1"},        // id, the user's entry winning
        {4105, "xterm", "xterm", "XTerm", "shell"},   // no entry: the window class
        {4106, "python3", "", "", "untitled"},        // nothing at all: the executable
    });
    const auto processes = info_->getUIElementProcesses();
    ASSERT_EQ(processes.size(), 6u);
    const std::vector<std::string> titles{"Viewer",  "Text Editor", "alpha tool",
                                          "my Calc", "XTerm",       "python3"};
    for (size_t i = 0; i < processes.size(); ++i) {
        EXPECT_EQ(processes[i]->pid(), 4101 + static_cast<int>(i));
        EXPECT_EQ(processes[i]->mainWindowTitle(), titles[i]) << i;
    }
    EXPECT_EQ(processes[0]->name(), "eog");
    EXPECT_FALSE(processes[0]->path());
    EXPECT_EQ(log.countContaining("Error: there is no name for process 77"), 1u);
}

TEST_F(ApplicationsFixture, getProcessWithPSN_serialNumbers_processComputerOrNothing) {
    processes_->setProcesses({{4242, "eog", "eog", "Eog", "photo.jpg"}});
    EXPECT_EQ(info_->getProcessWithPSN(0), nullptr);
    EXPECT_EQ(info_->getProcessWithPSN(0x700000000LL), nullptr); // low word 0
    for (std::int64_t computer : {std::int64_t{-1}, std::int64_t{0xFFFFFFFF}}) {
        const auto mac = info_->getProcessWithPSN(computer);
        ASSERT_NE(mac, nullptr);
        EXPECT_EQ(mac->name(), "Mac");
        EXPECT_EQ(mac->pid(), -1);
    }
    const auto eog = info_->getProcessWithPSN(4242);
    ASSERT_NE(eog, nullptr);
    EXPECT_EQ(eog->name(), "eog");
    EXPECT_EQ(eog->mainWindowTitle(), "Viewer");
    EXPECT_EQ(info_->getProcessWithPSN(4243), nullptr);
    EXPECT_EQ(info_->processNameForPid(4242), "eog");
    EXPECT_EQ(info_->processNameForPid(5), std::nullopt);
}

TEST(GSettingsDesktopSettingsTest, parseStringArray_printedVariants_stringsOrNothing) {
    using Strings = std::vector<std::string>;
    const struct {
        const char* text;
        std::optional<Strings> expected;
    } cases[] = {
        {"['firefox-esr.desktop', 'org.gnome.Nautilus.desktop']\n",
         Strings{"firefox-esr.desktop", "org.gnome.Nautilus.desktop"}},
        {"@as []\n", Strings{}},
        {"['it\\'s.desktop', \"dq'.desktop\"]", Strings{"it's.desktop", "dq'.desktop"}},
        {"['a.desktop',]", std::nullopt},
        {"['a.desktop' 'b.desktop']", std::nullopt},
        {"['unterminated]", std::nullopt},
        {"", std::nullopt},
        {"[42]", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GSettingsDesktopSettings::parseStringArray(c.text), c.expected) << c.text;
    }
    EXPECT_EQ(GSettingsDesktopSettings::parseString("'Adwaita'\n"), "Adwaita");
    EXPECT_EQ(GSettingsDesktopSettings::parseString("'a' trailing"), std::nullopt);
}

TEST(GSettingsDesktopSettingsTest,
     favoriteDesktopIds_standInPrograms_runWithArgumentVectorOnlySuccessCounts) {
    TempTree tree;
    const std::string arguments = tree.path("arguments");
    const std::string program =
        tree.write("fake-gsettings", "#!/bin/sh\nprintf '%s|' \"$@\" > '" + arguments +
                                         "'\necho \"['one.desktop', 'two.desktop']\"\n");
    chmod(program.c_str(), 0755);
    EXPECT_EQ(GSettingsDesktopSettings(program).favoriteDesktopIds(),
              (std::vector<std::string>{"one.desktop", "two.desktop"}));
    std::ifstream in(arguments);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "get|org.gnome.shell|favorite-apps|");

    LogCapture log;
    // The ways a program fails are ProgramOutput's; one of them here.
    EXPECT_FALSE(GSettingsDesktopSettings(tree.path("missing-program")).favoriteDesktopIds());
    EXPECT_GE(log.countContaining("The desktop keeps no favourite applications"), 1u);
    // Where GNOME Shell is not installed, the real gsettings has no such schema.
    if (std::system("gsettings list-schemas 2>/dev/null | grep -qx org.gnome.shell") != 0 &&
        std::system("command -v gsettings >/dev/null 2>&1") == 0) {
        EXPECT_FALSE(GSettingsDesktopSettings().favoriteDesktopIds());
    }
}

TEST(ProgramOutputTest, run_programs_outputOnlyOnSuccess) {
    using namespace std::chrono_literals;
    EXPECT_EQ(ProgramOutput::run({"printf", "%s", "a;b $(x) `y`"}), "a;b $(x) `y`"); // no shell
    EXPECT_EQ(ProgramOutput::run({"false"}), std::nullopt);
    EXPECT_EQ(ProgramOutput::run({"/nonexistent/program"}), std::nullopt);
    EXPECT_EQ(ProgramOutput::run({}), std::nullopt);
    EXPECT_EQ(ProgramOutput::run({"head", "-c", "100000", "/dev/zero"}, 3s, 1000)->size(), 1000u);
    // Ended at the timeout: a sleep run to its end would have printed nothing and succeeded ("").
    EXPECT_EQ(ProgramOutput::run({"sleep", "10"}, 100ms), std::nullopt);
}

} // namespace
