#include "input/SystemEventsScript.h"

namespace {

// A cursor over the source that consumes exact texts.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool take(std::string_view expected) {
        if (text_.substr(at_, expected.size()) == expected) {
            at_ += expected.size();
            return true;
        }
        return false;
    }
    bool atEnd() const { return at_ == text_.size(); }
    std::size_t offset() const { return at_; }
    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    char next() { return at_ < text_.size() ? text_[at_++] : '\0'; }

private:
    std::string_view text_;
    std::size_t at_ = 0;
};

bool fail(std::string* error, const Reader& reader, const char* expected) {
    if (error != nullptr) {
        *error = "Syntax error: expected " + std::string(expected) + " at character " +
                 std::to_string(reader.offset());
    }
    return false;
}

bool readString(Reader& reader, std::string& value, std::string* error) {
    if (!reader.take("\"")) {
        return fail(error, reader, "a string");
    }
    while (!reader.atEnd()) {
        const char c = reader.next();
        if (c == '"') {
            return true;
        }
        if (c == '\\') {
            switch (reader.next()) {
            case '"':
                value += '"';
                break;
            case '\\':
                value += '\\';
                break;
            case 'n':
                value += '\n';
                break;
            case 'r':
                value += '\r';
                break;
            case 't':
                value += '\t';
                break;
            default:
                return fail(error, reader, "a known escape sequence");
            }
        } else {
            value += c;
        }
    }
    return fail(error, reader, "the end of the string");
}

bool readKeyLine(Reader& reader, int& keyCode, std::vector<int>& modifiers, std::string* error) {
    if (!reader.take("key code ")) {
        return fail(error, reader, "\"key code\"");
    }
    int digits = 0;
    long value = 0;
    while (reader.peek() >= '0' && reader.peek() <= '9') {
        value = value * 10 + (reader.next() - '0');
        if (++digits > 5) {
            return fail(error, reader, "a key code of at most five digits");
        }
    }
    if (digits == 0) {
        return fail(error, reader, "a key code");
    }
    keyCode = static_cast<int>(value);
    if (reader.take(" using {")) {
        static constexpr std::pair<std::string_view, int> words[] = {
            {"shift down", 56}, {"control down", 59}, {"option down", 58}, {"command down", 55}};
        while (true) {
            bool known = false;
            for (const auto& [word, code] : words) {
                if (reader.take(word)) {
                    modifiers.push_back(code);
                    known = true;
                    break;
                }
            }
            if (!known) {
                return fail(error, reader, "a modifier key");
            }
            if (reader.take("}")) {
                break;
            }
            if (!reader.take(", ")) {
                return fail(error, reader, "\",\" or \"}\"");
            }
        }
    }
    if (!reader.take("\n")) {
        return fail(error, reader, "the end of the line");
    }
    return true;
}

} // namespace

std::optional<SystemEventsScript> SystemEventsScript::compile(std::string_view source, std::string* error) {
    Reader reader(source);
    SystemEventsScript script;
    if (!reader.take("tell application \"System Events\"")) {
        fail(error, reader, "tell application \"System Events\"");
        return std::nullopt;
    }
    if (reader.take(" to ")) {
        if (reader.take("sleep")) {
            script.action_ = Action::sleep;
        } else if (reader.take("shut down")) {
            script.action_ = Action::shutDown;
        } else if (reader.take("restart")) {
            script.action_ = Action::restart;
        } else {
            fail(error, reader, "sleep, shut down or restart");
            return std::nullopt;
        }
        if (!reader.atEnd()) {
            fail(error, reader, "the end of the script");
            return std::nullopt;
        }
        return script;
    }
    if (!reader.take("\n")) {
        fail(error, reader, "the end of the line");
        return std::nullopt;
    }
    const bool inProcess = reader.take("tell process ");
    if (inProcess) {
        std::string name;
        if (!readString(reader, name, error)) {
            return std::nullopt;
        }
        if (!reader.take("\n")) {
            fail(error, reader, "the end of the line");
            return std::nullopt;
        }
        script.processName_ = std::move(name);
    }
    if (!readKeyLine(reader, script.keyCode_, script.modifiers_, error)) {
        return std::nullopt;
    }
    if ((inProcess && !reader.take("end tell\n")) || !reader.take("end tell")) {
        fail(error, reader, "end tell");
        return std::nullopt;
    }
    if (!reader.atEnd()) {
        fail(error, reader, "the end of the script");
        return std::nullopt;
    }
    return script;
}
