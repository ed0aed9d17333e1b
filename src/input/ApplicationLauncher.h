#pragma once

#include <string>

// Starts applications and opens documents without any shell. True means the launch started.
class ApplicationLauncher {
public:
    virtual ~ApplicationLauncher() = default;

    // Starts the application called `name` (its display name, its desktop file id or its program).
    virtual bool launchApplication(const std::string& name) = 0;
    // Opens a path (or a URL) with the user's default handler.
    virtual bool openPath(const std::string& path) = 0;
};
