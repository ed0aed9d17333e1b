#include "ConfigHomeFixture.h"

#include "settings/SettingsStore.h"

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class SettingsStoreTest : public ConfigHomeFixture {};

using std::chrono::milliseconds;

TEST_F(SettingsStoreTest, configHome_environmentVariants_followXdgRules) {
    struct Case {
        const char* xdg;
        const char* home;
        std::string expected;
    };
    const Case cases[] = {
        {"/x/conf/", "/h", "/x/conf"},
        {nullptr, "/h/", "/h/.config"},
        {"", "/h", "/h/.config"},
        {"relative/conf", "/h", "/h/.config"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string("XDG_CONFIG_HOME=") + (c.xdg ? c.xdg : "(unset)"));
        if (c.xdg) {
            ::setenv("XDG_CONFIG_HOME", c.xdg, 1);
        } else {
            ::unsetenv("XDG_CONFIG_HOME");
        }
        ::setenv("HOME", c.home, 1);
        EXPECT_EQ(SettingsStore::configHome(), c.expected);
        EXPECT_EQ(SettingsStore::filePath(), c.expected + "/VelorixHelper/VelorixHelper.conf");
    }
}

TEST_F(SettingsStoreTest, setString_hostileValues_readBackExactlyFromTheFile) {
    // One value per class: INI syntax and escapes, control characters, non-ASCII, QSettings' type markers,
    // a list, padding, empty, a zero byte.
    const std::string values[] = {
        "[General] a=b;c #x \"quoted\" \\ 100%",
        "line one\nline two\r\t\x01\x7f",
        "naïve 日本語 😀",
        "@ByteArray(abc)",
        "a, b, c",
        "  padded  ",
        "",
        std::string("nul\0inside", 10),
    };
    for (const std::string& value : values) {
        SCOPED_TRACE("value: " + value);
        ASSERT_TRUE(SettingsStore::setString("connection_password", value));
        EXPECT_EQ(SettingsStore::getString("connection_password"), value);
        const FreshRead fresh = readFreshCopy("connection_password");
        EXPECT_TRUE(fresh.parsed);
        EXPECT_EQ(fresh.value, value);
    }
}

TEST_F(SettingsStoreTest, getString_fileRewrittenWithSameSize_seesEachNewValue) {
    // QSettings alone misses a rewrite of the same size within the same tick of the file system clock; the
    // test gives the rewritten file the previous modification time to make that tick certain.
    const std::string path = SettingsStore::filePath();
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(SettingsStore::setString("socket port", "1000"));
        ASSERT_EQ(SettingsStore::getString("socket port"), "1000");
        struct stat before {};
        ASSERT_EQ(::stat(path.c_str(), &before), 0);
        std::string text = readFile(path);
        const std::string replacement = std::to_string(2000 + i);
        text.replace(text.find("1000"), 4, replacement);
        writeFile(path, text);
        const timespec times[2] = {before.st_atim, before.st_mtim};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
        EXPECT_EQ(SettingsStore::getString("socket port"), replacement) << "round " << i;
    }
}

TEST_F(SettingsStoreTest, setString_writerKilledMidLoop_leavesOneCompleteValue) {
    // Large values make each write long enough for the kill to land inside one.
    constexpr std::size_t length = 256 * 1024;
    ASSERT_TRUE(SettingsStore::setString("connection_password", std::string(length, 'a')));
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const pid_t pid = ::fork();
        if (pid == 0) {
            for (int i = 0;; ++i)
                SettingsStore::setString("connection_password",
                                         std::string(length, static_cast<char>('b' + i % 20)));
        }
        std::this_thread::sleep_for(milliseconds(3 + round % 7 * 4));
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);

        const FreshRead fresh = readFreshCopy("connection_password");
        ASSERT_TRUE(fresh.parsed);
        ASSERT_TRUE(fresh.value.has_value());
        ASSERT_EQ(fresh.value->size(), length);
        EXPECT_EQ(fresh.value->find_first_not_of(fresh.value->front()), std::string::npos);
    }
    // The lock left behind by a killed writer does not block the next one.
    ASSERT_TRUE(SettingsStore::setString("connection_password", "after"));
    EXPECT_EQ(SettingsStore::getString("connection_password"), "after");
}

TEST_F(SettingsStoreTest, setString_emptyLockFilesOfAKilledWriter_removedInsteadOfAwaited) {
    // QLockFile alone waits 30 seconds before taking such files for abandoned.
    ASSERT_TRUE(SettingsStore::setString("socket port", "1000"));
    const std::string path = SettingsStore::filePath();
    for (const std::string& lock : {path + ".lock", path + ".lock.rmlock", path + ".lock.rmlock.rmlock"}) {
        writeFile(lock, "");
        const timespec old[2] = {{0, UTIME_OMIT}, {::time(nullptr) - 2, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, lock.c_str(), old, 0), 0);
    }
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(SettingsStore::setString("socket port", "2000") ? 0 : 1);
    int status = 0;
    for (int waited = 0; waited < 100 && ::waitpid(pid, &status, WNOHANG) == 0; ++waited)
        std::this_thread::sleep_for(milliseconds(100));
    if (::kill(pid, 0) == 0 && ::waitpid(pid, &status, WNOHANG) == 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        FAIL() << "the writer is still waiting for the abandoned lock after 10 seconds";
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(SettingsStore::getString("socket port"), "2000");
    EXPECT_EQ(filesIn(configHome() + "/VelorixHelper"), std::vector<std::string>{"VelorixHelper.conf"});
}

TEST_F(SettingsStoreTest, setString_fromManyThreads_keepsEveryKeysLastValue) {
    constexpr int threads = 4;
    constexpr int writes = 30;
    std::vector<std::thread> workers;
    std::vector<int> mismatches(threads, 0);
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t, &mismatches] {
            const std::string key = "thread " + std::to_string(t);
            for (int i = 0; i < writes; ++i) {
                const std::string value = "value " + std::to_string(t) + "-" + std::to_string(i);
                SettingsStore::setString(key, value);
                if (SettingsStore::getString(key) != value)
                    ++mismatches[static_cast<std::size_t>(t)];
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    for (int t = 0; t < threads; ++t) {
        EXPECT_EQ(mismatches[static_cast<std::size_t>(t)], 0);
        EXPECT_EQ(readFreshCopy("thread " + std::to_string(t)).value,
                  "value " + std::to_string(t) + "-" + std::to_string(writes - 1));
    }
}

} // namespace
