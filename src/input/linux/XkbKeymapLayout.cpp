#include "input/linux/XkbKeymapLayout.h"

#include "input/linux/XkbKeymap.h"

#include <fstream>
#include <map>

namespace {

// KEY=value and KEY="value" lines of a shell-style settings file.
std::map<std::string, std::string> readSettings(const std::string& path) {
    std::map<std::string, std::string> values;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        const auto equals = line.find('=');
        if (line.empty() || line[0] == '#' || equals == std::string::npos) {
            continue;
        }
        std::string value = line.substr(equals + 1);
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
            value.back() == value.front()) {
            value = value.substr(1, value.size() - 2);
        }
        values[line.substr(0, equals)] = value;
    }
    return values;
}

} // namespace

XkbKeymapLayout::XkbKeymapLayout(std::unique_ptr<XkbKeymap> keymap, unsigned group)
    : keymap_(std::move(keymap)), group_(group) {}

XkbKeymapLayout::~XkbKeymapLayout() = default;

std::shared_ptr<XkbKeymapLayout> XkbKeymapLayout::fromNames(const std::string& layout,
                                                            const std::string& variant,
                                                            const std::string& options, unsigned group) {
    return std::make_shared<XkbKeymapLayout>(XkbKeymap::fromNames(layout, variant, options), group);
}

std::shared_ptr<XkbKeymapLayout> XkbKeymapLayout::fromSystemSettings(const std::string& keyboardFile) {
    auto settings = readSettings(keyboardFile);
    // Several layouts ("de,us"): the first one is the one in use after start-up.
    return std::make_shared<XkbKeymapLayout>(
        XkbKeymap::fromNames(settings["XKBLAYOUT"], settings["XKBVARIANT"], settings["XKBOPTIONS"],
                             settings["XKBMODEL"]),
        0);
}

std::string XkbKeymapLayout::keyText(int evdevCode, bool shift, bool option) {
    return keymap_ ? keymap_->keyText(evdevCode, shift, option, group_) : std::string();
}

std::optional<int> XkbKeymapLayout::keyForKeysym(std::uint32_t keysym) {
    return keymap_ ? keymap_->keyForKeysym(keysym, group_) : std::nullopt;
}
