#include "input/PZKeyboard.h"

#include "input/InputText.h"
#include "input/KeyEventSender.h"
#include "input/KeyboardLayout.h"
#include "input/PZKeyboardMap.h"
#include "transport/PZException.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"

#include <chrono>
#include <utility>

namespace {

struct Name {
    const char* name;
    int code;
};

// Compared without regard to case, in this order.
constexpr Name independentNames[] = {
    {"return", 36},     {"tab", 48},
    {"space", 49},      {"delete", 51},
    {"del", 51},        {"esc", 53},
    {"F1", 122},        {"F2", 120},
    {"F5", 96},         {"F6", 97},
    {"F7", 98},         {"F3", 99},
    {"F4", 118},        {"F8", 100},
    {"F9", 101},        {"F11", 103},
    {"F13", 105},       {"F14", 107},
    {"F10", 109},       {"F12", 111},
    {"F15", 113},       {"home", 115},
    {"pageup", 116},    {"pagedown", 121},
    {"help", 114},      {"ForwardDelete", 117},
    {"canc", 117},      {"end", 119},
    {"LeftArrow", 123}, {"RightArrow", 124},
    {"DownArrow", 125}, {"UpArrow", 126},
    {"volumeUp", 72},   {"volumeDown", 73},
    {"mute", 74},
};

struct Special {
    const char* name;
    int kind;
    int code;
};

constexpr Special specialKeys[] = {
    {"power", 2, 1},     {"eject", 2, 10}, {"sleep", 2, 11}, {"restart", 2, 12},
    {"shutdown", 2, 13}, {"play", 3, 16},  {"next", 3, 17},
};

struct Mark {
    const char* mark;
    int code;
    const char* word;
};

constexpr Mark marks[] = {
    {"#1", 56, "shift down"},
    {"#2", 59, "control down"},
    {"#3", 58, "option down"},
    {"#4", 55, "command down"},
};

// Whether lowered text equals an ASCII name in small letters.
bool sameAsLoweredName(const std::string& lowered, std::string_view name) {
    if (lowered.size() != name.size()) {
        return false;
    }
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (lowered[i] != ((c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c)) {
            return false;
        }
    }
    return true;
}

// The temporary keys are given back this long after their use, once the receiving programs have read
// the changed mapping and the key.
constexpr auto temporaryKeyLifetime = std::chrono::milliseconds(2100);

// The keysym typing one code point: Latin-1 keysyms are the code point, others the Unicode keysyms.
std::optional<std::uint32_t> keysymForCharacter(const std::string& key) {
    const auto points = InputText::codePoints(key);
    if (points.size() != 1) {
        return std::nullopt;
    }
    const char32_t c = points.front();
    if (c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0xFFFD) {
        return std::nullopt;
    }
    if (c < 0x100) {
        return static_cast<std::uint32_t>(c);
    }
    return 0x01000000u + static_cast<std::uint32_t>(c);
}

} // namespace

PZKeyboard::PZKeyboard(std::shared_ptr<KeyboardLayout> layout, std::shared_ptr<KeyEventSender> keys,
                       std::shared_ptr<ScriptRunner> scriptRunner)
    : layout_(std::move(layout)), keys_(std::move(keys)), scriptRunner_(std::move(scriptRunner)) {
    layout_->layoutChanged(); // what the layout reported so far is in the maps built now
    refreshMaps();
}

void PZKeyboard::refreshMaps() {
    keyCodeMap_ = PZKeyboardMap::keyboardMapWithModifier(*layout_, std::nullopt);
    shiftKeyCodeMap_ = PZKeyboardMap::keyboardMapWithModifier(*layout_, std::vector<int>{56});
    optionKeyCodeMap_ = PZKeyboardMap::keyboardMapWithModifier(*layout_, std::vector<int>{58});
    optionShiftKeyCodeMap_ = PZKeyboardMap::keyboardMapWithModifier(*layout_, std::vector<int>{56, 58});
    maps_ = {keyCodeMap_, shiftKeyCodeMap_, optionKeyCodeMap_, optionShiftKeyCodeMap_};
    keys_->layoutDidChange();
}

bool PZKeyboard::refreshMapsIfLayoutChanged() {
    if (!layout_->layoutChanged()) {
        return false;
    }
    refreshMaps();
    return true;
}

bool PZKeyboard::isNumpadKeyCleaned(const std::string& key, std::string& cleaned) {
    if (!InputText::containsIgnoringCase(key, "numpad")) {
        return false;
    }
    cleaned = InputText::removingIgnoringCase(key, "numpad");
    return true;
}

