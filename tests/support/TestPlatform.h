#pragma once

#include <gtest/gtest.h>

#include <string>
#include <sys/types.h>

// Tests that need a platform piece (an X server, an audio server, Avahi) skip with the reason
// when it is absent; in CI (CI=true) every piece must be there, so the absence fails the test.
//   VXH_REQUIRE_PLATFORM(TestPlatform::display().has_value(), "no X server (VXH_TEST_DISPLAY unset)");
#define VXH_REQUIRE_PLATFORM(condition, reason)                                                              \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            if (TestPlatform::inCI()) {                                                                      \
                FAIL() << "platform piece missing in CI: " << (reason);                                      \
            }                                                                                                \
            GTEST_SKIP() << (reason);                                                                        \
        }                                                                                                    \
    } while (false)

class TestPlatform {
public:
    // True when CI=true is set in the environment.
    static bool inCI();
    // The X display the test services started (VXH_TEST_DISPLAY, else DISPLAY), empty when none.
    static std::string display();
    // The PulseAudio server address of the test services (VXH_TEST_PULSE), empty when none.
    static std::string pulseServer();
    // The value of an environment variable, empty when unset.
    static std::string env(const char* name);
    // Called in a child between fork and exec, with the test process's pid taken before the fork: the
    // child gets SIGTERM when the test process ends, also when it aborts, so no server outlives it.
    static void endWithParent(pid_t parent);
};
