#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class VXProcess;

// One copy, shared by every session, of the values the change push compares: the user-interface
// processes, the volume and the brightness. Each value is asked of the system at most once per
// interval whatever the number of sessions asking; a set invalidates the value so that the next
// read is fresh. Thread-safe.
class VXSystemSnapshot {
public:
    using Processes = std::vector<std::shared_ptr<VXProcess>>;
    using Clock = std::chrono::steady_clock;

    // The readers are called with no lock of the snapshot held by another value.
    VXSystemSnapshot(std::function<Processes()> readProcesses, std::function<float()> readVolume,
                     std::function<float()> readBrightness,
                     Clock::duration interval = std::chrono::seconds(1));

    // The processes, at most `interval` old.
    Processes processes();
    // The volume, at most `interval` old.
    float volume();
    // The brightness, at most `interval` old.
    float brightness();

    // Makes the next processes() read fresh.
    void invalidateProcesses();
    // Makes the next volume() read fresh.
    void invalidateVolume();
    // Makes the next brightness() read fresh.
    void invalidateBrightness();

    // Changes the interval (tests make it short or long).
    void setInterval(Clock::duration interval);
    // How many times the system was asked for each value so far.
    std::uint64_t processReads() const;
    // How many times the system was asked for the volume so far.
    std::uint64_t volumeReads() const;
    // How many times the system was asked for the brightness so far.
    std::uint64_t brightnessReads() const;

private:
    template <typename T> struct Slot {
        std::mutex mutex;
        T value{};
        Clock::time_point readAt{};
        bool valid = false;
        std::atomic<std::uint64_t> reads{0};
    };
    template <typename T> T read(Slot<T>& slot, const std::function<T()>& reader);
    template <typename T> static void invalidate(Slot<T>& slot);

    std::function<Processes()> readProcesses_;
    std::function<float()> readVolume_;
    std::function<float()> readBrightness_;
    std::atomic<Clock::duration::rep> interval_;
    Slot<Processes> processes_;
    Slot<float> volume_;
    Slot<float> brightness_;
};
