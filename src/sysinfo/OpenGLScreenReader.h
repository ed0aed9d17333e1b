#pragma once

#include "sysinfo/VXPixelBuffer.h"
#include "sysinfo/VXScreenGrabber.h"

#include <cstddef>
#include <memory>

// Reads a rectangle of the screen into its own buffer and turns it into an image, scaled down to a
// requested size and, on request, marked with the pointer position. The buffer is kept for the
// next capture of the same rectangle. Captures go through the shared screen grabber; rows arrive
// top-down, so no flip is needed. Failures raise PZException.
class OpenGLScreenReader {
public:
    // The result is never larger than this in either direction.
    static constexpr int maxImageSide = 8192;
    // The radius of the red pointer mark in buffer pixels.
    static constexpr double pointerMarkRadius = 10.0;

    // A reader over `grabber` aimed at the whole main screen; null when no screen can be captured.
    static std::unique_ptr<OpenGLScreenReader> create(std::shared_ptr<VXScreenGrabber> grabber);

    // Aims at (x, y, w, h), truncated toward zero; w and h both 0: to the main screen's bottom-right.
    // The same rectangle again keeps the buffer.
    void setRectToRead(double x, double y, double w, double h);
    // Captures the rectangle into the buffer; throws PZException when the capture fails.
    void readRectScreenToBuffer();
    // The captured image, marked with the pointer when `mousePointerVisible`, scaled to fit inside
    // width x height keeping its aspect (both 0: full size); throws PZException when impossible.
    VXPixelBuffer createImageFromBufferMousePointerVisible(double width, double height,
                                                           bool mousePointerVisible);

    // The rectangle aimed at, as stored.
    VXPixelRect rect() const { return {mX_, mY_, mWidth_, mHeight_}; }
    // The buffer with the last capture (and, after an image was made, its scaled form).
    const VXPixelBuffer& buffer() const { return mData_; }
    // How many times the buffer had to be (re)allocated so far.
    std::size_t bufferAllocations() const { return allocations_; }

private:
    explicit OpenGLScreenReader(std::shared_ptr<VXScreenGrabber> grabber);

    std::shared_ptr<VXScreenGrabber> grabber_;
    VXPixelBuffer mData_;
    int mByteWidth_ = 0;
    int mWidth_ = 0;
    int mHeight_ = 0;
    int mX_ = 0;
    int mY_ = 0;
    std::size_t allocations_ = 0;
};
