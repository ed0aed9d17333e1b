#include "support/TestPlatform.h"

#include <cstdlib>

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
