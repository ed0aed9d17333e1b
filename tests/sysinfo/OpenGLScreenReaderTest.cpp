#include "sysinfo/OpenGLScreenReader.h"

#include "sysinfo/fakes/FakeScreenGrabber.h"
#include "transport/PZException.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

std::shared_ptr<FakeScreenGrabber> screen1920() {
    return std::make_shared<FakeScreenGrabber>(1920, 1080, VXPixelRect{0, 0, 1920, 1080});
}

struct Colour {
    int blue, green, red;
};

Colour pixel(const VXPixelBuffer& image, int x, int y) {
    const std::uint8_t* p = image.at(x, y);
    return {p[0], p[1], p[2]};
}

TEST(OpenGLScreenReaderTest, create_noScreen_returnsNull) {
    auto grabber = screen1920();
    grabber->setPresent(false);
    EXPECT_EQ(OpenGLScreenReader::create(grabber), nullptr);
    EXPECT_EQ(OpenGLScreenReader::create(nullptr), nullptr);
}

TEST(OpenGLScreenReaderTest, create_withScreen_aimsAtTheMainScreen) {
    auto grabber = std::make_shared<FakeScreenGrabber>(3200, 1080, VXPixelRect{1920, 0, 1280, 1024});
    auto reader = OpenGLScreenReader::create(grabber);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->rect(), (VXPixelRect{1920, 0, 1280, 1024}));
}

TEST(OpenGLScreenReaderTest, createImage_sizeSmallerThanRect_fitsInsideKeepingAspect) {
    const struct {
        double w, h;
        double askW, askH;
        int expectedW, expectedH;
    } cases[] = {
        {1280, 800, 480, 320, 480, 300},   // max(2.667, 2.5)
        {1280, 800, 0, 0, 1280, 800},      // full resolution
        {1920, 1080, 960, 1080, 960, 540}, // width decides
        {1000, 1000, 300, 100, 100, 100},  // height decides
        {640, 480, 1280, 960, 1280, 960},  // larger than the rectangle: enlarged
        {640, 480, std::numeric_limits<double>::quiet_NaN(), 240, 320, 240},
        {640, 480, -5, 0, 640, 480}, // nothing asked of either side
    };
    auto reader = OpenGLScreenReader::create(screen1920());
    for (const auto& c : cases) {
        reader->setRectToRead(0, 0, c.w, c.h);
        reader->readRectScreenToBuffer();
        const VXPixelBuffer image = reader->createImageFromBufferMousePointerVisible(c.askW, c.askH, false);
        EXPECT_EQ(image.width, c.expectedW) << c.w << "x" << c.h << " into " << c.askW << ";" << c.askH;
        EXPECT_EQ(image.height, c.expectedH) << c.w << "x" << c.h << " into " << c.askW << ";" << c.askH;
        EXPECT_EQ(image.pixels.size(), static_cast<std::size_t>(image.bytesPerRow) * image.height);
    }
}

TEST(OpenGLScreenReaderTest, createImage_halfSize_averagesSourcePixels) {
    auto reader = OpenGLScreenReader::create(screen1920());
    reader->setRectToRead(100, 10, 200, 100);
    reader->readRectScreenToBuffer();
    const VXPixelBuffer image = reader->createImageFromBufferMousePointerVisible(100, 50, false);
    ASSERT_EQ(image.width, 100);
    // Output (x, y) covers source x 100+2x..101+2x, y 10+2y..11+2y: blue averages to 100+2x+0.5.
    for (int x : {0, 20, 77}) {
        for (int y : {0, 13, 49}) {
            const Colour c = pixel(image, x, y);
            EXPECT_NEAR(c.blue, ((100 + 2 * x) & 0xff) + 0.5, 1.0) << x << "," << y;
            EXPECT_NEAR(c.green, 10 + 2 * y + 0.5, 1.0) << x << "," << y;
            EXPECT_EQ(c.red, 0x40);
        }
    }
}

TEST(OpenGLScreenReaderTest, createImage_pointerVisible_drawsRedMarkAtPointer) {
    auto grabber = screen1920();
    grabber->setPointer({200, 150});
    auto reader = OpenGLScreenReader::create(grabber);
    reader->setRectToRead(0, 0, 400, 300);
    reader->readRectScreenToBuffer();
    const VXPixelBuffer marked = reader->createImageFromBufferMousePointerVisible(0, 0, true);
    const Colour centre = pixel(marked, 200, 150);
    EXPECT_EQ(centre.red, 255);
    EXPECT_EQ(centre.green, 0);
    EXPECT_EQ(centre.blue, 0);
    EXPECT_EQ(pixel(marked, 207, 150).red, 255); // inside the radius of 10
    EXPECT_EQ(pixel(marked, 200, 143).red, 255);
    EXPECT_EQ(pixel(marked, 212, 150).red, 0x40); // outside it
    EXPECT_EQ(pixel(marked, 200, 162).red, 0x40);

    reader->readRectScreenToBuffer();
    const VXPixelBuffer plain = reader->createImageFromBufferMousePointerVisible(0, 0, false);
    EXPECT_EQ(pixel(plain, 200, 150).red, 0x40);
}

