#include "sysinfo/linux/ProgramOutput.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : fd_(fd) {}
    ~FileDescriptor() { reset(); }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_;
};

class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    posix_spawn_file_actions_t* get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

int waitForExit(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

std::optional<std::string> ProgramOutput::run(const std::vector<std::string>& arguments,
                                              std::chrono::milliseconds timeout, std::size_t limit) {
    if (arguments.empty()) {
        return std::nullopt;
    }
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    FileDescriptor readEnd(fds[0]);
    FileDescriptor writeEnd(fds[1]);

    SpawnActions actions;
    posix_spawn_file_actions_adddup2(actions.get(), writeEnd.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(actions.get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);

    std::vector<char*> argv;
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], actions.get(), nullptr, argv.data(), environ) != 0) {
        return std::nullopt;
    }
    writeEnd.reset();

    std::string output;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    bool timedOut = false;
    char buffer[4096];
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            break;
        }
        pollfd poller{readEnd.get(), POLLIN, 0};
        const int ready = ::poll(&poller, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            timedOut = ready == 0;
            break;
        }
        const ssize_t count = ::read(readEnd.get(), buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        if (output.size() < limit) {
            output.append(buffer, std::min(static_cast<std::size_t>(count), limit - output.size()));
        }
    }
    if (timedOut) {
        ::kill(pid, SIGKILL);
    }
    const int status = waitForExit(pid);
    if (timedOut || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return std::nullopt;
    }
    return output;
}
