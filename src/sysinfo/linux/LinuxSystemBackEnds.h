#pragma once

#include "sysinfo/VXSystemInfoBackEnds.h"

// The back ends of this computer, each probed once: the pieces that are absent (no X display
// support compiled, no audio server library...) are left null, and each present one finds its
// service again on a later use when it was away.
class LinuxSystemBackEnds {
public:
    // Probes the pieces and logs the choice once.
    static VXSystemInfoBackEnds probe();
};
