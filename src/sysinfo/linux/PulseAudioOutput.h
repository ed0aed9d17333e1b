#pragma once

#include "sysinfo/VXAudioOutput.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

// The default sink of a PulseAudio server (PipeWire serves the same protocol), through the
// asynchronous client API on a mainloop thread of its own. Device numbers are sink indexes + 1. The
// connection is made on first use and made again on a later use after the server went away.
class PulseAudioOutput : public VXAudioOutput {
public:
    // `server` empty: the client library's default ($PULSE_SERVER, the user's runtime folder...).
    explicit PulseAudioOutput(std::string server = {});
    ~PulseAudioOutput() override;
    PulseAudioOutput(const PulseAudioOutput&) = delete;
    PulseAudioOutput& operator=(const PulseAudioOutput&) = delete;

    std::uint32_t defaultOutputDevice() override;
    std::optional<float> volume(std::uint32_t device) override;
    bool canSetVolume(std::uint32_t device) override;
    bool setVolume(std::uint32_t device, float volume) override;
    bool canSetMute(std::uint32_t device) override;
    bool setMute(std::uint32_t device, bool muted) override;
    std::optional<bool> muted(std::uint32_t device) override;

    // How often a connection is attempted at most while the server is away.
    void setRetryInterval(std::chrono::milliseconds interval) { retryInterval_ = interval; }

private:
    struct Connection;
    struct SinkState;
    // A ready connection, or null (the caller holds mutex_).
    Connection* connection();
    std::optional<SinkState> sink(std::uint32_t device);

    std::string server_;
    std::mutex mutex_;
    std::unique_ptr<Connection> connection_;
    std::chrono::steady_clock::time_point lastAttempt_{};
    bool attempted_ = false;
    bool absenceLogged_ = false;
    std::chrono::milliseconds retryInterval_{500};
};
