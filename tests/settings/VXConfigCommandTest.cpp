#include "ConfigHomeFixture.h"

#include "settings/PZLoginItemsUtility.h"
#include "settings/SettingsManager.h"
#include "settings/SettingsStore.h"
#include "settings/VXConfigCommand.h"

#include <sstream>

namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

class VXConfigCommandTest : public ConfigHomeFixture {
protected:
    static Outcome config(const std::vector<std::string>& args) {
        std::ostringstream out;
        std::ostringstream err;
        Outcome outcome;
        outcome.status = VXConfigCommand::run(args, out, err);
        outcome.out = out.str();
        outcome.err = err.str();
        return outcome;
    }
};

TEST_F(VXConfigCommandTest, list_freshStoreThenControlCharacters_everyKeyOneLineEach) {
    const Outcome listed = config({"list"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.out, "first_time = (not set)\n"
                          "app_id = (not set)\n"
                          "socket port = (not set)\n"
                          "update check = (not set)\n"
                          "connection_password = (not set)\n"
                          "keyboard_input_method = (not set)\n"
                          "lastUpdatesCheck = (not set)\n"
                          "command_key = (not set)\n"
                          "start_at_login = false\n");
    EXPECT_EQ(listed.err, "");
    EXPECT_FALSE(exists(SettingsStore::filePath()));

    // A value with control characters stays on one line.
    ASSERT_EQ(config({"set", "connection_password", "a\nb\\c\td\x01"}).status, 0);
    EXPECT_NE(config({"list"}).out.find("\nconnection_password = a\\nb\\\\c\\td\\x01\n"), std::string::npos);
    EXPECT_EQ(config({"get", "connection_password"}).out, "a\nb\\c\td\x01\n");
}

TEST_F(VXConfigCommandTest, setThenGet_validValues_storedInCanonicalForm) {
    struct Case {
        std::string key;
        std::string value;
        std::string shown;
    };
    const Case cases[] = {
        {"socket port", "65535", "65535"},
        {"keyboard_input_method", "2", "2"},
        {"first_time", "yes", "true"},
        {"update check", "0", "false"},
        {"connection_password", " my pass 100% = ; @x ", " my pass 100% = ; @x "},
        {"command_key", "super", "super"},
        {"lastUpdatesCheck", "2024-05-01T12:00:00+02:00", "2024-05-01T10:00:00.000Z"},
        {"start_at_login", "no", "false"},
        {"start_at_login", "true", "true"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.key + " = " + c.value);
        const Outcome set = config({"set", c.key, c.value});
        EXPECT_EQ(set.status, 0);
        EXPECT_EQ(set.err, "");
        const Outcome got = config({"get", c.key});
        EXPECT_EQ(got.status, 0);
        EXPECT_EQ(got.out, c.shown + "\n");
    }
    // The application reads the last values set.
    EXPECT_EQ(SettingsManager::getSocketPort(), 65535);
    EXPECT_EQ(SettingsManager::getConnectionPassword(), " my pass 100% = ; @x ");
    EXPECT_EQ(SettingsManager::getKeyboardInputMethod(), 2);
    EXPECT_EQ(SettingsManager::getCommandKey(), "super");
    EXPECT_TRUE(SettingsManager::startAtLogin());
}

TEST_F(VXConfigCommandTest, unset_storedValues_reportedAsNotSet) {
    ASSERT_EQ(config({"set", "connection_password", "secret"}).status, 0);
    ASSERT_EQ(config({"set", "start_at_login", "true"}).status, 0);
    EXPECT_EQ(config({"unset", "connection_password"}).status, 0);
    EXPECT_EQ(config({"unset", "start_at_login"}).status, 0);
    EXPECT_EQ(config({"unset", "app_id"}).status, 0);

    const Outcome got = config({"get", "connection_password"});
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.out, "");
    EXPECT_NE(got.err.find("\"connection_password\" is not set"), std::string::npos) << got.err;
    EXPECT_FALSE(PZLoginItemsUtility::isInLoginItems());
    EXPECT_NE(config({"list"}).out.find("connection_password = (not set)\n"), std::string::npos);
}

TEST_F(VXConfigCommandTest, run_badInput_failsWithStatusAndMessageWritingNothing) {
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
    };
    const Case cases[] = {
        {{}, 2, "usage: velorixhelper config"},
        {{"frobnicate"}, 2, "usage:"},
        {{"list", "extra"}, 2, "usage:"},
        {{"get"}, 2, "usage:"},
        {{"set", "nope", "1"}, 2, "\"socket port\" \"update check\""},
        {{"set", "socket port", "12a"}, 2, "invalid value \"12a\" for \"socket port\""},
        {{"set", "keyboard_input_method", "3"}, 2, "expected 1 or 2"},
        {{"set", "first_time", "maybe"}, 2, "expected true or false"},
        {{"set", "start_at_login", "2"}, 2, "expected true or false"},
        {{"set", "command_key", "meta"}, 2, "expected one of control super alt"},
        {{"set", "lastUpdatesCheck", "yesterday"}, 2, "ISO 8601"},
        {{"get", "connection_password"}, 1, "is not set"},
    };
    const auto check = [](const std::vector<std::string>& args, int status, const std::string& message) {
        std::string joined;
        for (const std::string& arg : args)
            joined += "[" + arg + "]";
        const Outcome outcome = config(args);
        EXPECT_EQ(outcome.status, status) << joined;
        EXPECT_NE(outcome.err.find(message), std::string::npos) << joined << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "") << joined;
    };
    for (const Case& c : cases)
        check(c.args, c.status, c.message);
    for (const char* port : {"0", "65536", "+80", "", "99999999999999999999"})
        check({"set", "socket port", port}, 2, "expected an integer from 1 to 65535");
    EXPECT_FALSE(exists(SettingsStore::filePath()));
    EXPECT_FALSE(exists(PZLoginItemsUtility::autostartEntryPath()));
}

TEST_F(VXConfigCommandTest, set_storeFolderBlocked_failsWithStatusOne) {
    writeFile(configHome() + "/VelorixHelper", "a file where the folder belongs");
    const Outcome outcome = config({"set", "socket port", "3000"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("could not write"), std::string::npos) << outcome.err;
}

} // namespace
