#pragma once

#include "input/SystemControls.h"

#include <vector>

// Records the values set.
class FakeSystemControls : public SystemControls {
public:
    void setVolume(float volume) override { volumes.push_back(volume); }
    void setBrightness(float brightness) override { brightnesses.push_back(brightness); }

    std::vector<float> volumes;
    std::vector<float> brightnesses;
};
