#pragma once

#include <functional>
#include <string>

// Detached worker threads with small stacks and a visible name.
class PZThread {
public:
    // Stack size given to every thread started here.
    static constexpr std::size_t kStackSize = 256 * 1024;

    // Starts fn on a new detached thread named name (cut to 15 bytes); throws std::system_error if none can
    // start.
    static void detach(std::string name, std::function<void()> fn);

    // Names the calling thread (cut to 15 bytes, as the kernel allows).
    static void setCurrentName(const std::string& name);

    // How many threads started by detach() have not yet finished.
    static int runningCount();
};
