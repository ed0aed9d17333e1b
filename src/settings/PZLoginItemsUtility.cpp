#include "settings/PZLoginItemsUtility.h"

#include "settings/SettingsStore.h"

#include <QSaveFile>
#include <QString>

#include <fstream>
#include <limits.h>
#include <unistd.h>

namespace {

constexpr std::string_view deletedSuffix = " (deleted)";

bool isReservedInExec(char c) {
    return std::string_view(" \t\n\"'\\><~|&;$*?#()`").find(c) != std::string_view::npos;
}

// The value of Exec in the [Desktop Entry] group of a desktop entry file, as written (escapes still in).
std::optional<std::string> readExecLine(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        return std::nullopt;
    bool inMainGroup = false;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        const std::size_t equals = line.find('=');
        if (!inMainGroup || equals == std::string::npos)
            continue;
        std::string_view key(line.data(), equals);
        while (!key.empty() && key.back() == ' ')
            key.remove_suffix(1);
        if (key != "Exec")
            continue;
        std::string_view value(line);
        value.remove_prefix(equals + 1);
        while (!value.empty() && value.front() == ' ')
            value.remove_prefix(1);
        return std::string(value);
    }
    return std::nullopt;
}

} // namespace

bool PZLoginItemsUtility::addToLoginItems() {
    return addToLoginItems(runningExecutablePath());
}

void PZLoginItemsUtility::removeFromLoginItems() {
    removeFromLoginItems(runningExecutablePath());
}

bool PZLoginItemsUtility::isInLoginItems() {
    return isInLoginItems(runningExecutablePath());
}

bool PZLoginItemsUtility::addToLaunchService() {
    return true;
}

bool PZLoginItemsUtility::addToLoginItems(const std::string& executable) {
    const std::string path = autostartEntryPath();
    if (!SettingsStore::makeDirectories(path.substr(0, path.rfind('/'))))
        return false;
    const std::string entry = "[Desktop Entry]\n"
                              "Type=Application\n"
                              "Name=VelorixHelper\n"
                              "Comment=Lets phones and tablets control this computer\n"
                              "Exec=" +
                              execValue(executable) +
                              "\n"
                              "X-GNOME-Autostart-enabled=true\n";
    QSaveFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // Without a commit the temporary file is discarded and the old entry stays.
    if (file.write(entry.data(), static_cast<qint64>(entry.size())) != static_cast<qint64>(entry.size()))
        return false;
    return file.commit();
}

void PZLoginItemsUtility::removeFromLoginItems(const std::string& executable) {
    if (isInLoginItems(executable))
        ::unlink(autostartEntryPath().c_str());
}

bool PZLoginItemsUtility::isInLoginItems(const std::string& executable) {
    const std::optional<std::string> exec = readExecLine(autostartEntryPath());
    if (!exec)
        return false;
    const std::optional<std::string> named = executableOfExecValue(*exec);
    return named && *named == executable;
}

std::string PZLoginItemsUtility::autostartEntryPath() {
    return SettingsStore::configHome() + "/autostart/velorixhelper.desktop";
}

std::string PZLoginItemsUtility::runningExecutablePath() {
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length <= 0)
        return {};
    std::string path(buffer, static_cast<std::size_t>(length));
    // A program replaced on disk while running (an update) is still the program at that path.
    if (path.size() > deletedSuffix.size() && path.ends_with(deletedSuffix))
        path.resize(path.size() - deletedSuffix.size());
    return path;
}

std::string PZLoginItemsUtility::execValue(std::string_view executable) {
    bool quote = false;
    for (char c : executable)
        quote = quote || isReservedInExec(c);
    // The quoting rule of the Exec key first...
    std::string argument;
    if (quote)
        argument += '"';
    for (char c : executable) {
        if (c == '%') {
            argument += "%%";
            continue;
        }
        if (quote && (c == '"' || c == '`' || c == '$' || c == '\\'))
            argument += '\\';
        argument += c;
    }
    if (quote)
        argument += '"';
    // ...then the escapes of every string value of the file.
    std::string value;
    for (char c : argument) {
        switch (c) {
        case '\\':
            value += "\\\\";
            break;
        case '\n':
            value += "\\n";
            break;
        case '\t':
            value += "\\t";
            break;
        case '\r':
            value += "\\r";
            break;
        default:
            value += c;
        }
    }
    return value;
}

std::optional<std::string> PZLoginItemsUtility::executableOfExecValue(std::string_view value) {
    // Undo the string escapes.
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            text += value[i];
            continue;
        }
        switch (value[++i]) {
        case 's':
            text += ' ';
            break;
        case 'n':
            text += '\n';
            break;
        case 't':
            text += '\t';
            break;
        case 'r':
            text += '\r';
            break;
        case '\\':
            text += '\\';
            break;
        default:
            text += '\\';
            text += value[i];
        }
    }
    // The first argument, quoted or not, with "%%" read as "%".
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    std::string executable;
    if (i < text.size() && text[i] == '"') {
        for (++i;; ++i) {
            if (i == text.size())
                return std::nullopt;
            if (text[i] == '"')
                break;
            if (text[i] == '\\' && i + 1 < text.size())
                ++i;
            executable += text[i];
        }
    } else {
        for (; i < text.size() && text[i] != ' ' && text[i] != '\t'; ++i)
            executable += text[i];
    }
    std::string unpercented;
    for (std::size_t j = 0; j < executable.size(); ++j) {
        unpercented += executable[j];
        if (executable[j] == '%' && j + 1 < executable.size() && executable[j + 1] == '%')
            ++j;
    }
    if (unpercented.empty())
        return std::nullopt;
    return unpercented;
}
