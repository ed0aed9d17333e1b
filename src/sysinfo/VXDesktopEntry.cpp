#include "sysinfo/VXDesktopEntry.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// Desktop entries are small; anything larger is not one and is not read.
constexpr std::size_t maximumFileSize = 1 << 20;

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t\r");
    if (begin == std::string_view::npos) {
        return {};
    }
    const auto end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}

// Replaces every byte sequence that is not UTF-8 by U+FFFD, so that names stay valid text.
std::string validUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        size_t length = 0;
        std::uint32_t minimum = 0;
        if (byte < 0x80) {
            length = 1;
        } else if ((byte & 0xE0) == 0xC0) {
            length = 2;
            minimum = 0x80;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3;
            minimum = 0x800;
        } else if ((byte & 0xF8) == 0xF0) {
            length = 4;
            minimum = 0x10000;
        }
        bool valid = length > 0 && i + length <= text.size();
        std::uint32_t codePoint = length == 1 ? byte : byte & (0x7F >> length);
        for (size_t k = 1; valid && k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            valid = (next & 0xC0) == 0x80;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        if (valid && length > 1) {
            valid = codePoint >= minimum && codePoint <= 0x10FFFF &&
                    !(codePoint >= 0xD800 && codePoint <= 0xDFFF);
        }
        if (valid && byte != 0) {
            result.append(text.substr(i, length));
            i += length;
        } else {
            result.append("\xEF\xBF\xBD");
            i += 1;
        }
    }
    return result;
}

// The escapes of string values: \s \n \t \r \\.
std::string unescaped(std::string_view value) {
    std::string result;
    result.reserve(value.size());
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            result.push_back(value[i]);
            continue;
        }
        switch (value[++i]) {
        case 's':
            result.push_back(' ');
            break;
        case 'n':
            result.push_back('\n');
            break;
        case 't':
            result.push_back('\t');
            break;
        case 'r':
            result.push_back('\r');
            break;
        case '\\':
            result.push_back('\\');
            break;
        default:
            result.push_back('\\');
            result.push_back(value[i]);
        }
    }
    return result;
}

// How well a key's locale ("de_CH", "de", "sr@latin") matches the wanted one: higher is better, 0 no match.
// Order of preference: lang_COUNTRY@MODIFIER, lang_COUNTRY, lang@MODIFIER, lang.
int localeMatch(std::string_view keyLocale, const std::string& lang, const std::string& country,
                const std::string& modifier) {
    if (lang.empty()) {
        return 0;
    }
    if (!country.empty() && !modifier.empty() && keyLocale == lang + "_" + country + "@" + modifier) {
        return 4;
    }
    if (!country.empty() && keyLocale == lang + "_" + country) {
        return 3;
    }
    if (!modifier.empty() && keyLocale == lang + "@" + modifier) {
        return 2;
    }
    return keyLocale == lang ? 1 : 0;
}

bool isTrue(std::string_view value) {
    return value == "true";
}

} // namespace

std::string VXDesktopEntry::currentLocale() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            const std::string_view text(value);
            return text == "C" || text == "POSIX" || text.starts_with("C.") ? std::string()
                                                                            : std::string(text);
        }
    }
    return {};
}

std::optional<VXDesktopEntry> VXDesktopEntry::load(const std::string& path, const std::string& desktopId,
                                                   const std::string& locale) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    struct stat info {};
    std::string text;
    bool ok = ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) &&
              static_cast<std::size_t>(info.st_size) <= maximumFileSize;
    if (ok) {
        // One byte more than the size: a file that grew meanwhile beyond the limit is still refused.
        text.resize(static_cast<std::size_t>(info.st_size) + 1);
        std::size_t count = 0;
        while (count < text.size()) {
            const ssize_t got = ::read(fd, text.data() + count, text.size() - count);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0) {
                ok = got == 0;
                break;
            }
            count += static_cast<std::size_t>(got);
        }
        text.resize(count);
        ok = ok && count <= maximumFileSize;
    }
    ::close(fd);
    if (!ok) {
        return std::nullopt;
    }
    return parse(text, path, desktopId, locale);
}

