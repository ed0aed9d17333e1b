#pragma once

#include "input/EventPoster.h"
#include "input/KeyEventSender.h"

#include <mutex>
#include <string>
#include <vector>

// Records every event as a short text ("key+30", "key-30", "place 10 20", "motion 10 20",
// "button+1", "scroll 1 0") and plays a pointer that lands where it is placed, shifted by
// `placementError` (to provoke the tolerance checks).
class FakeEventPoster : public EventPoster {
public:
    const char* name() const override { return "fake"; }

    int placePointer(int x, int y) override {
        record("place " + std::to_string(x) + " " + std::to_string(y));
        if (placeStatus == 0) {
            location = VXPoint{x + placementError.x, y + placementError.y};
        }
        return placeStatus;
    }
    int postPointerMotion(int x, int y) override {
        record("motion " + std::to_string(x) + " " + std::to_string(y));
        if (motionStatus == 0) {
            location = VXPoint{x + motionError.x, y + motionError.y};
        }
        return motionStatus;
    }
    int postButton(Button button, bool down) override {
        record(std::string("button") + (down ? "+" : "-") + std::to_string(static_cast<int>(button)));
        return buttonStatus;
    }
    int postScroll(int vertical, int horizontal) override {
        record("scroll " + std::to_string(vertical) + " " + std::to_string(horizontal));
        return 0;
    }
    int postKey(int evdevCode, bool down) override {
        record(std::string("key") + (down ? "+" : "-") + std::to_string(evdevCode));
        flagsAtKeys.push_back(KeyEventSender::currentModifierFlags());
        return 0;
    }
    std::optional<VXPoint> pointerLocation() override { return location; }
    std::optional<VXSize> mainScreenSize() override { return screen; }

    std::vector<std::string> takeEvents() {
        std::lock_guard<std::mutex> lock(mutex_);
        auto taken = std::move(events_);
        events_.clear();
        return taken;
    }

    VXPoint location{100, 100};
    VXPoint placementError{0, 0};
    VXPoint motionError{0, 0};
    std::optional<VXSize> screen = VXSize{1280, 800};
    int placeStatus = 0;
    int motionStatus = 0;
    int buttonStatus = 0;
    std::vector<std::uint32_t> flagsAtKeys;

private:
    void record(std::string event) {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(std::move(event));
    }

    std::mutex mutex_;
    std::vector<std::string> events_;
};
