#include "E2ESubprocess.h"

#include "support/TestPlatform.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

E2ESubprocess::E2ESubprocess(const std::string& program, const std::vector<std::string>& args,
                             const std::map<std::string, std::optional<std::string>>& environment) {
    // Everything the child needs is prepared before fork: only async-signal-safe calls follow it.
    std::map<std::string, std::string> env;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (const auto equals = text.find('='); equals != std::string::npos) {
            env[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    for (const auto& [name, value] : environment) {
        value ? void(env[name] = *value) : void(env.erase(name));
    }
    std::vector<std::string> envText;
    for (const auto& [name, value] : env) {
        envText.push_back(name + "=" + value);
    }
    std::vector<std::string> argText{program};
    argText.insert(argText.end(), args.begin(), args.end());
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        for (auto& text : texts) {
            result.push_back(text.data());
        }
        result.push_back(nullptr);
        return result;
    };
    auto envp = pointers(envText);
    auto argv = pointers(argText);

    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        TestPlatform::endWithParent(parent);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    if (pid_ < 0) {
        close(out[0]);
        close(err[0]);
        throw std::runtime_error("fork failed");
    }
    outputReader_ = std::thread([this, fd = out[0]] { collect(fd, output_); });
    errorReader_ = std::thread([this, fd = err[0]] { collect(fd, errors_); });
}

E2ESubprocess::~E2ESubprocess() {
    if (!wait(Milliseconds(0))) {
        ::kill(pid_, SIGKILL);
        wait(Milliseconds(10000));
    }
    joinReaders();
}

void E2ESubprocess::joinReaders() {
    if (outputReader_.joinable()) {
        outputReader_.join();
    }
    if (errorReader_.joinable()) {
        errorReader_.join();
    }
}

void E2ESubprocess::collect(int fd, std::string& into) {
    char buffer[4096];
    while (true) {
        const auto n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        std::lock_guard lock(mutex_);
        into.append(buffer, static_cast<std::size_t>(n));
        changed_.notify_all();
    }
    close(fd);
    std::lock_guard lock(mutex_);
    --openStreams_;
    changed_.notify_all();
}

void E2ESubprocess::signal(int number) const {
    ::kill(pid_, number);
}

std::optional<int> E2ESubprocess::wait(Milliseconds timeout) {
    if (status_) {
        return status_;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        int status = 0;
        const pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return status_;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(Milliseconds(10));
    }
}

std::string E2ESubprocess::output() const {
    std::lock_guard lock(mutex_);
    return output_;
}

std::string E2ESubprocess::errors() const {
    std::lock_guard lock(mutex_);
    return errors_;
}

std::optional<std::string> E2ESubprocess::waitForError(const std::string& text, Milliseconds timeout) {
    std::unique_lock lock(mutex_);
    const auto found = [&] { return errors_.find(text) != std::string::npos; };
    changed_.wait_for(lock, timeout, [&] { return found() || openStreams_ == 0; });
    if (!found()) {
        return std::nullopt;
    }
    const auto start = errors_.rfind('\n', errors_.find(text)) + 1; // npos + 1 is 0
    return errors_.substr(start, errors_.find('\n', start) - start);
}

E2ESubprocess::Result E2ESubprocess::run(const std::string& program, const std::vector<std::string>& args,
                                         const std::map<std::string, std::optional<std::string>>& environment,
                                         Milliseconds timeout) {
    E2ESubprocess process(program, args, environment);
    Result result;
    auto status = process.wait(timeout);
    if (!status) {
        process.signal(SIGKILL);
        status = process.wait(Milliseconds(10000));
    }
    result.status = status.value_or(-1);
    // The readers end once the process (and any child holding the pipes) is gone.
    process.joinReaders();
    result.output = process.output();
    result.errors = process.errors();
    return result;
}
