#include "sysinfo/OpenGLScreenReader.h"

#include "sysinfo/fakes/FakeScreenGrabber.h"
#include "transport/PZException.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();

std::shared_ptr<FakeScreenGrabber> screen1920() {
    return std::make_shared<FakeScreenGrabber>(1920, 1080, VXPixelRect{0, 0, 1920, 1080});
}

// The image of (x, y, w, h) of the screen at the size asked for.
VXPixelBuffer imageOf(OpenGLScreenReader& reader, double x, double y, double w, double h, double askW = 0,
                      double askH = 0, bool pointer = false) {
    reader.setRectToRead(x, y, w, h);
    reader.readRectScreenToBuffer();
    return reader.createImageFromBufferMousePointerVisible(askW, askH, pointer);
}

// Blue, green and red of a pixel.
std::array<int, 3> pixel(const VXPixelBuffer& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return {p[0], p[1], p[2]};
}

TEST(OpenGLScreenReaderTest, create_screenOrNot_readerAimedAtTheMainScreenOrNull) {
    auto grabber = std::make_shared<FakeScreenGrabber>(3200, 1080, VXPixelRect{1920, 0, 1280, 1024});
    auto reader = OpenGLScreenReader::create(grabber);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->rect(), (VXPixelRect{1920, 0, 1280, 1024}));

    grabber->setPresent(false);
    EXPECT_EQ(OpenGLScreenReader::create(grabber), nullptr);
    EXPECT_EQ(OpenGLScreenReader::create(nullptr), nullptr);
    EXPECT_THROW(reader->readRectScreenToBuffer(), PZException); // the screen went away
    grabber->setPresent(true);
    EXPECT_NO_THROW(reader->readRectScreenToBuffer());
}

TEST(OpenGLScreenReaderTest, createImage_rectsAndAskedSizes_clippedAndFittedKeepingAspect) {
    const struct {
        double x, y, w, h;
        double askW, askH;
        int expectedW, expectedH;
    } cases[] = {
        {0, 0, 1280, 800, 480, 320, 480, 300},  // max(2.667, 2.5)
        {0, 0, 1000, 1000, 300, 100, 100, 100}, // height decides
        {0, 0, 640, 480, nan, 240, 320, 240},
        {0, 0, 640, 480, -5, 0, 640, 480},         // nothing asked: full resolution
        {0, 0, 4000, 100, 40000, 1000, 8192, 204}, // enlarged no further than 8192
        {3900, 1000, 400, 400, 0, 0, 100, 80},     // the part on the screen
    };
    auto reader = OpenGLScreenReader::create(
        std::make_shared<FakeScreenGrabber>(4000, 1080, VXPixelRect{0, 0, 1920, 1080}));
    for (const auto& c : cases) {
        const VXPixelBuffer image = imageOf(*reader, c.x, c.y, c.w, c.h, c.askW, c.askH);
        SCOPED_TRACE(testing::Message()
                     << c.w << "x" << c.h << " at " << c.x << " into " << c.askW << ";" << c.askH);
        EXPECT_EQ(image.width, c.expectedW);
        EXPECT_EQ(image.height, c.expectedH);
        EXPECT_EQ(image.pixels.size(), static_cast<std::size_t>(image.bytesPerRow) * image.height);
        if (c.x == 3900) {
            EXPECT_EQ(pixel(image, 0, 0)[0], 3900 & 0xff);
        }
    }
    EXPECT_THROW(imageOf(*reader, 0, 0, 1280, 800, 1, 1), PZException); // too small for one row
}

TEST(OpenGLScreenReaderTest, createImage_halfSize_averagesSourcePixels) {
    auto reader = OpenGLScreenReader::create(screen1920());
    const VXPixelBuffer image = imageOf(*reader, 100, 10, 200, 100, 100, 50);
    ASSERT_EQ(image.width, 100);
    // Output (x, y) covers source x 100+2x..101+2x, y 10+2y..11+2y: blue averages to 100+2x+0.5.
    for (int x : {0, 20, 77}) {
        for (int y : {0, 13, 49}) {
            const auto c = pixel(image, x, y);
            EXPECT_NEAR(c[0], ((100 + 2 * x) & 0xff) + 0.5, 1.0) << x << "," << y;
            EXPECT_NEAR(c[1], 10 + 2 * y + 0.5, 1.0) << x << "," << y;
            EXPECT_EQ(c[2], 0x40);
        }
    }
}

TEST(OpenGLScreenReaderTest, createImage_pointerVisible_redMarkAtPointerOnlyWhenAskedAndOneBufferPerRect) {
    auto grabber = screen1920();
    grabber->setPointer({200, 150});
    auto reader = OpenGLScreenReader::create(grabber);
    const VXPixelBuffer marked = imageOf(*reader, 0, 0, 400, 300, 0, 0, true);
    EXPECT_EQ(pixel(marked, 200, 150), (std::array<int, 3>{0, 0, 255}));
    EXPECT_EQ(pixel(marked, 207, 150)[2], 255); // inside the radius of 10
    EXPECT_EQ(pixel(marked, 200, 143)[2], 255);
    EXPECT_EQ(pixel(marked, 212, 150)[2], 0x40); // outside it
    EXPECT_EQ(pixel(marked, 200, 162)[2], 0x40);
    EXPECT_EQ(pixel(imageOf(*reader, 0, 0, 400, 300), 200, 150)[2], 0x40);
    EXPECT_EQ(reader->bufferAllocations(), 1u); // the same rectangle again: the same buffer
    EXPECT_EQ(grabber->captures(), 2);
    imageOf(*reader, 0, 0, 1920, 1080, 480, 320, true);
    EXPECT_EQ(reader->bufferAllocations(), 2u);
}

TEST(OpenGLScreenReaderTest, setRectToRead_zeroSize_reachesMainScreenCorner) {
    const struct {
        VXPixelRect main;
        double x, y;
        VXPixelRect expected;
    } cases[] = {
        {{0, 0, 1920, 1080}, 100, 100, {100, 100, 1820, 980}},
        {{1920, 0, 1280, 1024}, 0, 0, {0, 0, 3200, 1024}},
        {{0, 0, 1920, 1080}, 10.9, 20.7, {10, 20, 1909, 1059}}, // truncated toward zero
    };
    for (const auto& c : cases) {
        auto reader = OpenGLScreenReader::create(std::make_shared<FakeScreenGrabber>(4000, 2000, c.main));
        reader->setRectToRead(c.x, c.y, 0, 0);
        EXPECT_EQ(reader->rect(), c.expected) << c.x << "," << c.y;
    }
}

TEST(OpenGLScreenReaderTest, readRect_absurdRects_failWithoutAllocating) {
    const double cases[][4] = {{5000, 5000, 10, 10},
                               {nan, nan, nan, 5},
                               {-1e300, -1e300, 1e-300, 1e300},
                               {2e9, 2e9, 2e9, 2e9},
                               {0, 0, 0, -1}};
    auto reader = OpenGLScreenReader::create(screen1920());
    for (const auto& c : cases) {
        reader->setRectToRead(c[0], c[1], c[2], c[3]);
        try {
            reader->readRectScreenToBuffer();
            ADD_FAILURE() << "captured " << c[0] << "," << c[1] << "," << c[2] << "," << c[3];
        } catch (const PZException& e) {
            EXPECT_EQ(e.name(), "OpenGLScreenReader readRectScreenToBuffer");
        }
        EXPECT_THROW(reader->createImageFromBufferMousePointerVisible(480, 320, false), PZException);
        EXPECT_EQ(reader->bufferAllocations(), 0u);
    }
}

} // namespace
