#pragma once

#include "input/VXCommandExecute.h"

// Chooses the input back ends of this process: XTest with the X server's layout and EWMH focus when an
// X server with XTEST answers, else uinput virtual devices with the configured layout when /dev/uinput
// can be written, else the null poster. Power through logind, launches through desktop entries,
// volume and brightness through the system information, the command key from the preferences.
class InputBackendProbe {
public:
    // The back ends, probed once per process; the choice is logged once.
    static const VXCommandExecute::Backends& shared();
    // Probes afresh (`displayName` empty: $DISPLAY).
    static VXCommandExecute::Backends probe(const std::string& displayName = {});
};
