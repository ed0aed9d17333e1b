#pragma once

// The system settings that commands change: output volume and display brightness, 0.0 to 1.0.
class SystemControls {
public:
    virtual ~SystemControls() = default;

    virtual void setVolume(float volume) = 0;
    virtual void setBrightness(float brightness) = 0;
};
