#include "input/VXCommandExecute.h"

#include "input/ApplicationLauncher.h"
#include "input/EventPoster.h"
#include "input/InputText.h"
#include "input/KeyEventSender.h"
#include "input/NullEventPoster.h"
#include "input/NullKeyboardLayout.h"
#include "input/PZKeyboard.h"
#include "input/PZMouse.h"
#include "input/PowerActions.h"
#include "input/ProcessActivator.h"
#include "input/SystemControls.h"
#include "input/SystemEventsScriptRunner.h"
#include "input/VXCommandTester.h"
#include "protocol/VXCommand.h"
#include "protocol/VXError.h"
#include "protocol/VXTrackpadCommand.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <exception>
#include <future>

namespace {

// A decimal number read as the start of the text ("C" locale); text that is not a number reads as 0.
float readFloat(const std::optional<std::string>& text) {
    if (!text) {
        return 0;
    }
    std::string_view s = *text;
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\n' || s.front() == '\r')) {
        s.remove_prefix(1);
    }
    if (s.size() >= 2 && s.front() == '+' && s[1] != '-' && s[1] != '+') {
        s.remove_prefix(1);
    }
    float value = 0;
    const auto result = std::from_chars(s.data(), s.data() + s.size(), value);
    if (result.ec != std::errc{} || std::isnan(value)) {
        return 0;
    }
    return value;
}

} // namespace

std::shared_ptr<VXCommandExecute> VXCommandExecute::create(Backends backends) {
    return std::make_shared<VXCommandExecute>(Key{}, std::move(backends));
}

VXCommandExecute::VXCommandExecute(Key, Backends backends) : backends_(std::move(backends)) {
    if (!backends_.eventPoster) {
        backends_.eventPoster = std::make_shared<NullEventPoster>();
    }
    if (!backends_.keyboardLayout) {
        backends_.keyboardLayout = std::make_shared<NullKeyboardLayout>();
    }
    mouse_ = backends_.mouse ? backends_.mouse : std::make_shared<PZMouse>(backends_.eventPoster);
    keys_ = std::make_shared<KeyEventSender>(backends_.eventPoster, backends_.keyboardLayout);
    if (backends_.commandKey) {
        keys_->setCommandKeyProvider(backends_.commandKey);
    }
    if (!backends_.scriptRunner) {
        backends_.scriptRunner = std::make_shared<SystemEventsScriptRunner>(
            keys_, backends_.processActivator, backends_.powerActions, backends_.focusTimeout);
    }
    keyboard_ = std::make_unique<PZKeyboard>(backends_.keyboardLayout, keys_, backends_.scriptRunner);
}

VXCommandExecute::~VXCommandExecute() = default;

std::shared_ptr<VXCommandTester> VXCommandExecute::commandTester() const {
    std::lock_guard<std::mutex> guard(testerMutex_);
    return commandTester_.lock();
}

void VXCommandExecute::setCommandTester(const std::shared_ptr<VXCommandTester>& tester) {
    std::lock_guard<std::mutex> guard(testerMutex_);
    commandTester_ = tester;
}

std::optional<ScriptRunner::Error> VXCommandExecute::error() const {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    return error_;
}

bool VXCommandExecute::needClick() const {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    return needClick_;
}

void VXCommandExecute::onMainThread(const std::function<void()>& fn) {
    const auto loop = backends_.mainRunLoop ? backends_.mainRunLoop : PZRunLoop::main();
    if (loop->isCurrent()) {
        fn();
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    auto finished = done->get_future();
    loop->post([fn, done] {
        try {
            fn();
            done->set_value();
        } catch (...) {
            done->set_exception(std::current_exception());
        }
    });
    finished.get();
}

std::shared_ptr<VXError> VXCommandExecute::execute(const VXCommand& command) {
    const auto tester = commandTester();
    if (!tester) {
        return exe(command);
    }
    onMainThread([&] {
        if (auto current = commandTester()) {
            current->willExecuteCommand(command);
        }
    });
    auto error = exe(command);
    if (error) {
        return error;
    }
    onMainThread([&] {
        if (auto current = commandTester()) {
            current->didExecuteCommand(command);
        }
    });
    return nullptr;
}

std::shared_ptr<VXError> VXCommandExecute::exe(const VXCommand& command) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    const std::string type = command.type().value_or("");
    if (type == "trackpad") {
        if (const auto* trackpad = dynamic_cast<const VXTrackpadCommand*>(&command)) {
            executeTrackpadCommand(*trackpad);
        }
        return nullptr;
    }
    if (type == "keyboard" || type == "numPad") {
        return executeKeyboard(command);
    }
    if (type == "volume") {
        if (backends_.systemControls) {
            backends_.systemControls->setVolume(readFloat(command.instruction()));
        }
        return nullptr;
    }
    if (type == "brightness") {
        if (backends_.systemControls) {
            backends_.systemControls->setBrightness(readFloat(command.instruction()));
        }
        return nullptr;
    }
    if (type == "special") {
        return executeSpecial(command);
    }
    if (type == "launch") {
        return executeLaunch(command);
    }
    if (type == "focus") {
        return bringToFront(command) ? nullptr : VXError::unableToExecuteCommandError();
    }
    return VXError::unableToRecognizeCommandError();
}

