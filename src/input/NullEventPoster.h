#pragma once

#include "input/EventPoster.h"

#include <atomic>

// The poster used when no input back end can run: every event is dropped (a failure status) and the
// first one is logged.
class NullEventPoster : public EventPoster {
public:
    // The status every operation returns.
    static constexpr int unavailableStatus = -1;

    const char* name() const override { return "none"; }
    int placePointer(int x, int y) override;
    int postPointerMotion(int x, int y) override;
    int postButton(Button button, bool down) override;
    int postScroll(int vertical, int horizontal) override;
    int postKey(int evdevCode, bool down) override;
    std::optional<VXPoint> pointerLocation() override { return std::nullopt; }
    std::optional<VXSize> mainScreenSize() override { return std::nullopt; }

private:
    int drop();

    std::atomic<bool> logged_{false};
};
