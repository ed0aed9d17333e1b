#include "sysinfo/linux/GSettingsDesktopSettings.h"

#include "sysinfo/linux/ProgramOutput.h"
#include "transport/PZLogger.h"

#include <cstdlib>
#include <fstream>

namespace {

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

// Reads one quoted GVariant string at text[i] (single or double quotes, backslash escapes); moves i past it.
std::optional<std::string> quoted(std::string_view text, size_t& i) {
    if (i >= text.size() || (text[i] != '\'' && text[i] != '"')) {
        return std::nullopt;
    }
    const char quote = text[i++];
    std::string value;
    while (i < text.size() && text[i] != quote) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
        }
        value.push_back(text[i++]);
    }
    if (i >= text.size()) {
        return std::nullopt;
    }
    ++i;
    return value;
}

} // namespace

GSettingsDesktopSettings::GSettingsDesktopSettings(std::string program) : program_(std::move(program)) {}

std::optional<std::string> GSettingsDesktopSettings::get(const char* schema, const char* key) {
    auto output = ProgramOutput::run({program_, "get", schema, key});
    return output;
}

std::optional<std::vector<std::string>> GSettingsDesktopSettings::parseStringArray(const std::string& input) {
    std::string_view text = trimmed(input);
    if (text.starts_with("@as")) {
        text = trimmed(text.substr(3));
    }
    if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
        return std::nullopt;
    }
    std::vector<std::string> values;
    size_t i = 1;
    const size_t end = text.size() - 1;
    for (;;) {
        while (i < end && text[i] == ' ') {
            ++i;
        }
        if (i == end) {
            return values;
        }
        auto value = quoted(text, i);
        if (!value || i > end) {
            return std::nullopt;
        }
        values.push_back(std::move(*value));
        while (i < end && text[i] == ' ') {
            ++i;
        }
        if (i == end) {
            return values;
        }
        if (text[i] != ',') {
            return std::nullopt;
        }
        ++i;
        while (i < end && text[i] == ' ') {
            ++i;
        }
        if (i == end) {
            return std::nullopt; // a comma must be followed by an element
        }
    }
}

std::optional<std::string> GSettingsDesktopSettings::parseString(const std::string& input) {
    const std::string_view text = trimmed(input);
    size_t i = 0;
    auto value = quoted(text, i);
    if (!value || i != text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::vector<std::string>> GSettingsDesktopSettings::favoriteDesktopIds() {
    const auto output = get("org.gnome.shell", "favorite-apps");
    if (!output) {
        if (!absenceLogged_.exchange(true)) {
            PZLog("The desktop keeps no favourite applications (org.gnome.shell favorite-apps)");
        }
        return std::nullopt;
    }
    absenceLogged_.store(false);
    return parseStringArray(*output);
}

std::optional<std::string> GSettingsDesktopSettings::iconThemeName() {
    if (const auto output = get("org.gnome.desktop.interface", "icon-theme")) {
        if (auto name = parseString(*output); name && !name->empty()) {
            return name;
        }
    }
    // The GTK settings file: gtk-icon-theme-name=NAME under [Settings].
    std::string config;
    if (const char* value = std::getenv("XDG_CONFIG_HOME"); value != nullptr && *value == '/') {
        config = value;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        config = std::string(home) + "/.config";
    }
    if (config.empty()) {
        return std::nullopt;
    }
    std::ifstream file(config + "/gtk-3.0/settings.ini");
    std::string line;
    while (std::getline(file, line)) {
        const std::string_view text = trimmed(line);
        if (text.starts_with("gtk-icon-theme-name")) {
            const auto equals = text.find('=');
            if (equals != std::string_view::npos) {
                std::string name(trimmed(text.substr(equals + 1)));
                if (name.size() >= 2 && name.front() == '"' && name.back() == '"') {
                    name = name.substr(1, name.size() - 2);
                }
                if (!name.empty() && name.find('/') == std::string::npos) {
                    return name;
                }
            }
        }
    }
    return std::nullopt;
}
