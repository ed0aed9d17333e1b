#pragma once

#include "input/ScriptRunner.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

class ApplicationLauncher;
class EventPoster;
class KeyEventSender;
class KeyboardLayout;
class PZKeyboard;
class PZMouse;
class PZRunLoop;
class PowerActions;
class ProcessActivator;
class SystemControls;
class VXCommand;
class VXCommandTester;
class VXError;
class VXTrackpadCommand;

// Turns a decoded command into an effect on the computer: keys, pointer gestures, application
// launch and focus, power actions, volume and brightness. One command runs at a time across all
// phones (the executor's lock). Errors are returned, never raised, except an unknown modifier mark
// in a keyboard instruction (PZException), which passes on to the caller.
class VXCommandExecute : public std::enable_shared_from_this<VXCommandExecute> {
public:
    // The back ends the executor works through; every one may be left empty. Empty ones are: no
    // events (a null poster), no layout, a mouse over the poster, the built-in "System Events"
    // runner, no power management (the power scripts fail), no launcher (launches fail), focus
    // changes that succeed for any running process without moving anything, no volume or brightness.
    struct Backends {
        // Pointer and key events (XTest, uinput or none).
        std::shared_ptr<EventPoster> eventPoster;
        // What the keys of the current layout produce.
        std::shared_ptr<KeyboardLayout> keyboardLayout;
        // The mouse that trackpad commands drive; empty: one over eventPoster.
        std::shared_ptr<PZMouse> mouse;
        // Runs the "System Events" scripts (keyboard method 2, sleep, restart, shut down).
        std::shared_ptr<ScriptRunner> scriptRunner;
        // Suspend, reboot and power off, for the built-in script runner.
        std::shared_ptr<PowerActions> powerActions;
        // Starts applications and opens paths ("launch").
        std::shared_ptr<ApplicationLauncher> launcher;
        // Brings a process to the front ("focus", "keyboard", "tell process").
        std::shared_ptr<ProcessActivator> processActivator;
        // Volume and brightness.
        std::shared_ptr<SystemControls> systemControls;
        // The "command_key" preference ("control", "super" or "alt"), read at each use.
        std::function<std::string()> commandKey;
        // Where the tester hooks run; empty: the main thread's run loop.
        std::shared_ptr<PZRunLoop> mainRunLoop;
        // The delay of the single-tap click.
        std::chrono::milliseconds clickDelay{150};
        // How long a keyboard command waits for the focus to reach its process.
        std::chrono::milliseconds focusTimeout{100};
    };

    // The process's one executor over the probed back ends (X11, then uinput, then none).
    static std::shared_ptr<VXCommandExecute> sharedCommandExecute();
    // An executor over the given back ends (tests and the shared instance).
    static std::shared_ptr<VXCommandExecute> create(Backends backends);

    VXCommandExecute(const VXCommandExecute&) = delete;
    VXCommandExecute& operator=(const VXCommandExecute&) = delete;
    // Cancels nothing: a delayed click still pending holds only a weak reference and is dropped.
    ~VXCommandExecute();

    // The public entry: runs the command, telling the tester before and after; nullptr is success.
    std::shared_ptr<VXError> execute(const VXCommand& command);
    // The dispatcher proper, under the executor's lock.
    std::shared_ptr<VXError> exe(const VXCommand& command);
    // The trackpad gesture interpreter; never fails.
    void executeTrackpadCommand(const VXTrackpadCommand& command);
    // Clicks once if a single tap is waiting to become a click (the delayed click's target).
    void click();
    // Runs a script through the script runner and keeps its error.
    void asyncAppleScript(const std::string& source);
    // The dump of the keyboard maps, for diagnostics.
    std::string getKeyboardMaps();

    // The keyboard method: 1 = key events, 2 = "System Events" scripts (starts at 1).
    int keyboardMethod() const { return keyboardMethod_.load(); }
    // Sets the keyboard method; any other value makes keyboard commands fail.
    void setKeyboardMethod(int method) { keyboardMethod_.store(method); }
    // The tester, not owned; nullptr when none or gone.
    std::shared_ptr<VXCommandTester> commandTester() const;
    // Sets the tester (only a weak reference is kept; nullptr removes it).
    void setCommandTester(const std::shared_ptr<VXCommandTester>& tester);

    // The error of the last script, nothing when it ran cleanly.
    std::optional<ScriptRunner::Error> error() const;
    // Whether a single tap waits to become a click.
    bool needClick() const;
    // The mouse that trackpad commands drive.
    PZMouse& mouse() const { return *mouse_; }

private:
    struct Key {};

public:
    // Made by create() only.
    VXCommandExecute(Key, Backends backends);

private:
    std::shared_ptr<VXError> executeKeyboard(const VXCommand& command);
    std::shared_ptr<VXError> executeSpecial(const VXCommand& command);
    std::shared_ptr<VXError> executeLaunch(const VXCommand& command);
    bool bringToFront(const VXCommand& command);
    void cancelDelayedClick();
    void onMainThread(const std::function<void()>& fn);

    std::unique_ptr<PZKeyboard> keyboard_;
    bool needClick_ = false;
    std::atomic<int> keyboardMethod_{1};
    std::optional<ScriptRunner::Error> error_;
    std::weak_ptr<VXCommandTester> commandTester_;

    Backends backends_;
    std::shared_ptr<PZMouse> mouse_;
    std::shared_ptr<KeyEventSender> keys_;
    mutable std::recursive_mutex lock_;
    mutable std::mutex testerMutex_;
};
