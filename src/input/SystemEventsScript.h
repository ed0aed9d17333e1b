#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A compiled "System Events" script: exactly the texts that the keyboard and the power commands
// generate, and nothing else.
//   tell application "System Events" to sleep | shut down | restart
//   tell application "System Events"\n[tell process "NAME"\n]key code N[ using {W, W...}]\n[end tell\n]end
//   tell
// W is one of "shift down", "control down", "option down", "command down". NAME is a string literal
// (\" and \\ escapes). Any other text is a compile error.
class SystemEventsScript {
public:
    enum class Action { keyCode, sleep, shutDown, restart };

    // The compiled script, or nothing with the reason in `error`.
    static std::optional<SystemEventsScript> compile(std::string_view source, std::string* error = nullptr);

    Action action() const { return action_; }
    // The process addressed by "tell process", if any.
    const std::optional<std::string>& processName() const { return processName_; }
    // The key code of "key code N".
    int keyCode() const { return keyCode_; }
    // The modifier keys held with it, as virtual key codes (56 shift, 59 control, 58 option, 55 command).
    const std::vector<int>& modifiers() const { return modifiers_; }

private:
    Action action_ = Action::keyCode;
    std::optional<std::string> processName_;
    int keyCode_ = 0;
    std::vector<int> modifiers_;
};
