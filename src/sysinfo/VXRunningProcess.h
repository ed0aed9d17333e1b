#pragma once

#include <cstdint>
#include <string>

// What the platform says about one running process that owns a user interface.
struct VXRunningProcess {
    // The process id (never 0, -1 or -2, which mark pseudo-processes).
    std::int64_t pid = 0;
    // The executable's base name (/proc/PID/exe, else /proc/PID/comm).
    std::string executableName;
    // WM_CLASS instance name of its first window ("gedit").
    std::string instanceName;
    // WM_CLASS class name of its first window ("Gedit").
    std::string className;
    // The title of its first window.
    std::string windowTitle;

    bool operator==(const VXRunningProcess&) const = default;
};
