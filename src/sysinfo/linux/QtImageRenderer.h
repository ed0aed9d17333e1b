#pragma once

#include "sysinfo/VXImageRenderer.h"

class QImage;

// Image rendering with Qt's thread-safe image classes (QImage, QImageReader, QSvgRenderer,
// QPainter on a QImage, QImageWriter), so it runs on the calling thread without the GUI thread.
// The program's own images come from its embedded resources.
class QtImageRenderer : public VXImageRenderer {
public:
    // Registers the embedded images.
    QtImageRenderer();

    std::optional<std::vector<std::uint8_t>> renderFile(const std::string& imagePath, int width, int height,
                                                        VXImageFormat format) override;
    std::optional<std::vector<std::uint8_t>> renderResource(const std::string& name, int width, int height,
                                                            VXImageFormat format) override;
    std::optional<std::vector<std::uint8_t>> renderPixels(const VXArgbImage& image, int width, int height,
                                                          VXImageFormat format) override;

    // The encoded bytes of `image` drawn into a blank width x height image; nothing when it is null.
    static std::optional<std::vector<std::uint8_t>> encode(const QImage& image, int width, int height,
                                                           VXImageFormat format);
};
