#pragma once

#include <string>
#include <sys/types.h>

// A private PulseAudio daemon with a null sink, in a runtime folder of its own, for a test that
// stops and restarts its audio server.
class PulseAudioProcess {
public:
    PulseAudioProcess();
    ~PulseAudioProcess();
    PulseAudioProcess(const PulseAudioProcess&) = delete;
    PulseAudioProcess& operator=(const PulseAudioProcess&) = delete;

    // Starts the daemon (again) and waits until it answers; false when it does not within 15 s.
    bool start();
    // Kills the daemon and waits for it.
    void stop();
    // The server address clients use ("unix:/.../native").
    std::string server() const { return "unix:" + folder_ + "/pulse/native"; }

private:
    std::string folder_;
    pid_t pid_ = -1;
};
