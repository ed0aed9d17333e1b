#pragma once

#include "input/KeyboardLayout.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class X11InputConnection;
class XkbKeymap;

// The keyboard layout of an X server, read with xkbcommon-x11, in the layout group that is locked on
// the server. XKB events tell it when the layout changes (a new keyboard description, a changed
// mapping, another group) and what the locked modifiers are; they are read when the keyboard asks.
// Characters that no key produces are bound for a moment to spare key codes (key codes without any
// symbol), with the mapping restored afterwards; these changes of its own do not count as a layout
// change.
class X11KeyboardLayout : public KeyboardLayout {
public:
    // How long a temporary key stays bound at least. A program fetches the changed mapping only when
    // it reads the MappingNotify, and a busy program (or one on a loaded machine) reads it late: if the
    // mapping were restored by then, the key would give it no character at all.
    static constexpr std::chrono::milliseconds temporaryKeyGrace{2000};

    explicit X11KeyboardLayout(std::shared_ptr<X11InputConnection> connection);
    // Restores the mapping of the temporary keys still bound.
    ~X11KeyboardLayout() override;

    bool available() override;
    std::string keyText(int evdevCode, bool shift, bool option) override;
    std::optional<int> keyForKeysym(std::uint32_t keysym) override;
    bool layoutChanged() override;
    std::optional<LockState> lockState() override;
    void lockKeysPressed() override { lockStateStale_ = true; }
    std::optional<int> bindTemporaryKey(std::uint32_t keysym) override;
    void releaseTemporaryKeys(bool all) override;

    // The layout group in use.
    unsigned group() const { return group_; }

private:
    struct TemporaryKey {
        int keycode = 0;
        std::uint32_t keysym = 0;
        std::chrono::steady_clock::time_point usedAt;
    };

    bool ensure();
    void setUp();
    // Reads the keymap, the locked group and modifiers and the spare key codes; true when the keymap
    // types differently from the one read before.
    bool loadKeymap();
    void readEvents();
    bool isOwnMapChange(const void* mapNotify) const;
    void restore(int keycode);

    std::shared_ptr<X11InputConnection> connection_;
    std::unique_ptr<XkbKeymap> keymap_;
    std::string fingerprint_;
    std::uint64_t generation_ = 0;
    std::int32_t deviceId_ = -1;
    std::uint8_t xkbEventBase_ = 0;
    bool changed_ = false;
    unsigned group_ = 0;
    std::uint8_t lockedMods_ = 0;
    // The request after which lockedMods_ was read from the server: older reports are not used.
    std::uint64_t lockedModsSequence_ = 0;
    // Our own lock key presses may still be reported: read the state from the server next time.
    bool lockStateStale_ = false;
    std::vector<int> spareKeycodes_;
    std::vector<TemporaryKey> temporary_;
};
