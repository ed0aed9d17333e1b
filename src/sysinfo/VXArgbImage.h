#pragma once

#include <cstdint>
#include <vector>

// Pixels as 0xAARRGGBB words (not premultiplied), rows top-down: a window's own icon.
struct VXArgbImage {
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> argb;
};
