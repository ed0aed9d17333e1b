#include "ConfigHomeFixture.h"

#include "settings/SettingsStore.h"

#include <QSettings>
#include <QString>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

void ConfigHomeFixture::SetUp() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vxh-settings-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root_ = pattern;
    std::filesystem::create_directory(root_ + "/home");
    for (const char* name : {"XDG_CONFIG_HOME", "HOME"}) {
        const char* value = std::getenv(name);
        savedEnv_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    ::setenv("XDG_CONFIG_HOME", configHome().c_str(), 1);
    ::setenv("HOME", (root_ + "/home").c_str(), 1);
}

void ConfigHomeFixture::TearDown() {
    for (const auto& [name, value] : savedEnv_) {
        value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
    }
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

void ConfigHomeFixture::writeFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string ConfigHomeFixture::readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool ConfigHomeFixture::exists(const std::string& path) {
    return std::filesystem::exists(path);
}

std::vector<std::string> ConfigHomeFixture::filesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

ConfigHomeFixture::FreshRead ConfigHomeFixture::readFreshCopy(const std::string& key) {
    const std::string copy = root_ + "/copy-" + std::to_string(++copies_) + ".conf";
    writeFile(copy, readFile(SettingsStore::filePath()));
    QSettings settings(QString::fromStdString(copy), QSettings::IniFormat);
    const QVariant value = settings.value(QString::fromStdString(key));
    return {settings.status() == QSettings::NoError,
            value.isValid() ? std::optional(value.toString().toStdString()) : std::nullopt};
}
