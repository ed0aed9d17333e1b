#include "sysinfo/VXSystemSnapshot.h"

VXSystemSnapshot::VXSystemSnapshot(std::function<Processes()> readProcesses,
                                   std::function<float()> readVolume, std::function<float()> readBrightness,
                                   Clock::duration interval)
    : readProcesses_(std::move(readProcesses)), readVolume_(std::move(readVolume)),
      readBrightness_(std::move(readBrightness)), interval_(interval.count()) {}

template <typename T> T VXSystemSnapshot::read(Slot<T>& slot, const std::function<T()>& reader) {
    // Sessions that arrive while the value is being read wait for that read and share it.
    std::lock_guard<std::mutex> lock(slot.mutex);
    const auto now = Clock::now();
    if (!slot.valid || now - slot.readAt >= Clock::duration(interval_.load())) {
        slot.value = reader ? reader() : T{};
        slot.readAt = Clock::now();
        slot.valid = true;
        slot.reads.fetch_add(1);
    }
    return slot.value;
}

template <typename T> void VXSystemSnapshot::invalidate(Slot<T>& slot) {
    // Taking the lock waits for a read in progress, which may have seen the value before the change.
    std::lock_guard<std::mutex> lock(slot.mutex);
    slot.valid = false;
}

VXSystemSnapshot::Processes VXSystemSnapshot::processes() {
    return read(processes_, readProcesses_);
}

float VXSystemSnapshot::volume() {
    return read(volume_, readVolume_);
}

float VXSystemSnapshot::brightness() {
    return read(brightness_, readBrightness_);
}

void VXSystemSnapshot::invalidateProcesses() {
    invalidate(processes_);
}

void VXSystemSnapshot::invalidateVolume() {
    invalidate(volume_);
}

void VXSystemSnapshot::invalidateBrightness() {
    invalidate(brightness_);
}

void VXSystemSnapshot::setInterval(Clock::duration interval) {
    interval_.store(interval.count());
}

std::uint64_t VXSystemSnapshot::processReads() const {
    return processes_.reads.load();
}

std::uint64_t VXSystemSnapshot::volumeReads() const {
    return volume_.reads.load();
}

std::uint64_t VXSystemSnapshot::brightnessReads() const {
    return brightness_.reads.load();
}
