#include "input/linux/DesktopLauncher.h"
#include "input/VXCommandExecute.h"
#include "input/linux/DetachedProcess.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"

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

bool waitForFile(const fs::path& path, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (fs::exists(path)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return fs::exists(path);
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class TemporaryFolder {
public:
    TemporaryFolder() {
        char pattern[] = "/tmp/vxh-launch-XXXXXX";
        path_ = mkdtemp(pattern);
    }
    ~TemporaryFolder() { fs::remove_all(path_); }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
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
    std::istringstream lines(readFile(report));
    std::string fds;
    std::string sid;
    std::string ignored;
    for (int i = 0; i < 3; ++i) {
        std::string fd;
        std::getline(lines, fd);
        fds += fd + " ";
    }
    std::getline(lines, sid);
    std::getline(lines, ignored);
    EXPECT_EQ(fds, "0 1 2 ") << "descriptors of the program";
    EXPECT_NE(std::stol(sid), static_cast<long>(getsid(0)));
    EXPECT_EQ(ignored, "SigIgn:\t0000000000000000");
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
        write(apps / "vxh-fixture.desktop",
              "[Desktop Entry]\nType=Application\nName=Fixture App\nName[de]=Testprogramm\n"
              "Exec=/usr/bin/touch \"" +
                  (out_.path() / "launched by fixture").string() + "\" %U\n");
        write(apps / "sub" / "tool.desktop",
              "[Desktop Entry]\nType=Application\nName=Sub Tool\nNoDisplay=true\n"
              "Exec=touch \"" +
                  (out_.path() / "sub tool").string() + "\"\n");
        write(apps / "hidden.desktop", "[Desktop Entry]\nType=Application\nName=Hidden App\nHidden=true\n"
                                       "Exec=touch " +
                                           (out_.path() / "hidden").string() + "\n");
        write(apps / "literal.desktop", "[Desktop Entry]\nType=Application\nName=Literal\n"
                                        "Exec=touch \"" +
                                            (out_.path() / "x;y $(id)").string() + "\"\n");
        write(apps / "link.desktop", "[Desktop Entry]\nType=Link\nName=Web Link\nURL=https://example.com\n");
        write(opener_,
              "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"" + (out_.path() / "opened.tmp").string() + "\"\nmv \"" +
                  (out_.path() / "opened.tmp").string() + "\" \"" + (out_.path() / "opened").string() +
                  "\"\n",
              true);
    }

    bool launch(const std::string& name) { return launcher_.launchApplication(name); }

    TemporaryFolder data_;
    TemporaryFolder out_;
    fs::path opener_ = out_.path() / "opener";
    DesktopLauncher launcher_{{data_.path().string()}, opener_.string()};
};

TEST_F(DesktopLauncherTest, launchApplication_byNameIdOrProgram_startsTheEntry) {
    for (const char* name : {"Fixture App", "fixture app", "vxh-fixture", "vxh-fixture.desktop"}) {
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

TEST_F(DesktopLauncherTest, launchApplication_hiddenLinkOrUnknown_nothingStarted) {
    EXPECT_FALSE(launch("Hidden App"));
    EXPECT_FALSE(launch("Web Link"));
    EXPECT_FALSE(launch(""));
    EXPECT_FALSE(launch("/nonexistent/app.desktop"));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(fs::exists(out_.path() / "hidden"));
}

TEST_F(DesktopLauncherTest, launchApplication_shellMetacharacters_noShellAndNothingStarted) {
    const std::string pwned = (out_.path() / "pwned").string();
    const std::string names[] = {
        "Fixture App; touch " + pwned, "Fixture App && touch " + pwned,      "$(touch " + pwned + ")",
        "`touch " + pwned + "`",       "Fixture App | touch " + pwned,       "touch " + pwned,
        "Fixture App\ntouch " + pwned, "../../../../usr/bin/touch " + pwned,
    };
    for (const std::string& name : names) {
        EXPECT_FALSE(launch(name)) << name;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(fs::exists(pwned));
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

TEST_F(DesktopLauncherTest, execute_launchCommands_entryStartedHostileNameRefused) {
    VXCommandExecute::Backends backends;
    backends.launcher =
        std::make_shared<DesktopLauncher>(std::vector<std::string>{data_.path().string()}, opener_.string());
    const auto executor = VXCommandExecute::create(backends);
    const auto launch = [&](const std::string& instruction) {
        return executor->execute(VXCommand("launch", VXProcess("", 0), instruction));
    };
    EXPECT_EQ(launch("Fixture App"), nullptr);
    EXPECT_TRUE(waitForFile(out_.path() / "launched by fixture"));
    const fs::path document = out_.path() / "notes.txt";
    write(document, "");
    EXPECT_EQ(launch("\"\" " + document.string()), nullptr);
    ASSERT_TRUE(waitForFile(out_.path() / "opened"));
    EXPECT_EQ(readFile(out_.path() / "opened"), document.string() + "\n");
    const std::string pwned = (out_.path() / "pwned").string();
    EXPECT_EQ(launch("Fixture App; touch " + pwned)->message(), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    EXPECT_EQ(launch("\"\" /nonexistent; touch " + pwned)->message(), "UNABLE_TO_EXECUTE_COMMAND_ERROR");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(fs::exists(pwned));
    EXPECT_TRUE(noChildLeft());
}

} // namespace
