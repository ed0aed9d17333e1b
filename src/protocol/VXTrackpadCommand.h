#pragma once

#include <cstdint>

#include "protocol/VXCommand.h"
#include "protocol/VXGeometry.h"

// A trackpad gesture: the command of type "trackpad" with the touch phase, the finger displacement
// and the finger counts.
class VXTrackpadCommand : public VXCommand {
public:
    // A trackpad command: type "trackpad", a process without name and pid 0, every field 0.
    VXTrackpadCommand();
    // A trackpad command for the process without name with the given pid, every field 0.
    explicit VXTrackpadCommand(std::int64_t pid);

    // The touch phase as the phone reports it.
    std::int32_t touchState() const noexcept { return touchState_; }
    // The finger displacement.
    VXPoint shift() const noexcept { return shift_; }
    // The number of fingers.
    std::int16_t fingers() const noexcept { return fingers_; }
    // The tap count.
    std::int16_t tapCount() const noexcept { return tapCount_; }
    // The rotation, 0 when absent.
    std::int16_t rotation() const noexcept { return rotation_; }
    // The zoom, 0 when absent.
    std::int16_t zoom() const noexcept { return zoom_; }
    // Replaces the touch phase.
    void setTouchState(std::int32_t value) { touchState_ = value; }
    // Replaces the displacement.
    void setShift(VXPoint value) { shift_ = value; }
    // Replaces the number of fingers.
    void setFingers(std::int16_t value) { fingers_ = value; }
    // Replaces the tap count.
    void setTapCount(std::int16_t value) { tapCount_ = value; }
    // Replaces the rotation.
    void setRotation(std::int16_t value) { rotation_ = value; }
    // Replaces the zoom.
    void setZoom(std::int16_t value) { zoom_ = value; }

    // {"type":...,"pid":N,"touch":..,"fingers":..,"tapCount":..,"shift":{"x":..,"y":..}[,"rotation":..][,"zoom":..]}.
    std::string getJSONString() const override;
    // <cmd type=".." pid=".." touch=".." fingers=".." tapCount=".."[ rotation=".."][ zoom=".."]>x;y</cmd>.
    std::optional<std::string> getXMLString() const override;

private:
    std::int32_t touchState_ = 0;
    VXPoint shift_;
    std::int16_t fingers_ = 0;
    std::int16_t tapCount_ = 0;
    std::int16_t rotation_ = 0;
    std::int16_t zoom_ = 0;
};
