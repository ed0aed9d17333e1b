#include "app/VXSignalWatcher.h"

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The write end of the pipe, read by the signal handler (async-signal-safe access only).
std::atomic<int> signalPipe{-1};

void onSignal(int signal) {
    const int saved = errno;
    const int fd = signalPipe.load();
    if (fd >= 0) {
        const unsigned char number = static_cast<unsigned char>(signal);
        [[maybe_unused]] const auto written = write(fd, &number, 1);
    }
    errno = saved;
}

} // namespace

VXSignalWatcher::VXSignalWatcher(std::function<void(int)> handler) : handler_(std::move(handler)) {
    if (pipe2(pipe_, O_CLOEXEC | O_NONBLOCK) != 0) {
        pipe_[0] = pipe_[1] = -1;
        return;
    }
    signalPipe.store(pipe_[1]);
    struct sigaction action {};
    action.sa_handler = &onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    notifier_ = std::make_unique<QSocketNotifier>(pipe_[0], QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { readSignals(); });
}

VXSignalWatcher::~VXSignalWatcher() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    signalPipe.store(-1);
    notifier_.reset();
    for (int& fd : pipe_) {
        if (fd >= 0) {
            close(fd);
            fd = -1;
        }
    }
}

void VXSignalWatcher::readSignals() {
    unsigned char numbers[16];
    ssize_t n = 0;
    while ((n = read(pipe_[0], numbers, sizeof numbers)) > 0) {
        for (ssize_t i = 0; i < n; ++i) {
            if (handler_) {
                handler_(numbers[i]);
            }
        }
    }
}
