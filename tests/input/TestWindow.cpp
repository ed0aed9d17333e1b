#include "TestWindow.h"

#include "support/TestPlatform.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

bool TestWindow::start(const std::string& display, const std::string& title, const std::string& geometry) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        return false;
    }
    // Everything the child needs is made before fork.
    std::string args[] = {VXH_TEST_WINDOW_PATH, "--display", display, "--title", title,
                          "--geometry",         geometry};
    char* argv[] = {args[0].data(), args[1].data(), args[2].data(), args[3].data(),
                    args[4].data(), args[5].data(), args[6].data(), nullptr};
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        TestPlatform::endWithParent(parent);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execv(argv[0], argv);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    if (pid_ < 0) {
        close(in[1]);
        close(out[0]);
        return false;
    }
    toChild_ = in[1];
    reader_ = std::thread([this, fd = out[0]] { readLoop(fd); });
    return waitFor([this] { return ready_.load(); }, std::chrono::seconds(10));
}

void TestWindow::stop() {
    if (toChild_ >= 0) {
        close(toChild_);
        toChild_ = -1;
    }
    if (pid_ > 0) {
        int status = 0;
        for (int i = 0; i < 200 && waitpid(pid_, &status, WNOHANG) == 0; ++i) {
            usleep(10000);
            if (i == 100) {
                kill(pid_, SIGKILL);
            }
        }
        waitpid(pid_, &status, WNOHANG);
        pid_ = -1;
    }
    if (reader_.joinable()) {
        reader_.join();
    }
}

void TestWindow::readLoop(int fd) {
    std::string pending;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) {
        pending.append(buffer, static_cast<std::size_t>(n));
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
            handleLine(pending.substr(0, end));
        }
    }
    close(fd);
    std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

void TestWindow::handleLine(const std::string& line) {
    std::istringstream in(line);
    std::string kind;
    std::string action;
    in >> kind;
    std::lock_guard<std::mutex> lock(mutex_);
    if (kind == "ready") {
        ready_ = true;
    } else if (kind == "focus") {
        in >> action;
        focused_ = action == "in";
    } else if (kind == "key") {
        Key key;
        std::string hex;
        in >> action >> key.keycode >> key.state >> key.keysym >> hex >> key.ns;
        key.press = action == "press";
        for (std::size_t i = 0; hex != "-" && i + 1 < hex.size(); i += 2) {
            key.text += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
        }
        keys_.push_back(key);
    } else if (kind == "button") {
        Button button;
        in >> action >> button.button >> button.x >> button.y >> button.ns;
        button.press = action == "press";
        buttons_.push_back(button);
    } else if (kind == "motion") {
        Motion motion;
        in >> motion.x >> motion.y >> motion.ns;
        motions_.push_back(motion);
    }
    changed_.notify_all();
}

bool TestWindow::waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        lock.unlock();
        if (predicate()) {
            return true;
        }
        lock.lock();
        if (ended_ || std::chrono::steady_clock::now() >= deadline) {
            lock.unlock();
            return predicate();
        }
        changed_.wait_until(
            lock, std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(50)));
    }
}

std::string TestWindow::text() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string all;
    for (const Key& key : keys_) {
        all += key.text;
    }
    return all;
}

void TestWindow::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    keys_.clear();
    buttons_.clear();
    motions_.clear();
}
