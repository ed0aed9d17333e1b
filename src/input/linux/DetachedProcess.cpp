#include "input/linux/DetachedProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

// The program's path: as given when it has a slash, else the first executable of that name in PATH.
std::string resolve(const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return program;
    }
    const char* path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= dirs.size()) {
        std::size_t end = dirs.find(':', start);
        if (end == std::string::npos) {
            end = dirs.size();
        }
        const std::string dir = end > start ? dirs.substr(start, end - start) : std::string(".");
        const std::string candidate = dir + "/" + program;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    return {};
}

} // namespace

bool DetachedProcess::spawn(const std::vector<std::string>& argv, std::string* error) {
    const auto fail = [&](const std::string& reason) {
        if (error != nullptr) {
            *error = reason;
        }
        return false;
    };
    if (argv.empty() || argv.front().empty()) {
        return fail("no program");
    }
    const std::string path = resolve(argv.front());
    if (path.empty()) {
        return fail(argv.front() + ": not found");
    }
    // Everything the children use is prepared before fork: after it only async-signal-safe calls.
    std::vector<std::string> arguments = argv;
    std::vector<char*> args;
    for (auto& argument : arguments) {
        args.push_back(argument.data());
    }
    args.push_back(nullptr);
    rlimit limit{};
    const int maxFd = getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY
                          ? static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 65536))
                          : 65536;
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        return fail(std::strerror(errno));
    }
    const int devnull = open("/dev/null", O_RDONLY | O_CLOEXEC);
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);

    const pid_t child = fork();
    if (child == 0) {
        setsid();
        const pid_t grandchild = fork();
        if (grandchild != 0) {
            _exit(grandchild < 0 ? 1 : 0);
        }
        if (devnull >= 0) {
            dup2(devnull, STDIN_FILENO);
        }
        // Every other descriptor closes at exec; the report pipe too, which tells the parent it worked.
        if (syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
            for (int fd = 3; fd < maxFd; ++fd) {
                fcntl(fd, F_SETFD, FD_CLOEXEC);
            }
        }
        struct sigaction defaults {};
        defaults.sa_handler = SIG_DFL;
        for (int sig = 1; sig < NSIG; ++sig) {
            sigaction(sig, &defaults, nullptr);
        }
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execve(path.c_str(), args.data(), environ);
        const int failure = errno;
        [[maybe_unused]] const ssize_t written = write(report[1], &failure, sizeof failure);
        _exit(127);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    close(report[1]);
    if (devnull >= 0) {
        close(devnull);
    }
    if (child < 0) {
        const int failure = errno;
        close(report[0]);
        return fail(std::strerror(failure));
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    int failure = 0;
    ssize_t got;
    while ((got = read(report[0], &failure, sizeof failure)) < 0 && errno == EINTR) {
    }
    close(report[0]);
    if (got == static_cast<ssize_t>(sizeof failure)) {
        return fail(path + ": " + std::strerror(failure));
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return fail("could not start a new process");
    }
    return true;
}
