#pragma once

#include "sysinfo/VXPixelBuffer.h"

#include <cstdint>
#include <memory>
#include <vector>

// JPEG compression of BGRX images (TurboJPEG, 4:2:0 chroma subsampling). One encoder serves one
// thread at a time; it keeps its compressor between images.
class VXJPEGEncoder {
public:
    VXJPEGEncoder();
    ~VXJPEGEncoder();
    VXJPEGEncoder(const VXJPEGEncoder&) = delete;
    VXJPEGEncoder& operator=(const VXJPEGEncoder&) = delete;

    // The JPEG of `image` at `quality` 1..100; empty when the image is empty or compression fails.
    std::vector<std::uint8_t> encode(const VXPixelBuffer& image, int quality);
    // The quality that the screenshot answers use (a compression factor of 0.1).
    static constexpr int screenshotQuality = 10;

private:
    struct Handle;
    std::unique_ptr<Handle> handle_;
};
