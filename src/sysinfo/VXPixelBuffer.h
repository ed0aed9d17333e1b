#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A rectangle of whole pixels in root-window coordinates.
struct VXPixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    // True when the rectangle holds no pixel.
    bool empty() const { return width <= 0 || height <= 0; }
    bool operator==(const VXPixelRect&) const = default;
};

// A point in root-window coordinates.
struct VXPixelPoint {
    int x = 0;
    int y = 0;
    bool operator==(const VXPixelPoint&) const = default;
};

// An image of 4-byte pixels in blue, green, red, unused order (TurboJPEG's TJPF_BGRX), rows
// top-down, `bytesPerRow` bytes a row (at least width * 4).
struct VXPixelBuffer {
    int width = 0;
    int height = 0;
    int bytesPerRow = 0;
    std::vector<std::uint8_t> pixels;

    // True when the image holds no pixel.
    bool empty() const { return width <= 0 || height <= 0; }
    // The first byte of pixel (x, y); no bounds check.
    std::uint8_t* at(int x, int y) {
        return pixels.data() + static_cast<std::size_t>(y) * bytesPerRow + x * 4;
    }
    // The first byte of pixel (x, y); no bounds check.
    const std::uint8_t* at(int x, int y) const {
        return pixels.data() + static_cast<std::size_t>(y) * bytesPerRow + x * 4;
    }
};
