#pragma once

#include "sysinfo/VXScreenGrabber.h"

#include <algorithm>
#include <mutex>
#include <vector>

// A synthetic screen: each pixel's colour is a function of its position (blue = x & 0xff,
// green = y & 0xff, red = 0x40), so a test can tell where captured pixels came from. The screen
// can be taken away and given back. Thread-safe.
class FakeScreenGrabber : public VXScreenGrabber {
public:
    FakeScreenGrabber(int width, int height, VXPixelRect mainScreen)
        : width_(width), height_(height), mainScreen_(mainScreen) {}

    // The expected pixel (blue, green, red) at (x, y) of the screen.
    static std::uint32_t colourAt(int x, int y) {
        return 0x400000u | (static_cast<std::uint32_t>(y & 0xff) << 8) | static_cast<std::uint32_t>(x & 0xff);
    }
    // Takes the screen away (false) or gives it back.
    void setPresent(bool present) {
        std::lock_guard<std::mutex> lock(mutex_);
        present_ = present;
    }
    // Moves the pointer.
    void setPointer(VXPixelPoint pointer) {
        std::lock_guard<std::mutex> lock(mutex_);
        pointer_ = pointer;
    }
    // The rectangles asked for so far, captured or not.
    std::vector<VXPixelRect> requested() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return requested_;
    }
    // How many captures were made.
    int captures() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return captures_;
    }

    bool canCaptureRect() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return present_;
    }
    std::optional<VXPixelRect> mainScreenFrame() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return present_ ? std::optional<VXPixelRect>(mainScreen_) : std::nullopt;
    }
    std::optional<VXPixelRect> screenBounds() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return present_ ? std::optional<VXPixelRect>(VXPixelRect{0, 0, width_, height_}) : std::nullopt;
    }
    std::optional<VXPixelPoint> pointerLocation() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return present_ ? std::optional<VXPixelPoint>(pointer_) : std::nullopt;
    }
    std::optional<VXPixelRect> captureRect(const VXPixelRect& rect, VXPixelBuffer& into) override {
        std::lock_guard<std::mutex> lock(mutex_);
        requested_.push_back(rect);
        if (!present_) {
            return std::nullopt;
        }
        const long long left = std::max<long long>(rect.x, 0);
        const long long top = std::max<long long>(rect.y, 0);
        const long long right = std::min<long long>(static_cast<long long>(rect.x) + rect.width, width_);
        const long long bottom = std::min<long long>(static_cast<long long>(rect.y) + rect.height, height_);
        if (rect.width <= 0 || rect.height <= 0 || right <= left || bottom <= top) {
            return std::nullopt;
        }
        ++captures_;
        into.width = static_cast<int>(right - left);
        into.height = static_cast<int>(bottom - top);
        into.bytesPerRow = into.width * 4;
        into.pixels.resize(static_cast<std::size_t>(into.bytesPerRow) * into.height);
        for (int y = 0; y < into.height; ++y) {
            for (int x = 0; x < into.width; ++x) {
                const std::uint32_t colour = colourAt(static_cast<int>(left) + x, static_cast<int>(top) + y);
                std::uint8_t* pixel = into.at(x, y);
                pixel[0] = static_cast<std::uint8_t>(colour);
                pixel[1] = static_cast<std::uint8_t>(colour >> 8);
                pixel[2] = static_cast<std::uint8_t>(colour >> 16);
                pixel[3] = 255;
            }
        }
        return VXPixelRect{static_cast<int>(left), static_cast<int>(top), into.width, into.height};
    }

private:
    mutable std::mutex mutex_;
    int width_;
    int height_;
    VXPixelRect mainScreen_;
    VXPixelPoint pointer_{};
    bool present_ = true;
    int captures_ = 0;
    std::vector<VXPixelRect> requested_;
};
