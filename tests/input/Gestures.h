#pragma once

#include "input/VXCommandExecute.h"
#include "protocol/VXError.h"
#include "protocol/VXTrackpadCommand.h"
#include "transport/PZRunLoop.h"

#include <chrono>
#include <vector>

// One trackpad message: touch state, fingers, taps and the finger's shift.
struct Gesture {
    std::int32_t touch;
    std::int16_t fingers;
    std::int16_t taps;
    VXPoint shift{};
};

// Executes the gestures in order; true when each was accepted.
inline bool perform(VXCommandExecute& executor, const std::vector<Gesture>& gestures) {
    bool accepted = true;
    for (const Gesture& g : gestures) {
        VXTrackpadCommand command;
        command.setTouchState(g.touch);
        command.setFingers(g.fingers);
        command.setTapCount(g.taps);
        command.setShift(g.shift);
        accepted = executor.execute(command) == nullptr && accepted;
    }
    return accepted;
}

// Runs this thread's loop for a while (the delayed click fires on it).
inline void runLoopFor(std::chrono::milliseconds duration) {
    PZRunLoop::current()->runUntil(PZRunLoop::Clock::now() + duration);
}
