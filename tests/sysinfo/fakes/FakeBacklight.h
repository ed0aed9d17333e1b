#pragma once

#include "sysinfo/VXBacklight.h"

#include <mutex>

// Displays with backlights whose levels the test sets; a display may refuse reads or writes with an
// error code. Thread-safe.
class FakeBacklight : public VXBacklight {
public:
    struct Display {
        std::uint32_t id = 1;
        float value = 0.5f;
        int readError = 0;
        int writeError = 0;
    };

    // Replaces the displays (in the order they are listed).
    void setDisplays(std::vector<Display> displays) {
        std::lock_guard<std::mutex> lock(mutex_);
        displays_ = std::move(displays);
    }
    // A copy of the displays.
    std::vector<Display> displays() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return displays_;
    }
    // One display (id 1) at `level`.
    void setLevel(float level) { setDisplays({Display{1, level, 0, 0}}); }
    // Makes the display list itself fail with `error` (0: works).
    void setListError(int error) {
        std::lock_guard<std::mutex> lock(mutex_);
        listError_ = error;
    }

    int activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& ids) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ids.clear();
        if (listError_ != 0) {
            return listError_;
        }
        for (const auto& display : displays_) {
            if (ids.size() < capacity) {
                ids.push_back(display.id);
            }
        }
        return 0;
    }
    int getBrightness(std::uint32_t id, float& value) override {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& display : displays_) {
            if (display.id == id) {
                if (display.readError == 0) {
                    value = display.value;
                }
                return display.readError;
            }
        }
        return 19; // ENODEV
    }
    int setBrightness(std::uint32_t id, float value) override {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& display : displays_) {
            if (display.id == id) {
                if (display.writeError == 0) {
                    display.value = value;
                }
                return display.writeError;
            }
        }
        return 19;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Display> displays_;
    int listError_ = 0;
};
