#include "PulseAudioProcess.h"

#include "support/TestPlatform.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

PulseAudioProcess::PulseAudioProcess() {
    char pattern[] = "/tmp/vxh-pulse-XXXXXX";
    folder_ = mkdtemp(pattern);
    chmod(folder_.c_str(), 0700);
}

PulseAudioProcess::~PulseAudioProcess() {
    stop();
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
}

bool PulseAudioProcess::start() {
    const std::string log = "--log-target=file:" + folder_ + "/pulse.log";
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        TestPlatform::endWithParent(parent);
        const int devnull = open("/dev/null", O_RDWR);
        dup2(devnull, STDIN_FILENO);
        dup2(devnull, STDOUT_FILENO);
        dup2(devnull, STDERR_FILENO);
        setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
        setenv("HOME", folder_.c_str(), 1);
        unsetenv("PULSE_SERVER");
        execlp("pulseaudio", "pulseaudio", "--daemonize=no", "-n", "--exit-idle-time=-1", log.c_str(),
               "--load=module-native-protocol-unix", "--load=module-null-sink sink_name=test_sink", nullptr);
        _exit(127);
    }
    const std::string check = "PULSE_SERVER=" + server() + " pactl info >/dev/null 2>&1";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < deadline) {
        if (std::system(check.c_str()) == 0) {
            return true;
        }
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

void PulseAudioProcess::stop() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}
