#include "sysinfo/VXJPEGEncoder.h"

#include <turbojpeg.h>

#include <algorithm>

namespace {

struct CompressorDeleter {
    void operator()(void* handle) const { tjDestroy(handle); }
};
struct JPEGBufferDeleter {
    void operator()(unsigned char* buffer) const { tjFree(buffer); }
};

} // namespace

struct VXJPEGEncoder::Handle {
    std::unique_ptr<void, CompressorDeleter> compressor;
};

VXJPEGEncoder::VXJPEGEncoder() : handle_(std::make_unique<Handle>()) {}

VXJPEGEncoder::~VXJPEGEncoder() = default;

std::vector<std::uint8_t> VXJPEGEncoder::encode(const VXPixelBuffer& image, int quality) {
    if (image.empty() || image.bytesPerRow < image.width * 4 ||
        image.pixels.size() < static_cast<size_t>(image.bytesPerRow) * image.height) {
        return {};
    }
    if (!handle_->compressor) {
        handle_->compressor.reset(tjInitCompress());
        if (!handle_->compressor) {
            return {};
        }
    }
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(handle_->compressor.get(), image.pixels.data(), image.width,
                                   image.bytesPerRow, image.height, TJPF_BGRX, &jpeg, &size, TJSAMP_420,
                                   std::clamp(quality, 1, 100), TJFLAG_FASTDCT);
    std::unique_ptr<unsigned char, JPEGBufferDeleter> owned(jpeg);
    if (result != 0 || !owned) {
        // A compressor that failed midway is not trusted again.
        handle_->compressor.reset();
        return {};
    }
    return std::vector<std::uint8_t>(owned.get(), owned.get() + size);
}
