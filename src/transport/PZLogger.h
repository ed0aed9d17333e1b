#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// Writes the program's fixed log texts to standard error and to syslog. Observers (the
// keyboard-test log view, tests) may watch every line as it is written.
class PZLogger {
public:
    using Observer = std::function<void(std::string_view line)>;

    // Writes one line; a trailing newline in the text is not doubled.
    static void write(std::string_view text);

    // Returns a token for removeObserver. Observers run on the logging thread, under the logger's lock:
    // they must not log themselves.
    static std::size_t addObserver(Observer observer);
    static void removeObserver(std::size_t token);

    // Standard error and syslog can be silenced (tests that provoke thousands of lines); observers still run.
    static void setEchoEnabled(bool enabled);

    // Decides, for each line logged on one thread, whether it is written now.
    using ThreadFilter = std::function<bool(std::string_view line)>;
    // Installs filter for the calling thread (an empty one removes it). Every line logged on this thread
    // goes to the filter first and is written only when it returns true; what the filter logs itself
    // is written unfiltered.
    static void setThreadFilter(ThreadFilter filter);
};

// The logging function used throughout the code.
inline void PZLog(std::string_view text) {
    PZLogger::write(text);
}
