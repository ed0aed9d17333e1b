#include "sysinfo/OpenGLScreenReader.h"
#include "sysinfo/VXJPEGEncoder.h"
#include "sysinfo/linux/X11ScreenGrabber.h"

#include "X11TestDesktop.h"
#include "support/LogCapture.h"
#include "support/TestPlatform.h"
#include "support/XvfbProcess.h"

#include <QImage>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

constexpr std::uint32_t grey = 0x404040;
constexpr std::uint32_t red = 0xff0000;
constexpr std::uint32_t blue = 0x0000ff;
constexpr std::uint32_t yellow = 0xffff00;

std::uint32_t rgbAt(const VXPixelBuffer& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[1]) << 8 | p[0];
}

bool near(std::uint32_t a, std::uint32_t b, int tolerance) {
    for (int shift : {0, 8, 16}) {
        if (std::abs(static_cast<int>((a >> shift) & 0xff) - static_cast<int>((b >> shift) & 0xff)) >
            tolerance) {
            return false;
        }
    }
    return true;
}

// A private 1280x800 X server with known content: grey, a red, a blue and a yellow rectangle.
class X11ScreenCaptureTest : public testing::Test {
protected:
    void SetUp() override {
        VXH_REQUIRE_PLATFORM(std::system("command -v Xvfb >/dev/null 2>&1") == 0, "Xvfb is not installed");
        ASSERT_TRUE(xvfb_.startRestartable(1280, 800));
        desktop_ = std::make_unique<X11TestDesktop>(xvfb_.name());
        ASSERT_TRUE(desktop_->ok());
        desktop_->fillRoot(0, 0, 1280, 800, grey);
        desktop_->fillRoot(100, 100, 200, 100, red);
        desktop_->fillRoot(400, 300, 64, 48, blue);
        desktop_->fillRoot(1200, 700, 80, 100, yellow);
        grabber_ = std::make_shared<X11ScreenGrabber>(xvfb_.name());
    }

    XvfbProcess xvfb_;
    std::unique_ptr<X11TestDesktop> desktop_;
    std::shared_ptr<X11ScreenGrabber> grabber_;
};

TEST_F(X11ScreenCaptureTest, captureRect_withAndWithoutSharedMemory_pixelsExact) {
    VXPixelBuffer image;
    ASSERT_EQ(grabber_->captureRect({0, 0, 1280, 800}, image), (VXPixelRect{0, 0, 1280, 800}));
    EXPECT_TRUE(grabber_->lastCaptureUsedSharedMemory());
    ASSERT_EQ(image.width, 1280);
    ASSERT_EQ(image.height, 800);
    EXPECT_EQ(rgbAt(image, 150, 150), red);
    EXPECT_EQ(rgbAt(image, 100, 100), red);
    EXPECT_EQ(rgbAt(image, 99, 100), grey);
    EXPECT_EQ(rgbAt(image, 300, 150), grey);
    EXPECT_EQ(rgbAt(image, 463, 347), blue);
    EXPECT_EQ(rgbAt(image, 1279, 799), yellow);

    VXPixelBuffer shared;
    ASSERT_TRUE(grabber_->captureRect({90, 90, 400, 300}, shared));
    grabber_->setSharedMemoryAllowed(false);
    VXPixelBuffer copied;
    ASSERT_TRUE(grabber_->captureRect({90, 90, 400, 300}, copied));
    EXPECT_FALSE(grabber_->lastCaptureUsedSharedMemory());
    EXPECT_EQ(shared.width, copied.width);
    EXPECT_EQ(shared.height, copied.height);
    EXPECT_EQ(shared.pixels, copied.pixels);
    EXPECT_EQ(rgbAt(copied, 10, 10), red);
}

TEST_F(X11ScreenCaptureTest, captureRect_rects_clippedToTheScreenOrRefused) {
    const struct {
        VXPixelRect asked;
        std::optional<VXPixelRect> captured;
    } cases[] = {
        {{1200, 700, 200, 200}, VXPixelRect{1200, 700, 80, 100}},
        {{-100000, -100000, 2000000, 2000000}, VXPixelRect{0, 0, 1280, 800}},
        {{2147483600, 10, 2147483600, 10}, std::nullopt},
        {{1280, 0, 10, 10}, std::nullopt},
        {{0, 0, 0, 0}, std::nullopt},
        {{10, 10, -5, 20}, std::nullopt},
        {{-10, -10, 10, 10}, std::nullopt},
    };
    for (const auto& c : cases) {
        VXPixelBuffer image;
        const auto captured = grabber_->captureRect(c.asked, image);
        EXPECT_EQ(captured, c.captured)
            << c.asked.x << "," << c.asked.y << "," << c.asked.width << "," << c.asked.height;
        if (captured) {
            EXPECT_EQ(image.width, captured->width);
            EXPECT_EQ(image.height, captured->height);
            EXPECT_EQ(rgbAt(image, 0, 0), c.asked.x == 1200 ? yellow : grey);
        }
    }
}

