#include "input/SystemEventsScriptRunner.h"

#include "input/KeyEventSender.h"
#include "input/PowerActions.h"
#include "input/ProcessActivator.h"
#include "input/SystemEventsScript.h"

std::string ScriptRunner::Error::description() const {
    std::string escaped;
    for (char c : message) {
        if (c == '"' || c == '\\') {
            escaped += '\\';
        }
        escaped += c;
    }
    return "{number = " + std::to_string(number) + "; message = \"" + escaped + "\"}";
}

SystemEventsScriptRunner::SystemEventsScriptRunner(std::shared_ptr<KeyEventSender> keys,
                                                   std::shared_ptr<ProcessActivator> activator,
                                                   std::shared_ptr<PowerActions> power,
                                                   std::chrono::milliseconds focusTimeout)
    : keys_(std::move(keys)), activator_(std::move(activator)), power_(std::move(power)),
      focusTimeout_(focusTimeout) {}

std::optional<ScriptRunner::Error> SystemEventsScriptRunner::runScript(const std::string& source) {
    std::string compileError;
    const auto script = SystemEventsScript::compile(source, &compileError);
    if (!script) {
        return Error{syntaxErrorNumber, compileError};
    }
    std::optional<std::string> refused;
    switch (script->action()) {
    case SystemEventsScript::Action::sleep:
        refused = power_ ? power_->suspend() : std::optional<std::string>("no power management");
        break;
    case SystemEventsScript::Action::shutDown:
        refused = power_ ? power_->powerOff() : std::optional<std::string>("no power management");
        break;
    case SystemEventsScript::Action::restart:
        refused = power_ ? power_->reboot() : std::optional<std::string>("no power management");
        break;
    case SystemEventsScript::Action::keyCode: {
        if (script->processName()) {
            const auto pid =
                activator_ ? activator_->activateProcessNamed(*script->processName()) : std::nullopt;
            if (!pid) {
                return Error{noSuchProcessNumber, "System Events got an error: Can't get process \"" +
                                                      *script->processName() + "\"."};
            }
            activator_->waitForFocus(*pid, focusTimeout_);
        }
        if (!keys_->sendKeyCode(script->keyCode(), KeyEventSender::ordinaryKey, script->modifiers())) {
            return Error{refusedNumber, "System Events got an error: key code " +
                                            std::to_string(script->keyCode()) + " has no key."};
        }
        break;
    }
    }
    if (refused) {
        return Error{refusedNumber, "System Events got an error: " + *refused};
    }
    return std::nullopt;
}
