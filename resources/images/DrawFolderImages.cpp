// Draws the launcher folder images that the program embeds: ApplicationFolder.png, DockFolder.png
// and Folder.png, 128x128 each, into the folder given as the only argument. Run at build time.
#include <QColor>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QString>

#include <cstdio>

namespace {

constexpr int side = 128;

// A folder: the back with its tab, a sheet of paper peeking out, the front flap with a soft gradient.
void drawFolder(QPainter& painter) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);

    QPainterPath back;
    back.moveTo(10, 26);
    back.quadTo(10, 20, 16, 20);
    back.lineTo(46, 20);
    back.quadTo(51, 20, 54, 25);
    back.lineTo(58, 30);
    back.lineTo(112, 30);
    back.quadTo(118, 30, 118, 36);
    back.lineTo(118, 104);
    back.quadTo(118, 110, 112, 110);
    back.lineTo(16, 110);
    back.quadTo(10, 110, 10, 104);
    back.closeSubpath();
    QLinearGradient backShade(0, 20, 0, 110);
    backShade.setColorAt(0, QColor(0x3f, 0x7f, 0xcf));
    backShade.setColorAt(1, QColor(0x2a, 0x5f, 0xa8));
    painter.setBrush(backShade);
    painter.drawPath(back);

    painter.setBrush(QColor(0xf4, 0xf6, 0xf9));
    painter.drawRoundedRect(QRectF(20, 36, 88, 40), 3, 3);

    QPainterPath front;
    front.moveTo(10, 50);
    front.quadTo(10, 44, 16, 44);
    front.lineTo(112, 44);
    front.quadTo(118, 44, 118, 50);
    front.lineTo(118, 104);
    front.quadTo(118, 110, 112, 110);
    front.lineTo(16, 110);
    front.quadTo(10, 110, 10, 104);
    front.closeSubpath();
    QLinearGradient frontShade(0, 44, 0, 110);
    frontShade.setColorAt(0, QColor(0x7a, 0xb4, 0xf5));
    frontShade.setColorAt(1, QColor(0x4a, 0x8f, 0xe0));
    painter.setBrush(frontShade);
    painter.drawPath(front);

    // A thin highlight along the front's upper edge.
    painter.setBrush(QColor(255, 255, 255, 70));
    painter.drawRect(QRectF(12, 46, 104, 2));
}

// A 2x2 grid of rounded tiles: the applications.
void drawApplicationsEmblem(QPainter& painter) {
    const QColor tiles[] = {QColor(0xf6, 0xd3, 0x2d), QColor(0xed, 0x33, 0x3b), QColor(0x57, 0xe3, 0x89),
                            QColor(0xff, 0xff, 0xff)};
    for (int i = 0; i < 4; ++i) {
        const qreal x = 46 + (i % 2) * 20;
        const qreal y = 58 + (i / 2) * 20;
        painter.setBrush(tiles[i]);
        painter.drawRoundedRect(QRectF(x, y, 16, 16), 4, 4);
    }
}

// A shelf with three launchers on it: the dock.
void drawDockEmblem(QPainter& painter) {
    painter.setBrush(QColor(255, 255, 255, 200));
    painter.drawRoundedRect(QRectF(30, 88, 68, 8), 3, 3);
    const QColor launchers[] = {QColor(0xed, 0x33, 0x3b), QColor(0xf6, 0xd3, 0x2d), QColor(0x57, 0xe3, 0x89)};
    for (int i = 0; i < 3; ++i) {
        painter.setBrush(launchers[i]);
        painter.drawRoundedRect(QRectF(36 + i * 20, 66, 16, 18), 4, 4);
    }
}

bool save(const QString& folder, const char* name, void (*emblem)(QPainter&)) {
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        drawFolder(painter);
        if (emblem != nullptr) {
            emblem(painter);
        }
    }
    return image.save(folder + "/" + QString::fromLatin1(name), "PNG");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT-FOLDER\n", argv[0]);
        return 2;
    }
    const QString folder = QString::fromLocal8Bit(argv[1]);
    const bool ok = save(folder, "Folder.png", nullptr) &&
                    save(folder, "ApplicationFolder.png", drawApplicationsEmblem) &&
                    save(folder, "DockFolder.png", drawDockEmblem);
    return ok ? 0 : 1;
}
