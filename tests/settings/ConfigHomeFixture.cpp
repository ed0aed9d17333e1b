#include "ConfigHomeFixture.h"

#include "settings/SettingsStore.h"

#include <QSettings>
#include <QString>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::optional<std::string> getEnv(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

void restoreEnv(const char* name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name, value->c_str(), 1);
    } else {
        ::unsetenv(name);
    }
}

} // namespace

void ConfigHomeFixture::SetUp() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vxh-settings-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    root_ = pattern;
    std::filesystem::create_directory(root_ + "/home");
    savedXdg_ = getEnv("XDG_CONFIG_HOME");
    savedHome_ = getEnv("HOME");
    ::setenv("XDG_CONFIG_HOME", configHome().c_str(), 1);
    ::setenv("HOME", (root_ + "/home").c_str(), 1);
}

void ConfigHomeFixture::TearDown() {
    restoreEnv("XDG_CONFIG_HOME", savedXdg_);
    restoreEnv("HOME", savedHome_);
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

void ConfigHomeFixture::writeFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
}

std::string ConfigHomeFixture::readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
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
    FreshRead read;
    read.parsed = settings.status() == QSettings::NoError;
    const QVariant value = settings.value(QString::fromStdString(key));
    if (value.isValid())
        read.value = value.toString().toStdString();
    return read;
}