TEST(OpenGLScreenReaderTest, readRect_sameRectTwice_allocatesOnce) {
    auto grabber = screen1920();
    auto reader = OpenGLScreenReader::create(grabber);
    reader->setRectToRead(0, 0, 1280, 800);
    reader->readRectScreenToBuffer();
    reader->createImageFromBufferMousePointerVisible(480, 320, true);
    reader->setRectToRead(0, 0, 1280, 800);
    reader->readRectScreenToBuffer();
    reader->createImageFromBufferMousePointerVisible(480, 320, true);
    EXPECT_EQ(reader->bufferAllocations(), 1u);
    EXPECT_EQ(grabber->captures(), 2);

    reader->setRectToRead(0, 0, 1920, 1080);
    reader->readRectScreenToBuffer();
    EXPECT_EQ(reader->bufferAllocations(), 2u);
}

TEST(OpenGLScreenReaderTest, setRectToRead_zeroSize_reachesMainScreenCorner) {
    const struct {
        VXPixelRect main;
        double x, y;
        VXPixelRect expected;
    } cases[] = {
        {{0, 0, 1920, 1080}, 100, 100, {100, 100, 1820, 980}},
        {{0, 0, 1920, 1080}, 0, 0, {0, 0, 1920, 1080}},
        {{1920, 0, 1280, 1024}, 0, 0, {0, 0, 3200, 1024}},
        {{0, 0, 1920, 1080}, 10.9, 20.7, {10, 20, 1909, 1059}}, // truncated toward zero
    };
    for (const auto& c : cases) {
        auto reader = OpenGLScreenReader::create(std::make_shared<FakeScreenGrabber>(4000, 2000, c.main));
        reader->setRectToRead(c.x, c.y, 0, 0);
        EXPECT_EQ(reader->rect(), c.expected) << c.x << "," << c.y;
    }
}

TEST(OpenGLScreenReaderTest, readRect_rectPartlyOffScreen_capturesTheVisiblePart) {
    auto reader = OpenGLScreenReader::create(screen1920());
    reader->setRectToRead(1800, 1000, 400, 400);
    reader->readRectScreenToBuffer();
    const VXPixelBuffer image = reader->createImageFromBufferMousePointerVisible(0, 0, false);
    EXPECT_EQ(image.width, 120);
    EXPECT_EQ(image.height, 80);
    EXPECT_EQ(pixel(image, 0, 0).blue, 1800 & 0xff);
}

TEST(OpenGLScreenReaderTest, readRect_absurdRects_failWithoutAllocating) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double cases[][4] = {{5000, 5000, 10, 10}, {0, 0, -100, -100},
                               {nan, nan, nan, 5},   {-1e300, -1e300, 1e-300, 1e300},
                               {2e9, 2e9, 2e9, 2e9}, {0, 0, 0, -1}};
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

TEST(OpenGLScreenReaderTest, readRect_hugeRect_clippedToTheScreen) {
    auto reader = OpenGLScreenReader::create(screen1920());
    reader->setRectToRead(-100, -100, 100000, 100000);
    reader->readRectScreenToBuffer();
    EXPECT_EQ(reader->buffer().width, 1920);
    EXPECT_EQ(reader->buffer().height, 1080);
}

TEST(OpenGLScreenReaderTest, createImage_enlargedBeyondLimit_staysWithin8192) {
    auto grabber = std::make_shared<FakeScreenGrabber>(4000, 100, VXPixelRect{0, 0, 4000, 100});
    auto reader = OpenGLScreenReader::create(grabber);
    reader->setRectToRead(0, 0, 4000, 100);
    reader->readRectScreenToBuffer();
    const VXPixelBuffer image = reader->createImageFromBufferMousePointerVisible(40000, 1000, false);
    EXPECT_EQ(image.width, 8192);
    EXPECT_EQ(image.height, 204);
}

TEST(OpenGLScreenReaderTest, createImage_tooSmallForOneRow_fails) {
    auto reader = OpenGLScreenReader::create(screen1920());
    reader->setRectToRead(0, 0, 1280, 800);
    reader->readRectScreenToBuffer();
    EXPECT_THROW(reader->createImageFromBufferMousePointerVisible(1, 1, false), PZException);
}

TEST(OpenGLScreenReaderTest, readRect_screenGone_throws) {
    auto grabber = screen1920();
    auto reader = OpenGLScreenReader::create(grabber);
    grabber->setPresent(false);
    EXPECT_THROW(reader->readRectScreenToBuffer(), PZException);
    grabber->setPresent(true);
    EXPECT_NO_THROW(reader->readRectScreenToBuffer());
}

} // namespace
