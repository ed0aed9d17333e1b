#include "sysinfo/OpenGLScreenReader.h"

#include "transport/PZException.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

const char* const imageOperation = "OpenGLScreenReader createImageFromBuffer:mousePointerVisible:";

// Truncation toward zero that stays defined for any double (NaN and absurd values included).
int truncated(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    // Far beyond any screen, and small enough that a row of 4-byte pixels stays an int.
    constexpr double limit = 1 << 28;
    return static_cast<int>(std::clamp(value, -limit, limit));
}

// A positive, finite requested side; anything else asks nothing of that side.
double requestedSide(double value) {
    return std::isfinite(value) && value > 0 ? value : 0.0;
}

void drawPointerMark(VXPixelBuffer& image, double centerX, double centerY, double radius) {
    const int top = std::max(0, static_cast<int>(std::floor(centerY - radius)));
    const int bottom = std::min(image.height - 1, static_cast<int>(std::ceil(centerY + radius)));
    const int left = std::max(0, static_cast<int>(std::floor(centerX - radius)));
    const int right = std::min(image.width - 1, static_cast<int>(std::ceil(centerX + radius)));
    for (int y = top; y <= bottom; ++y) {
        for (int x = left; x <= right; ++x) {
            const double dx = x + 0.5 - centerX;
            const double dy = y + 0.5 - centerY;
            if (dx * dx + dy * dy <= radius * radius) {
                std::uint8_t* pixel = image.at(x, y);
                pixel[0] = 0;   // blue
                pixel[1] = 0;   // green
                pixel[2] = 255; // red
                pixel[3] = 255;
            }
        }
    }
}

// The source span [begin, end) that output pixel i of `outSize` covers in `inSize` pixels: the
// area average when shrinking, the nearest pixel when enlarging.
struct Span {
    int begin;
    int end;
};

std::vector<Span> spans(int inSize, int outSize) {
    std::vector<Span> result(static_cast<size_t>(outSize));
    for (int i = 0; i < outSize; ++i) {
        int begin = static_cast<int>(static_cast<long long>(i) * inSize / outSize);
        int end = static_cast<int>(static_cast<long long>(i + 1) * inSize / outSize);
        begin = std::min(begin, inSize - 1);
        end = std::clamp(end, begin + 1, inSize);
        result[static_cast<size_t>(i)] = Span{begin, end};
    }
    return result;
}

VXPixelBuffer scaled(const VXPixelBuffer& source, int width, int height) {
    VXPixelBuffer result;
    result.width = width;
    result.height = height;
    result.bytesPerRow = width * 4;
    result.pixels.resize(static_cast<size_t>(result.bytesPerRow) * height);
    if (width == source.width && height == source.height) {
        for (int y = 0; y < height; ++y) {
            std::copy_n(source.at(0, y), result.bytesPerRow, result.at(0, y));
        }
        return result;
    }
    const std::vector<Span> columns = spans(source.width, width);
    const std::vector<Span> rows = spans(source.height, height);
    std::vector<std::uint32_t> sums(static_cast<size_t>(width) * 3);
    for (int y = 0; y < height; ++y) {
        const Span rowSpan = rows[static_cast<size_t>(y)];
        std::fill(sums.begin(), sums.end(), 0u);
        for (int sy = rowSpan.begin; sy < rowSpan.end; ++sy) {
            const std::uint8_t* line = source.at(0, sy);
            for (int x = 0; x < width; ++x) {
                const Span columnSpan = columns[static_cast<size_t>(x)];
                std::uint32_t b = 0, g = 0, r = 0;
                for (int sx = columnSpan.begin; sx < columnSpan.end; ++sx) {
                    const std::uint8_t* pixel = line + sx * 4;
                    b += pixel[0];
                    g += pixel[1];
                    r += pixel[2];
                }
                std::uint32_t* sum = &sums[static_cast<size_t>(x) * 3];
                sum[0] += b;
                sum[1] += g;
                sum[2] += r;
            }
        }
        std::uint8_t* out = result.at(0, y);
        const std::uint32_t rowCount = static_cast<std::uint32_t>(rowSpan.end - rowSpan.begin);
        for (int x = 0; x < width; ++x) {
            const Span columnSpan = columns[static_cast<size_t>(x)];
            const std::uint32_t count =
                rowCount * static_cast<std::uint32_t>(columnSpan.end - columnSpan.begin);
            const std::uint32_t* sum = &sums[static_cast<size_t>(x) * 3];
            out[x * 4 + 0] = static_cast<std::uint8_t>((sum[0] + count / 2) / count);
            out[x * 4 + 1] = static_cast<std::uint8_t>((sum[1] + count / 2) / count);
            out[x * 4 + 2] = static_cast<std::uint8_t>((sum[2] + count / 2) / count);
            out[x * 4 + 3] = 255;
        }
    }
    return result;
}

} // namespace