TEST_F(X11ScreenCaptureTest, jpeg_ofCapturedRect_decodesToRectSizeAndColours) {
    VXPixelBuffer image;
    ASSERT_TRUE(grabber_->captureRect({50, 50, 500, 400}, image));
    VXJPEGEncoder encoder;
    const auto jpeg = encoder.encode(image, VXJPEGEncoder::screenshotQuality);
    ASSERT_GT(jpeg.size(), 100u);
    const QImage decoded = QImage::fromData(
        QByteArray(reinterpret_cast<const char*>(jpeg.data()), static_cast<qsizetype>(jpeg.size())), "JPEG");
    ASSERT_EQ(decoded.size(), QSize(500, 400));
    for (const auto& [x, y, colour, tolerance] :
         {std::tuple{150, 100, red, 40}, std::tuple{380, 270, blue, 40}, std::tuple{20, 20, grey, 24}}) {
        const std::uint32_t rgb = decoded.pixel(x, y) & 0xffffff;
        EXPECT_TRUE(near(rgb, colour, tolerance)) << std::hex << rgb << " at " << std::dec << x << "," << y;
    }
    EXPECT_FALSE(encoder.encode(image, 10).empty()); // the same encoder again
}

TEST(VXJPEGEncoderTest, encode_emptyOrInconsistentImage_givesNothing) {
    VXJPEGEncoder encoder;
    EXPECT_TRUE(encoder.encode(VXPixelBuffer{}, 10).empty());
    VXPixelBuffer shortBuffer{100, 100, 400, std::vector<std::uint8_t>(100)};
    EXPECT_TRUE(encoder.encode(shortBuffer, 10).empty());
    VXPixelBuffer narrowRows{100, 10, 40, std::vector<std::uint8_t>(4000)};
    EXPECT_TRUE(encoder.encode(narrowRows, 10).empty());
    VXPixelBuffer fine{2, 2, 8, std::vector<std::uint8_t>(16, 0x80)};
    EXPECT_FALSE(encoder.encode(fine, 500).empty()); // quality clamped
}

// The scaling and the mark are tested on a fake screen; here the real screen's frame and pointer.
TEST_F(X11ScreenCaptureTest, screenReader_privateServer_itsFrameAndPointerMark) {
    EXPECT_TRUE(grabber_->canCaptureRect());
    EXPECT_EQ(grabber_->mainScreenFrame(), (VXPixelRect{0, 0, 1280, 800}));
    EXPECT_EQ(grabber_->screenBounds(), (VXPixelRect{0, 0, 1280, 800}));
    desktop_->warpPointer(640, 400);
    EXPECT_EQ(grabber_->pointerLocation(), (VXPixelPoint{640, 400}));

    auto reader = OpenGLScreenReader::create(grabber_);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->rect(), (VXPixelRect{0, 0, 1280, 800}));
    reader->readRectScreenToBuffer();
    const VXPixelBuffer marked = reader->createImageFromBufferMousePointerVisible(0, 0, true);
    EXPECT_EQ(rgbAt(marked, 640, 400), red);
    EXPECT_EQ(rgbAt(marked, 150, 150), red); // the red rectangle
}

TEST_F(X11ScreenCaptureTest, captureRect_serverRestarted_failsThenRecovers) {
    VXPixelBuffer image;
    ASSERT_TRUE(grabber_->captureRect({0, 0, 100, 100}, image));
    const int number = xvfb_.number();
    desktop_.reset();
    xvfb_.stop();
    LogCapture log;
    EXPECT_FALSE(grabber_->captureRect({0, 0, 100, 100}, image));
    EXPECT_FALSE(grabber_->canCaptureRect());
    EXPECT_FALSE(grabber_->mainScreenFrame());
    EXPECT_FALSE(grabber_->pointerLocation());
    EXPECT_FALSE(OpenGLScreenReader::create(grabber_));

    ASSERT_TRUE(xvfb_.start(640, 480, number));
    X11TestDesktop desktop(xvfb_.name());
    ASSERT_TRUE(desktop.ok());
    desktop.fillRoot(0, 0, 640, 480, blue);
    // The connection is tried again at most once a second.
    std::optional<VXPixelRect> captured;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!captured && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        captured = grabber_->captureRect({0, 0, 1000, 1000}, image);
    }
    ASSERT_EQ(captured, (VXPixelRect{0, 0, 640, 480}));
    EXPECT_EQ(rgbAt(image, 10, 10), blue);
    EXPECT_TRUE(grabber_->lastCaptureUsedSharedMemory());
    EXPECT_EQ(log.countContaining("screen capture: no X display"), 1u);
}

} // namespace
