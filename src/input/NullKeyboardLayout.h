#pragma once

#include "input/KeyboardLayout.h"

// The layout used when no layout data can be had: no key produces anything.
class NullKeyboardLayout : public KeyboardLayout {
public:
    bool available() override { return false; }
    std::string keyText(int, bool, bool) override { return {}; }
    std::optional<int> keyForKeysym(std::uint32_t) override { return std::nullopt; }
};
