#pragma once

#include "sysinfo/VXScreenGrabber.h"

#include <algorithm>
#include <mutex>
#include <vector>

// A synthetic screen: each pixel's colour tells where it came from (blue = x & 0xff, green = y & 0xff,
// red = 0x40). The screen can be taken away and given back. Thread-safe.
class FakeScreenGrabber : public VXScreenGrabber {
public:
    FakeScreenGrabber(int width, int height, VXPixelRect mainScreen)
        : width_(width), height_(height), mainScreen_(mainScreen) {}

    // Takes the screen away (false) or gives it back.
    void setPresent(bool present) {
        std::lock_guard<std::mutex> lock(mutex_);
        present_ = present;
    }
    void setPointer(VXPixelPoint pointer) {
        std::lock_guard<std::mutex> lock(mutex_);
        pointer_ = pointer;
    }
    // The rectangles asked for so far, captured or not.
    std::vector<VXPixelRect> requested() {
        std::lock_guard<std::mutex> lock(mutex_);
        return requested_;
    }
    // How many captures were made.
    int captures() {
        std::lock_guard<std::mutex> lock(mutex_);
        return captures_;
    }

    bool canCaptureRect() override { return ifPresent(true).value_or(false); }
    std::optional<VXPixelRect> mainScreenFrame() override { return ifPresent(mainScreen_); }
    std::optional<VXPixelRect> screenBounds() override {
        return ifPresent(VXPixelRect{0, 0, width_, height_});
    }
    std::optional<VXPixelPoint> pointerLocation() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return present_ ? std::optional<VXPixelPoint>(pointer_) : std::nullopt;
    }
    std::optional<VXPixelRect> captureRect(const VXPixelRect& rect, VXPixelBuffer& into) override {
        std::lock_guard<std::mutex> lock(mutex_);
        requested_.push_back(rect);
        const long long left = std::max<long long>(rect.x, 0);
        const long long top = std::max<long long>(rect.y, 0);
        const long long right = std::min<long long>(static_cast<long long>(rect.x) + rect.width, width_);
        const long long bottom = std::min<long long>(static_cast<long long>(rect.y) + rect.height, height_);
        if (!present_ || rect.width <= 0 || rect.height <= 0 || right <= left || bottom <= top) {
            return std::nullopt;
        }
        ++captures_;
        into.width = static_cast<int>(right - left);
        into.height = static_cast<int>(bottom - top);
        into.bytesPerRow = into.width * 4;
        into.pixels.resize(static_cast<std::size_t>(into.bytesPerRow) * into.height);
        for (int y = 0; y < into.height; ++y) {
            for (int x = 0; x < into.width; ++x) {
                std::uint8_t* pixel = into.at(x, y);
                pixel[0] = static_cast<std::uint8_t>(left + x);
                pixel[1] = static_cast<std::uint8_t>(top + y);
                pixel[2] = 0x40;
                pixel[3] = 255;
            }
        }
        return VXPixelRect{static_cast<int>(left), static_cast<int>(top), into.width, into.height};
    }

private:
    template <typename T> std::optional<T> ifPresent(T value) {
        std::lock_guard<std::mutex> lock(mutex_);
        return present_ ? std::optional<T>(value) : std::nullopt;
    }

    std::mutex mutex_;
    int width_;
    int height_;
    VXPixelRect mainScreen_;
    VXPixelPoint pointer_{};
    bool present_ = true;
    int captures_ = 0;
    std::vector<VXPixelRect> requested_;
};
