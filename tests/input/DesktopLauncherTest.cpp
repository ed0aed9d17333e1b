#include "input/linux/DesktopLauncher.h"
#include "input/linux/DetachedProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

bool waitForFile(const fs::path& path) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!fs::exists(path) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return fs::exists(path);
}

std::string readFile(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class TemporaryFolder {
public:
    ~TemporaryFolder() { fs::remove_all(path_); }
    const fs::path& path() const { return path_; }

private:
    std::string pattern_ = "/tmp/vxh-launch-XXXXXX";
    fs::path path_ = mkdtemp(pattern_.data());
};

void write(const fs::path& path, const std::string& text, bool executable = false) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
    if (executable) {
        fs::permissions(path, fs::perms::owner_all);
    }
}

// A finished child that was never reaped would show up here.
bool noChildLeft() {
    int status = 0;
    return waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD;
}

TEST(DetachedProcessTest, spawn_program_newSessionNoInheritedDescriptorsNoZombie) {
    TemporaryFolder folder;
    const fs::path report = folder.path() / "report";
    // Descriptors opened without close-on-exec must not reach the program.
    const int leaked = open("/dev/null", O_RDONLY);
    int pipeFds[2];
    ASSERT_EQ(pipe(pipeFds), 0);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction previous {};
    sigaction(SIGUSR1, &ignore, &previous);
    std::string error;
    const bool started = DetachedProcess::spawn(
        {"sh", "-c",
         "exec > \"$0.tmp\"; ls /proc/$$/fd; cut -d' ' -f6 /proc/$$/stat; grep SigIgn /proc/$$/status; "
         "mv \"$0.tmp\" \"$0\"",
         report.string()},
        &error);
    sigaction(SIGUSR1, &previous, nullptr);
    close(leaked);
    close(pipeFds[0]);
    close(pipeFds[1]);
    ASSERT_TRUE(started) << error;
    EXPECT_TRUE(noChildLeft());
    ASSERT_TRUE(waitForFile(report));
    std::istringstream in(readFile(report));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 5u) << readFile(report);
    EXPECT_EQ(lines[0] + " " + lines[1] + " " + lines[2], "0 1 2") << "descriptors of the program";
    EXPECT_NE(std::stol(lines[3]), static_cast<long>(getsid(0)));
    EXPECT_EQ(lines[4], "SigIgn:\t0000000000000000");
}

TEST(DetachedProcessTest, spawn_missingOrNotExecutable_falseWithReason) {
    TemporaryFolder folder;
    write(folder.path() / "plain", "#!/bin/sh\n");
    std::string error;
    EXPECT_FALSE(DetachedProcess::spawn({"vxh-no-such-program"}, &error));
    EXPECT_NE(error.find("not found"), std::string::npos) << error;
    EXPECT_FALSE(DetachedProcess::spawn({(folder.path() / "plain").string()}, &error));
    EXPECT_NE(error.find("Permission denied"), std::string::npos) << error;
    EXPECT_FALSE(DetachedProcess::spawn({}, &error));
    EXPECT_TRUE(noChildLeft());
}

class DesktopLauncherTest : public ::testing::Test {
protected:
    DesktopLauncherTest() {
        const fs::path apps = data_.path() / "applications";
        const auto out = [&](const char* name) { return "\"" + (out_.path() / name).string() + "\""; };
        const std::string app = "[Desktop Entry]\nType=Application\n";
        write(apps / "vxh-fixture.desktop",
              app + "Name=Fixture App\nName[de]=Testprogramm\nExec=/usr/bin/touch " +
                  out("launched by fixture") + " %U\n");
        write(apps / "sub" / "tool.desktop",
              app + "Name=Sub Tool\nNoDisplay=true\nExec=touch " + out("sub tool"));
        write(apps / "hidden.desktop", app + "Name=Hidden App\nHidden=true\nExec=touch " + out("hidden"));
        write(apps / "literal.desktop", app + "Name=Literal\nExec=touch " + out("x;y $(id)"));
        write(apps / "link.desktop", "[Desktop Entry]\nType=Link\nName=Web Link\nURL=https://example.com\n");
        write(opener_,
              "#!/bin/sh\nprintf '%s\\n' \"$@\" > " + out("opened.tmp") + "\nmv " + out("opened.tmp") + " " +
                  out("opened") + "\n",
              true);
    }

    bool launch(const std::string& name) { return launcher_.launchApplication(name); }

    TemporaryFolder data_;
    TemporaryFolder out_;
    fs::path opener_ = out_.path() / "opener";
    DesktopLauncher launcher_{{data_.path().string()}, opener_.string()};
};

TEST_F(DesktopLauncherTest, launchApplication_byNameIdOrProgram_startsTheEntry) {
    for (const char* name : {"Fixture App", "fixture app", "vxh-fixture"}) {
        fs::remove(out_.path() / "launched by fixture");
        EXPECT_TRUE(launch(name)) << name;
        EXPECT_TRUE(waitForFile(out_.path() / "launched by fixture")) << name;
    }
    EXPECT_TRUE(launch("sub-tool.desktop")); // a sub-folder's entry, shown or not
    EXPECT_TRUE(waitForFile(out_.path() / "sub tool"));
    EXPECT_TRUE(launch((data_.path() / "applications" / "literal.desktop").string()));
    EXPECT_TRUE(waitForFile(out_.path() / "x;y $(id)")); // Exec arguments reach the program as written
    EXPECT_TRUE(noChildLeft());
}

TEST_F(DesktopLauncherTest, launchApplication_hiddenLinkUnknownOrShellMetacharacters_nothingStarted) {
    const std::string pwned = (out_.path() / "pwned").string();
    const std::string names[] = {
        "Hidden App",
        "Web Link",
        "",
        "/nonexistent/app.desktop",
        "Fixture App; touch " + pwned,
        "../../../../usr/bin/touch " + pwned,
    };
    for (const std::string& name : names) {
        EXPECT_FALSE(launch(name)) << name;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(fs::exists(pwned));
    EXPECT_FALSE(fs::exists(out_.path() / "hidden"));
    EXPECT_FALSE(fs::exists(out_.path() / "launched by fixture"));
}

TEST_F(DesktopLauncherTest, openPath_pathsAndUrls_givenToOpenerAsOneArgument) {
    const fs::path odd = out_.path() / "a file; rm -rf x $(id)";
    write(odd, "");
    EXPECT_TRUE(launcher_.openPath(odd.string()));
    ASSERT_TRUE(waitForFile(out_.path() / "opened"));
    EXPECT_EQ(readFile(out_.path() / "opened"), odd.string() + "\n");
    fs::remove(out_.path() / "opened");
    EXPECT_TRUE(launcher_.openPath("https://example.com/?q=$(id)&x=`id`"));
    ASSERT_TRUE(waitForFile(out_.path() / "opened"));
    EXPECT_EQ(readFile(out_.path() / "opened"), "https://example.com/?q=$(id)&x=`id`\n");
    EXPECT_FALSE(launcher_.openPath((out_.path() / "missing").string()));
    EXPECT_FALSE(launcher_.openPath("--help"));
    EXPECT_TRUE(noChildLeft());
}

} // namespace
