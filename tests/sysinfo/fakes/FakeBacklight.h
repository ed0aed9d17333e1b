#pragma once

#include "sysinfo/VXBacklight.h"

#include <cerrno>
#include <mutex>

// Displays with backlights whose levels the test sets; a display may refuse reads or writes with an
// error code, the list itself may fail. Thread-safe.
class FakeBacklight : public VXBacklight {
public:
    struct Display {
        std::uint32_t id = 1;
        float value = 0.5f;
        int readError = 0;
        int writeError = 0;
    };

    void setDisplays(std::vector<Display> displays) {
        std::lock_guard<std::mutex> lock(mutex_);
        displays_ = std::move(displays);
    }
    std::vector<Display> displays() {
        std::lock_guard<std::mutex> lock(mutex_);
        return displays_;
    }
    // One display (id 1) at `level`.
    void setLevel(float level) { setDisplays({Display{1, level, 0, 0}}); }
    // Makes the display list fail with `error` (0: works).
    void setListError(int error) {
        std::lock_guard<std::mutex> lock(mutex_);
        listError_ = error;
    }

    int activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& ids) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ids.clear();
        for (std::size_t i = 0; listError_ == 0 && i < displays_.size() && i < capacity; ++i) {
            ids.push_back(displays_[i].id);
        }
        return listError_;
    }
    int getBrightness(std::uint32_t id, float& value) override {
        return withDisplay(
            id, [&value](Display& d) { return d.readError != 0 ? d.readError : (value = d.value, 0); });
    }
    int setBrightness(std::uint32_t id, float value) override {
        return withDisplay(
            id, [value](Display& d) { return d.writeError != 0 ? d.writeError : (d.value = value, 0); });
    }

private:
    template <typename F> int withDisplay(std::uint32_t id, F f) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& display : displays_) {
            if (display.id == id) {
                return f(display);
            }
        }
        return ENODEV;
    }

    std::mutex mutex_;
    std::vector<Display> displays_;
    int listError_ = 0;
};
