#include "ConfigHomeFixture.h"

#include "settings/PZLoginItemsUtility.h"

namespace {

class PZLoginItemsUtilityTest : public ConfigHomeFixture {};

TEST_F(PZLoginItemsUtilityTest, loginItem_addFindRemove_followsTheAutostartEntry) {
    const std::string entry = configHome() + "/autostart/velorixhelper.desktop";
    EXPECT_EQ(PZLoginItemsUtility::autostartEntryPath(), entry);
    EXPECT_FALSE(PZLoginItemsUtility::isInLoginItems());

    ASSERT_TRUE(PZLoginItemsUtility::addToLoginItems());
    EXPECT_TRUE(PZLoginItemsUtility::isInLoginItems());
    const std::string text = readFile(entry);
    for (const std::string& line : std::vector<std::string>{
             "[Desktop Entry]\n", "\nType=Application\n", "\nName=VelorixHelper\n",
             "\nX-GNOME-Autostart-enabled=true\n",
             "\nExec=" + PZLoginItemsUtility::execValue(PZLoginItemsUtility::runningExecutablePath()) + "\n",
             "\nComment="}) {
        EXPECT_NE(text.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(PZLoginItemsUtility::runningExecutablePath().front(), '/');
    EXPECT_EQ(filesIn(configHome() + "/autostart"), std::vector<std::string>{"velorixhelper.desktop"});

    PZLoginItemsUtility::removeFromLoginItems();
    EXPECT_FALSE(PZLoginItemsUtility::isInLoginItems());
    EXPECT_FALSE(exists(entry));
}

// An entry of another executable (moved, or a second installation) is neither found nor removed.
TEST_F(PZLoginItemsUtilityTest, addToLoginItems_otherAndAwkwardPaths_foundByExactPathOnly) {
    for (const std::string path :
         {"/usr/bin/velorixhelper", "/opt/Velorix Helper/bin/velorixhelper", "/tmp/a\"b'c/$HOME`x`",
          "/tmp/back\\slash", "/tmp/100%/vx", "/tmp/tab\there", "/tmp/new\nline"}) {
        SCOPED_TRACE(path);
        ASSERT_TRUE(PZLoginItemsUtility::addToLoginItems(path));
        EXPECT_TRUE(PZLoginItemsUtility::isInLoginItems(path));
        EXPECT_FALSE(PZLoginItemsUtility::isInLoginItems(path + "2"));
        EXPECT_FALSE(PZLoginItemsUtility::isInLoginItems());
        PZLoginItemsUtility::removeFromLoginItems();
        EXPECT_TRUE(exists(PZLoginItemsUtility::autostartEntryPath()));
    }
    ASSERT_TRUE(PZLoginItemsUtility::addToLoginItems());
    EXPECT_TRUE(PZLoginItemsUtility::isInLoginItems());
}

TEST_F(PZLoginItemsUtilityTest, isInLoginItems_handWrittenEntries_matchOnlyTheMainGroupsExec) {
    const std::string self = PZLoginItemsUtility::runningExecutablePath();
    const std::pair<std::string, bool> cases[] = {
        {"[Desktop Entry]\nExec=" + self + "\n", true},
        {"[Desktop Entry]\r\nName=x\r\nExec = " + self + " --headless %U\r\n", true},
        {"[Desktop Entry]\nExec=\"" + self + "\"\n", true},
        {"[Desktop Action New]\nExec=" + self + "\n", false},
        {"[Desktop Entry]\nTryExec=" + self + "\n", false},
        {"[Desktop Entry]\nExec=/usr/bin/env " + self + "\n", false},
        {"[Desktop Entry]\nExec=\"" + self + "\n", false},
    };
    for (const auto& [text, found] : cases) {
        writeFile(PZLoginItemsUtility::autostartEntryPath(), text);
        EXPECT_EQ(PZLoginItemsUtility::isInLoginItems(), found) << text;
    }
}

TEST_F(PZLoginItemsUtilityTest, execValue_reservedCharacters_quotedAndEscaped) {
    // Inside quotes " ` $ \ take a backslash, then every backslash of the value is doubled; % is doubled.
    const std::pair<std::string, std::string> cases[] = {
        {"/usr/bin/vx", "/usr/bin/vx"},
        {"/x/50%", "/x/50%%"},
        {"/tmp/a b/c\"d\\e%f", "\"/tmp/a b/c\\\\\"d\\\\\\\\e%%f\""},
        {"/x/new\nline", "\"/x/new\\nline\""},
    };
    for (const auto& [path, value] : cases)
        EXPECT_EQ(PZLoginItemsUtility::execValue(path), value) << path;
}

TEST_F(PZLoginItemsUtilityTest, addToLoginItems_autostartFolderBlocked_returnsFalse) {
    writeFile(configHome() + "/autostart", "a file where the folder belongs");
    EXPECT_FALSE(PZLoginItemsUtility::addToLoginItems());
    EXPECT_FALSE(PZLoginItemsUtility::isInLoginItems());
}

} // namespace
