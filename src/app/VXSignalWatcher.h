#pragma once

#include <functional>
#include <memory>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a call on the thread that runs Qt's event loop: the signal handler only
// writes the signal's number into a pipe (close-on-exec), which a QSocketNotifier watches. While it lives
// the two signals no longer end the process by themselves. The signal mask is left alone, so launched
// programs inherit the default dispositions.
class VXSignalWatcher {
public:
    // Watches SIGINT and SIGTERM; handler(signal) runs on the calling thread's event loop.
    explicit VXSignalWatcher(std::function<void(int)> handler);
    // Restores the default dispositions and closes the pipe.
    ~VXSignalWatcher();
    VXSignalWatcher(const VXSignalWatcher&) = delete;
    VXSignalWatcher& operator=(const VXSignalWatcher&) = delete;

    // Whether the pipe and the handlers were installed.
    bool isActive() const { return notifier_ != nullptr; }

private:
    void readSignals();

    std::function<void(int)> handler_;
    int pipe_[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> notifier_;
};
