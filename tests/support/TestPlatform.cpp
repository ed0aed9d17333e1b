#include "support/TestPlatform.h"

#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <unistd.h>

std::string TestPlatform::env(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool TestPlatform::inCI() {
    return env("CI") == "true";
}

std::string TestPlatform::display() {
    std::string value = env("VXH_TEST_DISPLAY");
    return value.empty() ? env("DISPLAY") : value;
}

std::string TestPlatform::pulseServer() {
    return env("VXH_TEST_PULSE");
}

void TestPlatform::endWithParent(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
        _exit(1); // the test process ended before the signal was asked for
    }
}
