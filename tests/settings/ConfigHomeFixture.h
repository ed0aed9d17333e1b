#pragma once

#include <gtest/gtest.h>

// Gives each test its own XDG_CONFIG_HOME and HOME in a fresh temporary folder, set before the test body
// touches any settings, and restores the environment afterwards.
class ConfigHomeFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    const std::string& root() const { return root_; }
    std::string configHome() const { return root_ + "/config"; }

    static void writeFile(const std::string& path, const std::string& text);
    static std::string readFile(const std::string& path);
    static bool exists(const std::string& path);
    static std::vector<std::string> filesIn(const std::string& folder);

    // Parses a copy of the preferences file at a path this process has never opened, as another process
    // would: the value of key (nothing when absent) and whether QSettings read the file without error.
    struct FreshRead {
        bool parsed = false;
        std::optional<std::string> value;
    };
    FreshRead readFreshCopy(const std::string& key);

private:
    std::string root_;
    std::vector<std::pair<const char*, std::optional<std::string>>> savedEnv_;
    int copies_ = 0;
};
