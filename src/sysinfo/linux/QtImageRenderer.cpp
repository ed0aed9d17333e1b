#include "sysinfo/linux/QtImageRenderer.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>
#include <QSvgRenderer>

namespace {

// Source images larger than this on a side are not decoded (a hostile or broken file).
constexpr int maximumSourceSide = 8192;

} // namespace

// The embedded images live in a static library: registering them here also makes sure the linker
// keeps them.
static void registerImages() {
    static const bool registered = [] {
        Q_INIT_RESOURCE(vxh_sysinfo_images);
        return true;
    }();
    (void)registered;
}

QtImageRenderer::QtImageRenderer() {
    registerImages();
}

std::optional<std::vector<std::uint8_t>> QtImageRenderer::encode(const QImage& source, int width, int height,
                                                                 VXImageFormat format) {
    if (source.isNull() || width <= 0 || height <= 0) {
        return std::nullopt;
    }
    QImage canvas(width, height, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::transparent);
    {
        QPainter painter(&canvas);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.drawImage(QRect(0, 0, width, height), source);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format == VXImageFormat::PNG ? "png" : "tiff");
    if (format == VXImageFormat::TIFF) {
        writer.setCompression(1); // LZW
    }
    if (!writer.write(canvas) || bytes.isEmpty()) {
        return std::nullopt;
    }
    return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
}

std::optional<std::vector<std::uint8_t>> QtImageRenderer::renderFile(const std::string& imagePath, int width,
                                                                     int height, VXImageFormat format) {
    const QString path = QString::fromStdString(imagePath);
    if (path.endsWith(QLatin1String(".svg"), Qt::CaseInsensitive) ||
        path.endsWith(QLatin1String(".svgz"), Qt::CaseInsensitive)) {
        QSvgRenderer svg(path);
        if (!svg.isValid()) {
            return std::nullopt;
        }
        QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        {
            QPainter painter(&image);
            svg.render(&painter, QRectF(0, 0, width, height));
        }
        return encode(image, width, height, format);
    }
    QImageReader reader(path);
    const QSize size = reader.size();
    if (size.isValid() && (size.width() > maximumSourceSide || size.height() > maximumSourceSide)) {
        return std::nullopt;
    }
    if (size.isValid() && reader.supportsOption(QImageIOHandler::ScaledSize) &&
        (size.width() > 2 * width || size.height() > 2 * height)) {
        reader.setScaledSize(QSize(width, height));
    }
    const QImage image = reader.read();
    return encode(image, width, height, format);
}

std::optional<std::vector<std::uint8_t>> QtImageRenderer::renderResource(const std::string& name, int width,
                                                                         int height, VXImageFormat format) {
    if (name.find('/') != std::string::npos) {
        return std::nullopt;
    }
    const QString path = QStringLiteral(":/images/") + QString::fromStdString(name);
    if (!QFile::exists(path)) {
        return std::nullopt;
    }
    return encode(QImage(path), width, height, format);
}

std::optional<std::vector<std::uint8_t>> QtImageRenderer::renderPixels(const VXArgbImage& image, int width,
                                                                       int height, VXImageFormat format) {
    if (image.width <= 0 || image.height <= 0 ||
        image.argb.size() < static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height)) {
        return std::nullopt;
    }
    const QImage view(reinterpret_cast<const uchar*>(image.argb.data()), image.width, image.height,
                      image.width * 4, QImage::Format_ARGB32);
    return encode(view, width, height, format);
}
