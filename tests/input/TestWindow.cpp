#include "TestWindow.h"

#include "support/TestPlatform.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

std::string unhex(const std::string& text) {
    std::string out;
    if (text == "-") {
        return out;
    }
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return out;
}

} // namespace

TestWindow::~TestWindow() {
    stop();
}

bool TestWindow::start(const std::string& display, const std::string& title, const std::string& geometry) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        return false;
    }
    // Everything the child needs is made before fork.
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        if (entry.rfind("DISPLAY=", 0) != 0 && entry.rfind("LC_ALL=", 0) != 0 &&
            entry.rfind("XMODIFIERS=", 0) != 0) {
            env.push_back(entry);
        }
    }
    env.push_back("DISPLAY=" + display);
    env.push_back("LC_ALL=C.UTF-8");
    std::vector<char*> envp;
    for (auto& entry : env) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    std::string program = VXH_TEST_WINDOW_PATH;
    std::string titleOption = "--title";
    std::string geometryOption = "--geometry";
    std::string titleValue = title;
    std::string geometryValue = geometry;
    char* argv[] = {program.data(),        titleOption.data(),   titleValue.data(),
                    geometryOption.data(), geometryValue.data(), nullptr};

    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        TestPlatform::endWithParent(parent);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execve(argv[0], argv, envp.data());
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
    return waitFor([this] { return window_.load() != 0; }, std::chrono::seconds(10));
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
    while (true) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n <= 0) {
            break;
        }
        pending.append(buffer, static_cast<std::size_t>(n));
        std::size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            handleLine(pending.substr(0, end));
            pending.erase(0, end + 1);
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
        unsigned long window = 0;
        in >> window;
        window_ = window;
    } else if (kind == "focus") {
        in >> action;
        focused_ = action == "in";
    } else if (kind == "key") {
        Key key;
        std::string text;
        in >> action >> key.keycode >> key.state >> key.keysym >> text >> key.ns;
        key.press = action == "press";
        key.text = unhex(text);
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

void TestWindow::takeFocus() {
    if (toChild_ >= 0) {
        const char line[] = "focus\n";
        [[maybe_unused]] const ssize_t written = write(toChild_, line, sizeof line - 1);
    }
}

bool TestWindow::waitForFocus(std::chrono::milliseconds timeout) {
    return waitFor([this] { return focused_.load(); }, timeout);
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

std::string TestWindow::waitForText(const std::string& expected, std::chrono::milliseconds timeout) {
    waitFor([&] { return text().size() >= expected.size(); }, timeout);
    return text();
}

std::vector<TestWindow::Key> TestWindow::keys() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return keys_;
}

std::vector<TestWindow::Button> TestWindow::buttons() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return buttons_;
}

std::vector<TestWindow::Motion> TestWindow::motions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return motions_;
}

void TestWindow::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    keys_.clear();
    buttons_.clear();
    motions_.clear();
}
