#pragma once

// A child process of an end-to-end test, its standard output and error collected by threads.

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

class E2ESubprocess {
public:
    using Milliseconds = std::chrono::milliseconds;

    // Environment entries replace variables, or remove them when empty.
    E2ESubprocess(const std::string& program, const std::vector<std::string>& args,
                  const std::map<std::string, std::optional<std::string>>& environment = {});
    ~E2ESubprocess();
    E2ESubprocess(const E2ESubprocess&) = delete;
    E2ESubprocess& operator=(const E2ESubprocess&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    // The exit status (128 + n for signal n), or nothing while it still runs after timeout.
    std::optional<int> wait(Milliseconds timeout);

    std::string output() const;
    std::string errors() const;
    // Waits until standard error holds text; the line holding it, if any.
    std::optional<std::string> waitForError(const std::string& text, Milliseconds timeout);

    // Runs a program to its end (killed after timeout).
    struct Result {
        int status = -1;
        std::string output;
        std::string errors;
    };
    static Result run(const std::string& program, const std::vector<std::string>& args,
                      const std::map<std::string, std::optional<std::string>>& environment = {},
                      Milliseconds timeout = Milliseconds(60000));

private:
    void collect(int fd, std::string& into);
    void joinReaders();

    pid_t pid_ = -1;
    std::optional<int> status_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string output_;
    std::string errors_;
    int openStreams_ = 2;
    std::thread outputReader_;
    std::thread errorReader_;
};
