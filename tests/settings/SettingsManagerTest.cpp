#include "ConfigHomeFixture.h"

#include "settings/SettingsManager.h"
#include "settings/SettingsStore.h"
#include "transport/PZException.h"

namespace {

class SettingsManagerTest : public ConfigHomeFixture {
protected:
    // Points the settings at another, empty installation.
    void useOtherInstallation(const std::string& name) {
        ::setenv("XDG_CONFIG_HOME", (root() + "/" + name).c_str(), 1);
    }
};

TEST_F(SettingsManagerTest,
       checkIsFirstTime_emptyStoreThenAgainThenFirstTimeByHand_defaultsOnlyOnFirstLaunch) {
    EXPECT_FALSE(SettingsManager::checkIsFirstTime());
    EXPECT_EQ(readFreshCopy("first_time").value, "false");
    EXPECT_EQ(SettingsManager::getSocketPort(), 2846);
    EXPECT_TRUE(SettingsManager::checkUpdateAutomatically());
    EXPECT_TRUE(SettingsManager::startAtLogin());
    EXPECT_EQ(readFreshCopy("keyboard_input_method").value, "1");

    // A second call changes nothing.
    SettingsManager::setSocketPort(3000);
    SettingsManager::setCheckUpdateAutomatically(false);
    SettingsManager::setStartAtLogin(false);
    const std::string before = readFile(SettingsStore::filePath());
    EXPECT_FALSE(SettingsManager::checkIsFirstTime());
    EXPECT_EQ(readFile(SettingsStore::filePath()), before);
    EXPECT_FALSE(SettingsManager::startAtLogin());

    // first_time=true written by hand makes it a first launch again.
    writeFile(SettingsStore::filePath(),
              "[General]\nfirst_time=true\nsocket%20port=3000\nupdate%20check=false\n");
    EXPECT_TRUE(SettingsManager::checkIsFirstTime());
    EXPECT_EQ(SettingsManager::getSocketPort(), 2846);
    EXPECT_TRUE(SettingsManager::checkUpdateAutomatically());
    EXPECT_EQ(SettingsStore::getBoolean("first_time"), false);
}

TEST_F(SettingsManagerTest, getKeyboardInputMethod_storedValues_zeroOrMissingRepairedToOne) {
    struct Case {
        std::optional<std::string> stored;
        int expected;
    };
    const Case cases[] = {{std::nullopt, 1}, {"0", 1}, {"2", 2}, {"not a number", 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.stored.value_or("(absent)"));
        if (c.stored) {
            SettingsStore::setString("keyboard_input_method", *c.stored);
        } else {
            SettingsStore::remove("keyboard_input_method");
        }
        EXPECT_EQ(SettingsManager::getKeyboardInputMethod(), c.expected);
        EXPECT_EQ(readFreshCopy("keyboard_input_method").value, std::to_string(c.expected));
    }
}

TEST_F(SettingsManagerTest, getAppId_madeFromTheMillisecondOnceThenStored) {
    constexpr std::int64_t now = 1714557600123;
    const std::string first = SettingsManager::getAppId(now);
    ASSERT_EQ(first.size(), 10u);
    EXPECT_EQ(first.find_first_not_of(SettingsManager::appIdAlphabet), std::string::npos);
    EXPECT_EQ(SettingsManager::getAppId(), first) << "stored, returned unchanged";
    useOtherInstallation("second");
    EXPECT_EQ(SettingsManager::getAppId(now), first) << "the same millisecond in another installation";
    useOtherInstallation("third");
    EXPECT_NE(SettingsManager::getAppId(now + 1), first);

    // glibc's rand() after srand(1) gives 1804289383, 846930886, 1681692777, ...; each modulo 62 indexes
    // the alphabet. 2^32 + 1 milliseconds is cut to the same 32-bit seed.
    for (const std::int64_t milliseconds : {std::int64_t{1}, std::int64_t{4294967297}}) {
        useOtherInstallation("install" + std::to_string(milliseconds));
        EXPECT_EQ(SettingsManager::getAppId(milliseconds), "flRIZbjJS1") << milliseconds;
    }
    writeFile(SettingsStore::filePath(), "[General]\napp_id=handWritten\n");
    EXPECT_EQ(SettingsManager::getAppId(), "handWritten");
}

TEST_F(SettingsManagerTest, lastUpdatesCheck_setAndRemoved_storedAsIsoDate) {
    const SettingsManager::TimePoint when{std::chrono::milliseconds(1714557600250)};
    EXPECT_EQ(SettingsManager::getLastUpdatesCheck(), std::nullopt);
    SettingsManager::setLastUpdatesCheck(when);
    EXPECT_EQ(SettingsManager::getLastUpdatesCheck(), when);
    writeFile(SettingsStore::filePath(), "[General]\nlastUpdatesCheck=2024-05-01T12:00:00.250+02:00\n");
    EXPECT_EQ(SettingsManager::getLastUpdatesCheck(), when);
    SettingsManager::setLastUpdatesCheck(std::nullopt);
    EXPECT_EQ(SettingsManager::getLastUpdatesCheck(), std::nullopt);
}

TEST_F(SettingsManagerTest, getCommandKey_storedValues_unknownReadsAsControl) {
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {std::nullopt, "control"}, {"super", "super"}, {"Super", "control"}};
    for (const auto& [stored, expected] : cases) {
        if (stored) {
            SettingsStore::setString("command_key", *stored);
        } else {
            SettingsStore::remove("command_key");
        }
        EXPECT_EQ(SettingsManager::getCommandKey(), expected) << stored.value_or("(absent)");
    }
    SettingsManager::setCommandKey("alt");
    EXPECT_THROW(SettingsManager::setCommandKey("meta"), PZException);
    EXPECT_EQ(SettingsManager::getCommandKey(), "alt");
}

} // namespace