bool VXCommandExecute::bringToFront(const VXCommand& command) {
    if (!command.process()) {
        return false;
    }
    return command.process()->setFrontProcess([this](std::int64_t pid) {
        if (backends_.processActivator) {
            return backends_.processActivator->activateProcess(pid);
        }
        // Without a window system nothing can be raised: a running process counts as in front.
        return pid > 0 && pid <= INT32_MAX && (::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
    });
}

std::shared_ptr<VXError> VXCommandExecute::executeKeyboard(const VXCommand& command) {
    if (!bringToFront(command)) {
        return VXError::unableToExecuteCommandError();
    }
    const std::int64_t pid = command.process()->pid();
    if (pid > 0 && backends_.processActivator) {
        backends_.processActivator->waitForFocus(pid, backends_.focusTimeout);
    }
    const int method = keyboardMethod_.load();
    std::optional<std::string> name;
    if (method == 2 && pid > 0) {
        name = command.process()->name();
    }
    if (!keyboard_->simulateToProcessWithMethod(command.instruction().value_or(""), name, method)) {
        return VXError::unableToExecuteCommandError();
    }
    return nullptr;
}

std::shared_ptr<VXError> VXCommandExecute::executeSpecial(const VXCommand& command) {
    const std::string word = command.instruction().value_or("");
    const char* source = nullptr;
    if (InputText::equalsIgnoringCase(word, "sleep")) {
        source = "tell application \"System Events\" to sleep";
    } else if (InputText::equalsIgnoringCase(word, "shutdown")) {
        source = "tell application \"System Events\" to shut down";
    } else if (InputText::equalsIgnoringCase(word, "restart")) {
        source = "tell application \"System Events\" to restart";
    } else {
        return VXError::unableToRecognizeCommandError();
    }
    asyncAppleScript(source);
    if (error_) {
        PZLog("VXCommandExecute exe: special " + error_->description());
        return VXError::unableToExecuteCommandError();
    }
    return nullptr;
}

std::shared_ptr<VXError> VXCommandExecute::executeLaunch(const VXCommand& command) {
    const std::string instruction = command.instruction().value_or("");
    const auto pieces = InputText::split(instruction, ' ');
    bool started = false;
    if (pieces.size() >= 2 && pieces.front() == "\"\"") {
        // Two quote characters, a space and a path: the path is opened with its default handler.
        PZLog("open " + instruction.substr(2));
        std::string path = instruction.substr(2);
        path.erase(0, path.find_first_not_of(' ') == std::string::npos ? path.size()
                                                                       : path.find_first_not_of(' '));
        started = backends_.launcher && !path.empty() && backends_.launcher->openPath(path);
    } else {
        PZLog("open -a " + instruction);
        started = backends_.launcher && backends_.launcher->launchApplication(instruction);
    }
    return started ? nullptr : VXError::unableToExecuteCommandError();
}

void VXCommandExecute::asyncAppleScript(const std::string& source) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    // The built-in runner has no thread of its own to keep: it runs on the executing thread.
    error_.reset();
    error_ = backends_.scriptRunner->runScript(source);
}

std::string VXCommandExecute::getKeyboardMaps() {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    return keyboard_->description();
}

void VXCommandExecute::cancelDelayedClick() {
    PZRunLoop::current()->cancelPreviousPerformRequests(this);
}

void VXCommandExecute::click() {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    if (needClick_) {
        needClick_ = false;
        mouse_->click();
    }
}

void VXCommandExecute::executeTrackpadCommand(const VXTrackpadCommand& command) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    const VXPoint shift = command.shift();
    const std::int32_t touchState = command.touchState();
    const std::int16_t fingers = command.fingers();
    const std::int16_t tapCount = command.tapCount();

    if (shift.x != 0 || shift.y != 0) {
        if (fingers == 1) {
            if (needClick_) {
                needClick_ = false;
                cancelDelayedClick();
            }
            mouse_->translateOf(shift);
            if (touchState == 0) {
                mouse_->leftMouseUp();
            }
        } else if (fingers == 2) {
            if (needClick_) {
                needClick_ = false;
                cancelDelayedClick();
            }
            mouse_->scrollWheel(shift);
        }
        return;
    }

    if (touchState == 1) {
        if (tapCount == 2 && fingers == 1) {
            cancelDelayedClick();
            mouse_->leftMouseDown();
        }
        return;
    }
    if (touchState != 0) {
        return;
    }
    if (tapCount == 0) {
        mouse_->leftMouseUp();
    } else if (tapCount == 1) {
        if (fingers == 1) {
            needClick_ = true;
            PZRunLoop::current()->performAfterDelay(
                shared_from_this(), backends_.clickDelay,
                [](VXCommandExecute& executor) { executor.click(); }, "click");
        } else if (fingers == 2) {
            mouse_->rightClick();
        }
    } else if (tapCount == 2 && fingers == 1) {
        mouse_->leftMouseUp();
        if (needClick_) {
            click();
        }
    }
}