std::unique_ptr<OpenGLScreenReader> OpenGLScreenReader::create(std::shared_ptr<VXScreenGrabber> grabber) {
    if (!grabber || !grabber->canCaptureRect()) {
        return nullptr;
    }
    std::unique_ptr<OpenGLScreenReader> reader(new OpenGLScreenReader(std::move(grabber)));
    const VXPixelRect frame = reader->grabber_->mainScreenFrame().value_or(VXPixelRect{});
    reader->setRectToRead(frame.x, frame.y, frame.width, frame.height);
    return reader;
}

OpenGLScreenReader::OpenGLScreenReader(std::shared_ptr<VXScreenGrabber> grabber)
    : grabber_(std::move(grabber)) {}

void OpenGLScreenReader::setRectToRead(double x, double y, double w, double h) {
    if (w == 0 && h == 0) {
        // To the main screen's bottom-right corner.
        const VXPixelRect frame = grabber_->mainScreenFrame().value_or(VXPixelRect{});
        w = static_cast<double>(frame.x) + frame.width - x;
        h = static_cast<double>(frame.y) + frame.height - y;
    }
    const int newX = truncated(x);
    const int newY = truncated(y);
    const int newWidth = truncated(w);
    const int newHeight = truncated(h);
    if (newX == mX_ && newY == mY_ && newWidth == mWidth_ && newHeight == mHeight_) {
        return;
    }
    mX_ = newX;
    mY_ = newY;
    mWidth_ = newWidth;
    mHeight_ = newHeight;
    mByteWidth_ = std::max(0, (mWidth_ * 4 + 3) & ~3);
    // The buffer is sized by the capture itself, which clips the rectangle to the screen first:
    // an absurd rectangle never allocates more than the screen holds.
}

void OpenGLScreenReader::readRectScreenToBuffer() {
    const std::size_t capacity = mData_.pixels.capacity();
    const std::optional<VXPixelRect> captured =
        grabber_->captureRect(VXPixelRect{mX_, mY_, mWidth_, mHeight_}, mData_);
    if (mData_.pixels.capacity() != capacity) {
        ++allocations_;
    }
    if (!captured) {
        mData_.width = 0;
        mData_.height = 0;
        throw PZException("OpenGLScreenReader readRectScreenToBuffer", "screen capture failed");
    }
}

VXPixelBuffer OpenGLScreenReader::createImageFromBufferMousePointerVisible(double width, double height,
                                                                           bool mousePointerVisible) {
    if (mData_.empty()) {
        throw PZException(imageOperation, "CGBitmapContextCreate failure");
    }
    if (mousePointerVisible) {
        // Screen coordinates, not moved by the rectangle's origin: exact for rectangles at the origin.
        if (const std::optional<VXPixelPoint> pointer = grabber_->pointerLocation()) {
            drawPointerMark(mData_, pointer->x, pointer->y, pointerMarkRadius);
        }
    }
    const double sourceWidth = mData_.width;
    const double sourceHeight = mData_.height;
    const double wantedWidth = requestedSide(width);
    const double wantedHeight = requestedSide(height);
    double factor = 1.0;
    if (wantedWidth > 0 || wantedHeight > 0) {
        factor = std::max(wantedWidth > 0 ? sourceWidth / wantedWidth : 0.0,
                          wantedHeight > 0 ? sourceHeight / wantedHeight : 0.0);
    }
    factor = std::max({factor, sourceWidth / maxImageSide, sourceHeight / maxImageSide});
    const int resultWidth = std::min(maxImageSide, static_cast<int>(sourceWidth / factor + 1e-9));
    const int resultHeight = std::min(maxImageSide, static_cast<int>(sourceHeight / factor + 1e-9));
    if (resultWidth <= 0 || resultHeight <= 0) {
        throw PZException(imageOperation, "CGBitmapContextCreate failure");
    }
    return scaled(mData_, resultWidth, resultHeight);
}