std::optional<int> PZKeyboard::findIndependentCode(const std::string& key) {
    // Lowered once; the names are ASCII, so a lowered key matches a name only byte for byte.
    const std::string lowered = InputText::lowercase(key);
    for (const Name& entry : independentNames) {
        if (sameAsLoweredName(lowered, entry.name)) {
            return entry.code;
        }
    }
    return std::nullopt;
}

int PZKeyboard::getIndipendetCode(const std::string& key) {
    if (auto code = findIndependentCode(key)) {
        return *code;
    }
    throw PZException("PZKeybaord getIndipendetCode:", "code not found");
}

std::optional<int> PZKeyboard::findCodeInMaps(const std::string& text, bool numpad,
                                              std::shared_ptr<const PZKeyboardMap>* map) const {
    for (const auto& candidate : maps_) {
        if (auto code = candidate->findKeyCodeForStringNumpad(text, numpad)) {
            if (map != nullptr) {
                *map = candidate;
            }
            return *code;
        }
    }
    return std::nullopt;
}

int PZKeyboard::getCodeFromMapsIsNumpadKeyMap(const std::string& text, bool numpad,
                                              std::shared_ptr<const PZKeyboardMap>* map) const {
    if (auto code = findCodeInMaps(text, numpad, map)) {
        return *code;
    }
    throw PZException("PZKeyboard getCodeFromMaps:", "No key found");
}

std::optional<int> PZKeyboard::findSpecialKey(const std::string& text, int& kind) {
    const std::string lowered = InputText::lowercase(text);
    for (const Special& entry : specialKeys) {
        if (sameAsLoweredName(lowered, entry.name)) {
            kind = entry.kind;
            return entry.code;
        }
    }
    return std::nullopt;
}

int PZKeyboard::getCodeFromSpecialMapType(const std::string& text, int& kind) {
    if (auto code = findSpecialKey(text, kind)) {
        return *code;
    }
    throw PZException("PZKeyboard getCodeFromSpecialMap", "key code not found");
}

PZKeyboard::Modifiers PZKeyboard::getModifiersFromForMethod(const std::vector<std::string>& given,
                                                            int method) {
    Modifiers result;
    if (given.empty()) {
        return result;
    }
    if (method != 1 && method != 2) {
        throw PZException("PZKeyboard getModifiersFrom:", "Unknown method");
    }
    for (const std::string& mark : given) {
        const Mark* found = nullptr;
        for (const Mark& entry : marks) {
            if (mark == entry.mark) {
                found = &entry;
                break;
            }
        }
        if (found == nullptr) {
            throw PZException("PZKeyboard getModifiersFrom:", "Unknown modifier " + mark);
        }
        if (method == 1) {
            result.keyCodes.push_back(found->code);
        } else {
            result.words.emplace_back(found->word);
        }
    }
    return result;
}

PZKeyboard::Modifiers PZKeyboard::getModifiersFromForMethod(const std::vector<int>& keyCodes, int method) {
    Modifiers result;
    if (keyCodes.empty()) {
        return result;
    }
    if (method == 1) {
        result.keyCodes = keyCodes;
        return result;
    }
    if (method != 2) {
        throw PZException("PZKeyboard getModifiersFrom:", "Unknown method");
    }
    for (int code : keyCodes) {
        const Mark* found = nullptr;
        for (const Mark& entry : marks) {
            if (code == entry.code) {
                found = &entry;
                break;
            }
        }
        if (found == nullptr) {
            throw PZException("PZKeyboard getModifiersFrom:", "Unknown modifier " + std::to_string(code));
        }
        result.words.emplace_back(found->word);
    }
    return result;
}

void PZKeyboard::hidExecuteKeyCodeOfTypeWithModifiers(int code, int kind, const std::vector<int>& modifiers) {
    if (kind >= KeyEventSender::ordinaryKey && kind <= KeyEventSender::auxiliaryControlKey) {
        keys_->sendKeyCode(code, kind, modifiers);
        return;
    }
    // Other kinds post no key, only the modifiers' presses and releases.
    for (int modifier : modifiers) {
        keys_->keyEvent(modifier, true);
    }
    for (int modifier : modifiers) {
        keys_->keyEvent(modifier, false);
    }
}

