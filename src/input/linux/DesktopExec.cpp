#include "input/linux/DesktopExec.h"

namespace {

// The general string escapes of a desktop entry value: \s \n \t \r \\.
std::string unescapeValue(std::string_view value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
            switch (value[i + 1]) {
            case 's':
                out += ' ';
                ++i;
                continue;
            case 'n':
                out += '\n';
                ++i;
                continue;
            case 't':
                out += '\t';
                ++i;
                continue;
            case 'r':
                out += '\r';
                ++i;
                continue;
            case '\\':
                out += '\\';
                ++i;
                continue;
            default:
                break;
            }
        }
        out += value[i];
    }
    return out;
}

} // namespace

std::optional<std::vector<std::string>> DesktopExec::parse(std::string_view exec) {
    const std::string text = unescapeValue(exec);
    std::vector<std::string> arguments;
    std::string current;
    bool inArgument = false;
    bool hadFieldCode = false;
    const auto finish = [&] {
        // An argument that was only field codes disappears with them.
        if (inArgument && !(current.empty() && hadFieldCode)) {
            arguments.push_back(current);
        }
        current.clear();
        inArgument = false;
        hadFieldCode = false;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            finish();
        } else if (c == '"') {
            inArgument = true;
            bool closed = false;
            for (++i; i < text.size(); ++i) {
                if (text[i] == '"') {
                    closed = true;
                    break;
                }
                if (text[i] == '\\' && i + 1 < text.size() &&
                    (text[i + 1] == '"' || text[i + 1] == '`' || text[i + 1] == '$' || text[i + 1] == '\\')) {
                    ++i;
                }
                current += text[i];
            }
            if (!closed) {
                return std::nullopt;
            }
        } else if (c == '%' && i + 1 < text.size()) {
            inArgument = true;
            if (text[i + 1] == '%') {
                current += '%';
            } else {
                // Deprecated and unknown codes are dropped like the known ones.
                hadFieldCode = true;
            }
            ++i;
        } else {
            inArgument = true;
            current += c;
        }
    }
    finish();
    if (arguments.empty() || arguments.front().empty()) {
        return std::nullopt;
    }
    return arguments;
}