std::optional<VXDesktopEntry> VXDesktopEntry::parse(const std::string& text, const std::string& path,
                                                    const std::string& desktopId, const std::string& locale) {
    // "de_CH.UTF-8@euro" -> lang "de", country "CH", modifier "euro"; the encoding plays no part.
    std::string lang = locale;
    std::string modifier;
    std::string country;
    if (const auto at = lang.find('@'); at != std::string::npos) {
        modifier = lang.substr(at + 1);
        lang.erase(at);
    }
    if (const auto dot = lang.find('.'); dot != std::string::npos) {
        lang.erase(dot);
    }
    if (const auto underscore = lang.find('_'); underscore != std::string::npos) {
        country = lang.substr(underscore + 1);
        lang.erase(underscore);
    }

    VXDesktopEntry entry;
    entry.path_ = path;
    entry.desktopId_ = desktopId;
    bool inMainGroup = false;
    bool sawMainGroup = false;
    int nameQuality = -1;
    std::string_view rest(text);
    while (!rest.empty()) {
        const auto newline = rest.find('\n');
        const std::string_view line = trimmed(rest.substr(0, newline));
        rest = newline == std::string_view::npos ? std::string_view() : rest.substr(newline + 1);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            // Only the first [Desktop Entry] group counts; actions and other groups follow it.
            inMainGroup = !sawMainGroup && line == "[Desktop Entry]";
            sawMainGroup = sawMainGroup || inMainGroup;
            continue;
        }
        if (!inMainGroup) {
            continue;
        }
        const auto equals = line.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        std::string_view key = trimmed(line.substr(0, equals));
        const std::string_view value = trimmed(line.substr(equals + 1));
        std::string_view keyLocale;
        if (const auto bracket = key.find('['); bracket != std::string_view::npos) {
            if (key.back() != ']') {
                continue;
            }
            keyLocale = key.substr(bracket + 1, key.size() - bracket - 2);
            key = key.substr(0, bracket);
        }
        if (key == "Name") {
            const int quality = keyLocale.empty() ? 0 : localeMatch(keyLocale, lang, country, modifier);
            if ((keyLocale.empty() || quality > 0) && quality > nameQuality) {
                entry.name_ = validUtf8(unescaped(value));
                nameQuality = quality;
            }
            continue;
        }
        if (!keyLocale.empty()) {
            continue;
        }
        if (key == "Type") {
            entry.type_ = std::string(value);
        } else if (key == "Icon") {
            entry.icon_ = validUtf8(unescaped(value));
        } else if (key == "Exec") {
            entry.exec_ = validUtf8(unescaped(value));
        } else if (key == "TryExec") {
            entry.tryExec_ = validUtf8(unescaped(value));
        } else if (key == "StartupWMClass") {
            entry.startupWMClass_ = validUtf8(unescaped(value));
        } else if (key == "NoDisplay") {
            entry.noDisplay_ = isTrue(value);
        } else if (key == "Hidden") {
            entry.hidden_ = isTrue(value);
        }
    }
    if (!sawMainGroup) {
        return std::nullopt;
    }
    return entry;
}

std::string VXDesktopEntry::executableName() const {
    const std::string& command = exec_.empty() ? tryExec_ : exec_;
    // Split into words, honouring double quotes; skip "env" and its VAR=value settings.
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool any = false;
    for (size_t i = 0; i < command.size(); ++i) {
        const char c = command[i];
        if (c == '"') {
            quoted = !quoted;
            any = true;
        } else if (c == '\\' && quoted && i + 1 < command.size()) {
            word.push_back(command[++i]);
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (any || !word.empty()) {
                words.push_back(word);
            }
            word.clear();
            any = false;
        } else {
            word.push_back(c);
        }
    }
    if (any || !word.empty()) {
        words.push_back(word);
    }
    size_t first = 0;
    if (first < words.size() && (words[first] == "env" || words[first].ends_with("/env"))) {
        ++first;
        // env's own options ("-u NAME" takes a value) and VAR=value settings come before the program.
        while (first < words.size() &&
               (words[first].find('=') != std::string::npos || words[first].starts_with("-"))) {
            const bool takesValue = words[first] == "-u" || words[first] == "--unset" ||
                                    words[first] == "-C" || words[first] == "--chdir" || words[first] == "-S";
            first += takesValue ? 2 : 1;
        }
    }
    if (first >= words.size()) {
        return {};
    }
    const std::string& program = words[first];
    const auto slash = program.rfind('/');
    return slash == std::string::npos ? program : program.substr(slash + 1);
}

bool VXDesktopEntry::isListedApplication() const {
    return type_ == "Application" && !name_.empty() && !noDisplay_ && !hidden_;
}
