#pragma once

#include "sysinfo/VXArgbImage.h"
#include "sysinfo/VXImageFormat.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Draws an image into a blank width x height image (the whole source scaled into it) and
// encodes the result. Every operation may run on any thread, several at once.
class VXImageRenderer {
public:
    virtual ~VXImageRenderer() = default;

    // An image file (PNG, SVG, XPM...); nothing when it cannot be read.
    virtual std::optional<std::vector<std::uint8_t>> renderFile(const std::string& imagePath, int width,
                                                                int height, VXImageFormat format) = 0;
    // An image shipped with the program by name ("Folder.png"); nothing when there is none.
    virtual std::optional<std::vector<std::uint8_t>> renderResource(const std::string& name, int width,
                                                                    int height, VXImageFormat format) = 0;
    // Raw pixels (a window's icon); nothing when they are empty.
    virtual std::optional<std::vector<std::uint8_t>> renderPixels(const VXArgbImage& image, int width,
                                                                  int height, VXImageFormat format) = 0;
};
