// Measures the time from starting build/velorixhelper --headless --port 0 to its log line
// "Waiting for connections on port N", over many runs, and prints the median and spread.
//   bench_app_startup [RUNS]    (default 50; one warm-up run first, which also writes the first-run settings)

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// One run: the milliseconds until the line, or a negative number when it did not come.
double runOnce(const std::string& home) {
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);

    std::vector<std::string> envText;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        if (entry.rfind("HOME=", 0) != 0 && entry.rfind("XDG_CONFIG_HOME=", 0) != 0) {
            envText.push_back(entry);
        }
    }
    envText.push_back("HOME=" + home);
    envText.push_back("XDG_CONFIG_HOME=" + home + "/config");
    std::vector<char*> envp;
    for (auto& entry : envText) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    std::string program = VXH_VELORIXHELPER_PATH;
    std::string headless = "--headless";
    std::string portFlag = "--port";
    std::string port = "0";
    char* argv[] = {program.data(), headless.data(), portFlag.data(), port.data(), nullptr};

    const auto start = Clock::now();
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    if (spawned != 0) {
        close(pipeFds[0]);
        return -1;
    }
    std::string seen;
    double elapsed = -1;
    const auto deadline = start + std::chrono::seconds(20);
    while (Clock::now() < deadline) {
        pollfd waiter{pipeFds[0], POLLIN, 0};
        if (poll(&waiter, 1, 100) <= 0) {
            continue;
        }
        char buffer[4096];
        const auto n = read(pipeFds[0], buffer, sizeof buffer);
        if (n <= 0) {
            break;
        }
        seen.append(buffer, static_cast<std::size_t>(n));
        if (seen.find("Waiting for connections on port ") != std::string::npos) {
            elapsed = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
            break;
        }
    }
    kill(pid, SIGTERM);
    // Keep draining so that the server never blocks on a full pipe while it stops.
    while (true) {
        char buffer[4096];
        pollfd waiter{pipeFds[0], POLLIN, 0};
        if (poll(&waiter, 1, 5000) <= 0 || read(pipeFds[0], buffer, sizeof buffer) <= 0) {
            break;
        }
    }
    close(pipeFds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return elapsed;
}

// The wall-clock time of "velorixhelper --version" (loading the program and its libraries, then exiting): the
// floor under any start-up.
double versionOnce() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::string program = VXH_VELORIXHELPER_PATH;
    std::string version = "--version";
    char* argv[] = {program.data(), version.data(), nullptr};
    const auto start = Clock::now();
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    waitpid(pid, &status, 0);
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 50;
    std::string pattern = (std::filesystem::temp_directory_path() / "vxh-bench-XXXXXX").string();
    const std::string home = mkdtemp(pattern.data());

    runOnce(home); // warm-up: page cache, first-run settings
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const double ms = runOnce(home);
        if (ms < 0) {
            std::fprintf(stderr, "run %d: no \"Waiting for connections\" line\n", i);
            std::filesystem::remove_all(home);
            return 1;
        }
        times.push_back(ms);
    }
    std::filesystem::remove_all(home);
    std::sort(times.begin(), times.end());
    const auto at = [&](double q) {
        return times[static_cast<std::size_t>(q * static_cast<double>(times.size() - 1))];
    };
    std::vector<double> floor;
    for (int i = 0; i < runs; ++i) {
        floor.push_back(versionOnce());
    }
    std::printf("velorixhelper --version (loading only): median %.1f ms\n", median(floor));
    std::printf("startup to \"Waiting for connections\": runs %d, min %.1f ms, median %.1f ms, p90 %.1f ms, "
                "max %.1f ms "
                "(goal: median <= 50 ms)\n",
                runs, times.front(), at(0.5), at(0.9), times.back());
    return 0;
}
