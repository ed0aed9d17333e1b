#include "settings/VXConfigCommand.h"

#include "settings/PZLoginItemsUtility.h"
#include "settings/SettingsManager.h"
#include "settings/SettingsStore.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace {

enum class Kind { Integer, Boolean, String, Date, LoginItem };

struct KeySpec {
    std::string_view name;
    Kind kind;
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    // For strings: the values allowed, all when empty.
    std::array<std::string_view, 3> choices{};
};

constexpr std::string_view startAtLoginKey = "start_at_login";

const std::array<KeySpec, 9> keys{{
    {SettingsManager::firstTimeKey, Kind::Boolean},
    {SettingsManager::appIdKey, Kind::String},
    {SettingsManager::socketPortKey, Kind::Integer, 1, 65535},
    {SettingsManager::updateCheckKey, Kind::Boolean},
    {SettingsManager::connectionPasswordKey, Kind::String},
    {SettingsManager::keyboardInputMethodKey, Kind::Integer, 1, 2},
    {SettingsManager::lastUpdatesCheckKey, Kind::Date},
    {SettingsManager::commandKeyKey, Kind::String, 0, 0, {"control", "super", "alt"}},
    {startAtLoginKey, Kind::LoginItem},
}};

constexpr std::string_view usage = "usage: velorixhelper config list | get KEY | set KEY VALUE | unset KEY";

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

const KeySpec* findKey(std::string_view name) {
    for (const KeySpec& key : keys) {
        if (key.name == name)
            return &key;
    }
    return nullptr;
}

const KeySpec* knownKeyOrComplain(std::string_view name, std::ostream& err) {
    if (const KeySpec* key = findKey(name))
        return key;
    err << "velorixhelper config: unknown key " << quoted(name) << "; the keys are:";
    for (const KeySpec& key : keys)
        err << ' ' << quoted(key.name);
    err << '\n';
    return nullptr;
}

std::string expectation(const KeySpec& key) {
    switch (key.kind) {
    case Kind::Integer:
        if (key.maximum - key.minimum == 1)
            return "expected " + std::to_string(key.minimum) + " or " + std::to_string(key.maximum);
        return "expected an integer from " + std::to_string(key.minimum) + " to " +
               std::to_string(key.maximum);
    case Kind::Boolean:
    case Kind::LoginItem:
        return "expected true or false (yes/no, 1/0)";
    case Kind::Date:
        return "expected an ISO 8601 date and time such as 2024-05-01T10:00:00Z";
    case Kind::String:
        break;
    }
    std::string text = "expected one of";
    for (std::string_view choice : key.choices)
        text += " " + std::string(choice);
    return text;
}

std::optional<std::string> currentValue(const KeySpec& key) {
    if (key.kind == Kind::LoginItem)
        return PZLoginItemsUtility::isInLoginItems() ? "true" : "false";
    return SettingsStore::getString(key.name);
}

std::string escapedForList(std::string_view value) {
    std::string text;
    for (char c : value) {
        switch (c) {
        case '\\':
            text += "\\\\";
            break;
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\t':
            text += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
                constexpr char hex[] = "0123456789abcdef";
                text += "\\x";
                text += hex[(c >> 4) & 0xf];
                text += hex[c & 0xf];
            } else {
                text += c;
            }
        }
    }
    return text;
}

int list(std::ostream& out) {
    for (const KeySpec& key : keys) {
        const std::optional<std::string> value = currentValue(key);
        out << key.name << " = " << (value ? escapedForList(*value) : "(not set)") << '\n';
    }
    return 0;
}

int get(const KeySpec& key, std::ostream& out, std::ostream& err) {
    const std::optional<std::string> value = currentValue(key);
    if (!value) {
        err << "velorixhelper config: " << quoted(key.name) << " is not set\n";
        return 1;
    }
    out << *value << '\n';
    return 0;
}

int set(const KeySpec& key, const std::string& value, std::ostream& err) {
    const auto invalid = [&]() {
        err << "velorixhelper config: invalid value " << quoted(value) << " for " << quoted(key.name) << ": "
            << expectation(key) << '\n';
        return 2;
    };
    bool written = false;
    switch (key.kind) {
    case Kind::Integer: {
        const std::optional<std::int64_t> number = SettingsStore::parseInteger(value);
        if (!number || *number < key.minimum || *number > key.maximum)
            return invalid();
        written = SettingsStore::setInteger(key.name, *number);
        break;
    }
    case Kind::Boolean: {
        const std::optional<bool> flag = SettingsStore::parseBoolean(value);
        if (!flag)
            return invalid();
        written = SettingsStore::setBoolean(key.name, *flag);
        break;
    }
    case Kind::LoginItem: {
        const std::optional<bool> flag = SettingsStore::parseBoolean(value);
        if (!flag)
            return invalid();
        if (*flag) {
            written = PZLoginItemsUtility::addToLoginItems();
        } else {
            PZLoginItemsUtility::removeFromLoginItems();
            written = !PZLoginItemsUtility::isInLoginItems();
        }
        if (!written) {
            err << "velorixhelper config: could not change " << PZLoginItemsUtility::autostartEntryPath()
                << '\n';
            return 1;
        }
        return 0;
    }
    case Kind::Date: {
        const std::optional<SettingsStore::TimePoint> date = SettingsStore::parseDate(value);
        if (!date)
            return invalid();
        written = SettingsStore::setDate(key.name, *date);
        break;
    }
    case Kind::String:
        if (!key.choices[0].empty() && value != key.choices[0] && value != key.choices[1] &&
            value != key.choices[2])
            return invalid();
        written = SettingsStore::setString(key.name, value);
        break;
    }
    if (!written) {
        err << "velorixhelper config: could not write " << SettingsStore::filePath() << '\n';
        return 1;
    }
    return 0;
}

int unset(const KeySpec& key, std::ostream& err) {
    if (key.kind == Kind::LoginItem)
        return set(key, "false", err);
    if (!SettingsStore::remove(key.name)) {
        err << "velorixhelper config: could not write " << SettingsStore::filePath() << '\n';
        return 1;
    }
    return 0;
}

} // namespace

int VXConfigCommand::run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    const auto wrongUsage = [&]() {
        err << usage << '\n';
        return 2;
    };
    if (args.empty())
        return wrongUsage();
    const std::string& action = args[0];
    if (action == "list")
        return args.size() == 1 ? list(out) : wrongUsage();

    const std::size_t expected = action == "set" ? 3 : 2;
    if ((action != "get" && action != "set" && action != "unset") || args.size() != expected)
        return wrongUsage();
    const KeySpec* key = knownKeyOrComplain(args[1], err);
    if (!key)
        return 2;
    if (action == "get")
        return get(*key, out, err);
    if (action == "set")
        return set(*key, args[2], err);
    return unset(*key, err);
}
