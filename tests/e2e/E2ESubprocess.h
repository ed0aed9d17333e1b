#pragma once

// A child process of an end-to-end test: the real velorixhelper or velorixctl, started with an
// argument vector and extra environment, its standard output and error collected by threads.

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

    // Starts program with args; environment entries replace (or, with an empty optional, remove) variables.
    E2ESubprocess(const std::string& program, const std::vector<std::string>& args,
                  const std::map<std::string, std::optional<std::string>>& environment = {});
    // Kills the process if it still runs and reaps it.
    ~E2ESubprocess();
    E2ESubprocess(const E2ESubprocess&) = delete;
    E2ESubprocess& operator=(const E2ESubprocess&) = delete;

    // The process id.
    pid_t pid() const { return pid_; }
    // Sends a signal.
    void signal(int number) const;
    // Waits for the end; its exit status (128 + n for a signal n), or nothing when it still runs after
    // timeout.
    std::optional<int> wait(Milliseconds timeout);

    // What the process wrote to standard output / standard error so far.
    std::string output() const;
    std::string errors() const;
    // Waits until standard error holds text (or the process ended); returns the line holding it, if any.
    std::optional<std::string> waitForError(const std::string& text, Milliseconds timeout);

    // Runs a program to its end (killed after timeout) and returns its exit status and output.
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
