#pragma once

#include "input/KeyboardLayout.h"

#include <memory>
#include <string>

class XkbKeymap;

// A keyboard layout compiled from its rules names, for the back ends that have no X server to ask
// (uinput): the system's configured layout (/etc/default/keyboard), else xkbcommon's defaults.
class XkbKeymapLayout : public KeyboardLayout {
public:
    // The layout named (empty parts: xkbcommon's defaults), in layout group `group`.
    static std::shared_ptr<XkbKeymapLayout> fromNames(const std::string& layout,
                                                      const std::string& variant = {},
                                                      const std::string& options = {}, unsigned group = 0);
    // The layout configured in `keyboardFile` (XKBLAYOUT, XKBVARIANT, XKBOPTIONS, XKBMODEL).
    static std::shared_ptr<XkbKeymapLayout>
    fromSystemSettings(const std::string& keyboardFile = "/etc/default/keyboard");

    XkbKeymapLayout(std::unique_ptr<XkbKeymap> keymap, unsigned group);
    ~XkbKeymapLayout() override;

    bool available() override { return keymap_ != nullptr; }
    std::string keyText(int evdevCode, bool shift, bool option) override;
    std::optional<int> keyForKeysym(std::uint32_t keysym) override;

private:
    std::unique_ptr<XkbKeymap> keymap_;
    unsigned group_ = 0;
};