std::string
PZKeyboard::makeASSourceWithKeyCodeWithModifiersToProcess(int code, const std::vector<std::string>& words,
                                                          const std::optional<std::string>& processName) {
    std::string source = processName
                             ? "tell application \"System Events\"\ntell process \"" + *processName + "\"\n"
                             : std::string("tell application \"System Events\"\n");
    source += "key code " + std::to_string(code);
    if (!words.empty()) {
        source += " using {";
        // The closing brace follows every word that is the last one: a modifier given twice closes the
        // braces twice, and the script does not compile.
        for (const std::string& word : words) {
            source += word == words.back() ? word + "}\n" : word + ", ";
        }
    } else {
        source += "\n";
    }
    source += processName ? "end tell\nend tell" : "end tell";
    return source;
}

void PZKeyboard::asyncAppleScript(const std::string& source) {
    error_.reset();
    error_ = scriptRunner_->runScript(source);
    if (error_) {
        PZLog("PZKeyboard asyncAppleScript error: " + error_->description());
    }
}

bool PZKeyboard::typeWithTemporaryKey(const std::string& key, const std::vector<std::string>& givenMarks,
                                      bool hasModifiers) {
    const auto keysym = keysymForCharacter(key);
    if (!keysym) {
        return false;
    }
    const Modifiers modifiers = hasModifiers ? getModifiersFromForMethod(givenMarks, 1) : Modifiers{};
    const auto evdev = layout_->bindTemporaryKey(*keysym);
    if (!evdev) {
        return false;
    }
    keys_->sendEvdevKey(*evdev, modifiers.keyCodes);
    // Given back later, on this thread's run loop when it runs, else at the next keyboard command.
    PZRunLoop::current()->performAfterDelay(
        layout_, temporaryKeyLifetime, [](KeyboardLayout& layout) { layout.releaseTemporaryKeys(false); });
    return true;
}

bool PZKeyboard::simulateToProcessWithMethod(const std::string& instruction,
                                             const std::optional<std::string>& processName, int method) {
    refreshMapsIfLayoutChanged();
    layout_->releaseTemporaryKeys(false);

    const std::vector<std::string> pieces = InputText::split(instruction, ' ');
    const bool hasModifiers = pieces.size() >= 2;
    const std::vector<std::string> givenMarks(pieces.begin(), pieces.end() - 1);
    std::string key = hasModifiers ? InputText::lowercase(pieces.back()) : pieces.back();

    int code = 0;
    int kind = KeyEventSender::ordinaryKey;
    bool found = false;
    bool numpad = false;
    std::optional<Modifiers> mapModifiers;

    std::string cleaned;
    if (isNumpadKeyCleaned(key, cleaned)) {
        key = cleaned;
        if (InputText::equalsIgnoringCase(key, "esc")) {
            key = std::string(1, '\x1b');
        } else if (InputText::equalsIgnoringCase(key, "return")) {
            key = std::string(1, '\x03');
        }
        numpad = true;
    } else if (auto independent = findIndependentCode(key)) {
        code = *independent;
        found = true;
    }

    if (!found) {
        std::shared_ptr<const PZKeyboardMap> map;
        if (auto inMaps = findCodeInMaps(key, numpad, &map)) {
            code = *inMaps;
            if (!hasModifiers) {
                mapModifiers = Modifiers{};
                if (map->modifiers() && !map->modifiers()->empty()) {
                    try {
                        mapModifiers = getModifiersFromForMethod(*map->modifiers(), method);
                    } catch (const PZException&) {
                        return false;
                    }
                }
            }
        } else {
            if (method != 1) {
                return false;
            }
            if (auto special = findSpecialKey(key, kind)) {
                code = *special;
            } else {
                // A character that no key of the layout produces: typed through a temporary key.
                return typeWithTemporaryKey(key, givenMarks, hasModifiers);
            }
        }
    }

    // Not guarded: an unknown mark raises out of here.
    const Modifiers modifiers =
        hasModifiers ? getModifiersFromForMethod(givenMarks, method) : mapModifiers.value_or(Modifiers{});

    if (method == 2) {
        asyncAppleScript(makeASSourceWithKeyCodeWithModifiersToProcess(code, modifiers.words, processName));
        if (error_) {
            PZLog("PZKeyboard error asyncAppleScript: " + error_->description());
            return false;
        }
        return true;
    }
    if (method == 1) {
        hidExecuteKeyCodeOfTypeWithModifiers(code, kind, modifiers.keyCodes);
        return true;
    }
    return false;
}

std::string PZKeyboard::description() const {
    std::string text = "PZKeyboard\n";
    for (const auto& map : maps_) {
        text += map->description() + "\n";
    }
    return text;
}
