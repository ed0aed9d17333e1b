#pragma once

#include "input/ScriptRunner.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

class KeyEventSender;
class KeyboardLayout;
class PZKeyboardMap;

// Carries out the instruction of a "keyboard" or "numPad" command: finds the key code, the key kind
// and the modifier keys that produce what the phone asked for, and types them through the key sender
// (method 1) or through a "System Events" script (method 2). Used under the executor's lock.
//
// Instruction grammar: pieces separated by single spaces; the last is the key, the others are
// modifier marks ("#1" shift, "#2" control, "#3" option, "#4" command). The key is a character the
// layout produces, a layout-independent name ("return", "F5", "LeftArrow"...), a special key ("play",
// "eject"...), any of these containing "numpad" for the keypad version. With a modifier the key is
// lowered first.
class PZKeyboard {
public:
    // Modifier marks converted for one method: key codes for method 1, script words for method 2.
    struct Modifiers {
        std::vector<int> keyCodes;
        std::vector<std::string> words;
    };

    // Builds the maps from `layout` (refreshMaps).
    PZKeyboard(std::shared_ptr<KeyboardLayout> layout, std::shared_ptr<KeyEventSender> keys,
               std::shared_ptr<ScriptRunner> scriptRunner);

    // Rebuilds the four maps (plain, shift, option, shift and option) from the current layout.
    void refreshMaps();
    // Rebuilds the maps when the layout reported a change since the last look; true when it did.
    bool refreshMapsIfLayoutChanged();

    // The whole operation: true when the key was found and typed (method 1) or the script ran
    // cleanly (method 2). Raises PZException for an unknown modifier mark once the key was found.
    bool simulateToProcessWithMethod(const std::string& instruction,
                                     const std::optional<std::string>& processName, int method);

    // True when `key` contains "numpad" in any case; `cleaned` is then the key without it.
    static bool isNumpadKeyCleaned(const std::string& key, std::string& cleaned);
    // The layout-independent key names; raises "PZKeybaord getIndipendetCode:" for other names.
    static int getIndipendetCode(const std::string& key);
    // Asks each map in order; the first that knows `text` gives the code and itself through `map`.
    // Raises "PZKeyboard getCodeFromMaps:" when none does.
    int getCodeFromMapsIsNumpadKeyMap(const std::string& text, bool numpad,
                                      std::shared_ptr<const PZKeyboardMap>* map) const;
    // The special keys: code and kind (2 system-defined, 3 auxiliary); raises
    // "PZKeyboard getCodeFromSpecialMap" for other names.
    static int getCodeFromSpecialMapType(const std::string& text, int& kind);
    // Converts modifier marks ("#1".."#4") for `method`; raises "PZKeyboard getModifiersFrom:" for
    // an unknown mark or, when there are marks, an unknown method.
    static Modifiers getModifiersFromForMethod(const std::vector<std::string>& marks, int method);
    // Converts modifier key codes (55, 56, 58, 59) for `method`.
    static Modifiers getModifiersFromForMethod(const std::vector<int>& keyCodes, int method);
    // Posts the events of method 1.
    void hidExecuteKeyCodeOfTypeWithModifiers(int code, int kind, const std::vector<int>& modifiers);
    // The script source of method 2.
    static std::string
    makeASSourceWithKeyCodeWithModifiersToProcess(int code, const std::vector<std::string>& words,
                                                  const std::optional<std::string>& processName);
    // Runs a script and keeps its error (logged).
    void asyncAppleScript(const std::string& source);

    // The four maps in search order: plain, shift, option, shift and option.
    const std::vector<std::shared_ptr<const PZKeyboardMap>>& maps() const { return maps_; }
    // The error of the last script, nothing when it ran cleanly.
    const std::optional<ScriptRunner::Error>& error() const { return error_; }
    // "PZKeyboard\n" and the dump of each map.
    std::string description() const;

private:
    // The lookups of the operations above without exceptions (they run for every key).
    static std::optional<int> findIndependentCode(const std::string& key);
    std::optional<int> findCodeInMaps(const std::string& text, bool numpad,
                                      std::shared_ptr<const PZKeyboardMap>* map) const;
    static std::optional<int> findSpecialKey(const std::string& text, int& kind);
    bool typeWithTemporaryKey(const std::string& key, const std::vector<std::string>& marks,
                              bool hasModifiers);

    std::shared_ptr<const PZKeyboardMap> keyCodeMap_;
    std::shared_ptr<const PZKeyboardMap> shiftKeyCodeMap_;
    std::shared_ptr<const PZKeyboardMap> optionKeyCodeMap_;
    std::shared_ptr<const PZKeyboardMap> optionShiftKeyCodeMap_;
    std::vector<std::shared_ptr<const PZKeyboardMap>> maps_;
    std::optional<ScriptRunner::Error> error_;

    std::shared_ptr<KeyboardLayout> layout_;
    std::shared_ptr<KeyEventSender> keys_;
    std::shared_ptr<ScriptRunner> scriptRunner_;
};
