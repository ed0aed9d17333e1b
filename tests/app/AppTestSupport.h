#pragma once

// Helpers of the application and end-to-end tests: shell commands, Avahi, sockets, temporary folders.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace apptest {

// Runs a shell command line (test fixtures only); returns its standard output.
inline std::string capture(const std::string& command) {
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
            out.append(buffer, n);
        }
        pclose(pipe);
    }
    return out;
}

inline bool avahiRunning() {
    return std::system("avahi-daemon --check >/dev/null 2>&1") == 0;
}

// The resolved avahi-browse lines of the server's type that name port (a browse begun while the daemon
// restarts can wait forever, hence the 10 s cut).
inline std::string browseForPort(int port, std::chrono::seconds timeout = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const std::string needle = ";" + std::to_string(port) + ";";
    while (std::chrono::steady_clock::now() < deadline) {
        std::istringstream lines(capture("timeout 10 avahi-browse -rtp _VelorixServer._tcp 2>/dev/null"));
        std::string found;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("=;", 0) == 0 && line.find(needle) != std::string::npos) {
                found += line + "\n";
            }
        }
        if (!found.empty()) {
            return found;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return {};
}

// The test services' avahi-daemon ($VXH_TEST_AVAHI_PIDFILE, $VXH_TEST_AVAHI_LOG), the only one ever
// restarted; the new pid goes back into the pid file for the services' stop script.
class TestAvahiDaemon {
public:
    TestAvahiDaemon() {
        const char* pidFile = std::getenv("VXH_TEST_AVAHI_PIDFILE");
        const char* log = std::getenv("VXH_TEST_AVAHI_LOG");
        if (pidFile != nullptr && log != nullptr && *pidFile != 0 && *log != 0) {
            pidFile_ = pidFile;
            log_ = log;
        }
    }
    bool available() const { return !pidFile_.empty(); }

    bool stop() {
        pid_t pid = 0;
        std::ifstream(pidFile_) >> pid;
        if (pid <= 0) {
            return false;
        }
        ::kill(pid, SIGTERM);
        return waitUntil([&] { return ::kill(pid, 0) != 0; }, std::chrono::seconds(10));
    }

    // Waits until the new daemon reports that it is ready.
    bool start() {
        const auto before = startups();
        const std::string command =
            "avahi-daemon --no-rlimits >>'" + log_ + "' 2>&1 & echo $! >'" + pidFile_ + "'";
        return std::system(command.c_str()) == 0 &&
               waitUntil([&] { return startups() > before; }, std::chrono::seconds(20));
    }

private:
    static bool waitUntil(const std::function<bool()>& done, std::chrono::seconds timeout) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return done();
    }
    std::size_t startups() const {
        std::ifstream file(log_);
        std::size_t count = 0;
        for (std::string line; std::getline(file, line);) {
            count += line.find("Server startup complete") != std::string::npos ? 1 : 0;
        }
        return count;
    }

    std::string pidFile_;
    std::string log_;
};

// A socket bound to a free port (into port) of address, listening unless told otherwise.
inline int boundSocket(in_addr_t address, int& port, bool listening = true) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(address);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    EXPECT_TRUE(!listening || listen(fd, 1) == 0);
    socklen_t length = sizeof at;
    getsockname(fd, reinterpret_cast<sockaddr*>(&at), &length);
    port = ntohs(at.sin_port);
    return fd;
}

// A TCP port that was free a moment ago (bound and released on 127.0.0.1).
inline int freePort() {
    int port = 0;
    close(boundSocket(INADDR_LOOPBACK, port, false));
    return port;
}

// A fresh temporary folder, removed with its contents at the end of its scope.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vxh-app-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace apptest
