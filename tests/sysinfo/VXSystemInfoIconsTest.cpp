#include "protocol/VXProcess.h"
#include "sysinfo/VXSystemInfo.h"
#include "sysinfo/fakes/FakeDesktopSettings.h"
#include "sysinfo/fakes/FakeProcessSource.h"
#include "sysinfo/linux/QtImageRenderer.h"
#include "sysinfo/linux/QtMimeTypes.h"

#include "IconFixture.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

QImage decode(const std::optional<std::vector<std::uint8_t>>& bytes, const char* format) {
    if (!bytes) {
        return {};
    }
    return QImage::fromData(
        QByteArray(reinterpret_cast<const char*>(bytes->data()), static_cast<qsizetype>(bytes->size())),
        format);
}

// The colour in the middle of an image.
QColor centre(const QImage& image) {
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

// The value of the Compression tag (259) of a little-endian TIFF, 0 when there is none.
int tiffCompression(const std::vector<std::uint8_t>& tiff) {
    const auto u16 = [&](size_t at) { return at + 2 <= tiff.size() ? tiff[at] | tiff[at + 1] << 8 : 0; };
    if (tiff.size() < 8 || std::memcmp(tiff.data(), "II*\0", 4) != 0) {
        return 0;
    }
    const size_t directory = static_cast<size_t>(u16(4) | u16(6) << 16);
    for (int i = 0; i < u16(directory); ++i) {
        if (const size_t entry = directory + 2 + static_cast<size_t>(i) * 12; u16(entry) == 259) {
            return u16(entry + 8);
        }
    }
    return 0;
}

class VXSystemInfoIconsTest : public testing::Test {
protected:
    void SetUp() override {
        const TempTree& tree = fixture_.tree();
        for (const auto& [id, keys] : std::vector<std::pair<std::string, std::string>>{
                 {"one", "Name=App One\nIcon=app-one\nStartupWMClass=OneApp"},
                 {"file-icon", "Name=File Icon\nIcon=" + tree.path("pixmaps/legacy-icon.png")},
                 {"dotted", "Name=Dotted\nIcon=app-one.png"},
                 {"broken", "Name=Broken\nIcon=broken"},
                 {"giant", "Name=Giant\nIcon=giant"},
                 {"broken-svg", "Name=Broken SVG\nIcon=broken-svg"}}) {
            tree.write("data/applications/" + id + ".desktop",
                       "[Desktop Entry]\nType=Application\n" + keys + "\n");
        }
        desktop_->setIconTheme("TestTheme");
        VXSystemInfoBackEnds backEnds;
        backEnds.dataDirs = {tree.path("data")};
        backEnds.iconDirs = fixture_.iconDirs();
        backEnds.images = std::make_shared<QtImageRenderer>();
        backEnds.mimeTypes = std::make_shared<QtMimeTypes>();
        backEnds.desktop = desktop_;
        backEnds.processes = processes_;
        info_ = std::make_unique<VXSystemInfo>(std::move(backEnds));
    }

    QImage iconOf(const std::string& name, std::int64_t pid, double w, double h,
                  std::optional<std::string> path = {}) {
        VXProcess process(name, pid);
        process.setPath(std::move(path));
        return decode(info_->getDataOfIconForProcessSize(process, w, h), "PNG");
    }

    IconFixture fixture_;
    std::shared_ptr<FakeDesktopSettings> desktop_ = std::make_shared<FakeDesktopSettings>();
    std::shared_ptr<FakeProcessSource> processes_ = std::make_shared<FakeProcessSource>();
    std::unique_ptr<VXSystemInfo> info_;
};

TEST_F(VXSystemInfoIconsTest, launcherFolders_threeNamesAndHostileSizes_ownImageAtRequestedSizeOrNothing) {
    const QImage applications = iconOf("Applications", -2, 64, 64);
    const QImage applicationsLower = iconOf("applications", -2, 64, 64);
    const QImage dock = iconOf("DOCK", -2, 64, 64);
    const QImage other = iconOf("Downloads", -2, 64, 64);
    for (const QImage* image : {&applications, &dock, &other}) {
        ASSERT_FALSE(image->isNull());
        EXPECT_EQ(image->size(), QSize(64, 64));
        EXPECT_GT(image->pixelColor(64 / 2, 64 * 3 / 4).alpha(), 200); // the folder's body is opaque
        EXPECT_EQ(image->pixelColor(1, 1).alpha(), 0);                 // the corner is not
    }
    EXPECT_EQ(applications, applicationsLower);
    EXPECT_NE(applications, dock);
    EXPECT_NE(applications, other);
    EXPECT_NE(dock, other);
    EXPECT_EQ(iconOf("Dock", -2, 128, 32).size(), QSize(128, 32));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& size : std::vector<std::pair<double, double>>{{0, 0}, {-1, 64}, {64, nan}, {0.5, 64}}) {
        EXPECT_TRUE(iconOf("Applications", -2, size.first, size.second).isNull())
            << size.first << ";" << size.second;
    }
    EXPECT_EQ(iconOf("Applications", -2, 1e12, 20.9).size(), QSize(1024, 20)); // clamped
}

TEST_F(VXSystemInfoIconsTest, iconForProcess_computerEntriesFoldersFiles_theirIconAtTheSizeAsked) {
    const auto path = [this](const char* relative) { return fixture_.tree().path(relative); };
    const std::string text = fixture_.tree().write("notes.txt", "hello\n");
    processes_->setProcesses({{501, "one", "oneapp", "OneApp", "w"}, {502, "other", "x", "X", "w"}});
    processes_->setIcon(502, VXArgbImage{2, 2, {0xff00ff00u, 0xff00ff00u, 0xff00ff00u, 0xff00ff00u}});
    const struct {
        const char* name;
        std::int64_t pid;
        int size;
        std::optional<std::string> path;
        std::optional<QColor> centre; // nothing: no image
    } cases[] = {
        {"Mac", -1, 48, std::nullopt, QColor(Qt::cyan)},
        {"other", 502, 32, std::nullopt, QColor(Qt::green)}, // its window icon
        {"one", 501, 16, std::nullopt, QColor(Qt::red)},     // no window icon: its desktop entry's
        {"gone", 503, 16, std::nullopt, std::nullopt},
        {"App One", 0, 16, path("data/applications/one.desktop"), QColor(Qt::red)},
        {"App One", 0, 128, path("data/applications/one.desktop"), QColor(Qt::blue)}, // SVG
        {"File Icon", 0, 32, path("data/applications/file-icon.desktop"), QColor(Qt::darkBlue)},
        {"Dotted", 0, 16, path("data/applications/dotted.desktop"), QColor(Qt::red)},
        {"folder", 0, 48, path("data"), QColor(255, 128, 0)},
        {"file", 0, 48, text, QColor(Qt::yellow)},
        {"unreadable entry: a file", 0, 48, path("missing.desktop"), QColor(Qt::yellow)},
        {"broken PNG", 0, 48, path("data/applications/broken.desktop"), std::nullopt},
        {"giant PNG", 0, 48, path("data/applications/giant.desktop"), std::nullopt},
        {"broken SVG", 0, 48, path("data/applications/broken-svg.desktop"), std::nullopt},
    };
    for (const auto& c : cases) {
        const QImage image = iconOf(c.name, c.pid, c.size, c.size, c.path);
        ASSERT_EQ(image.isNull(), !c.centre) << c.name << " at " << c.size;
        if (c.centre) {
            EXPECT_EQ(centre(image), *c.centre) << c.name << " at " << c.size;
            EXPECT_EQ(image.size(), QSize(c.size, c.size)) << c.name << " at " << c.size;
        }
    }
    // Without a path, by name among the applications last listed.
    EXPECT_TRUE(iconOf("App One", 0, 48, 48).isNull());
    info_->getInstalledApplications();
    EXPECT_EQ(centre(iconOf("App One", 0, 48, 48)), QColor(Qt::green));
    EXPECT_TRUE(iconOf("app one", 0, 48, 48).isNull()); // the name must match exactly
    // A window icon whose pixels do not fill its size is not drawn.
    processes_->setIcon(502, VXArgbImage{100, 100, {0xff00ff00u}});
    EXPECT_TRUE(iconOf("other", 502, 32, 32).isNull());
}

TEST_F(VXSystemInfoIconsTest, fileIcon_pathsAndDir_lzwTiffAtRequestedSize) {
    const struct {
        std::string text;
        std::optional<QColor> centre; // nothing: the folder image
    } cases[] = {{"DIR", std::nullopt},
                 {"/tmp/README", QColor(Qt::yellow)},
                 {"photo.PNG", QColor(Qt::magenta)},
                 {"", QColor(Qt::yellow)}};
    for (const auto& c : cases) {
        const auto tiff = info_->getDataOfFileIconSize(c.text, 40, 30);
        ASSERT_TRUE(tiff) << c.text;
        EXPECT_EQ(tiffCompression(*tiff), 5) << c.text;
        const QImage image = decode(tiff, "TIFF");
        ASSERT_FALSE(image.isNull()) << c.text;
        EXPECT_EQ(image.size(), QSize(40, 30)) << c.text;
        if (c.centre) {
            EXPECT_EQ(centre(image), *c.centre) << c.text;
        } else {
            EXPECT_EQ(image, decode(QtImageRenderer::encode(QImage(":/images/Folder.png"), 40, 30,
                                                            VXImageFormat::TIFF),
                                    "TIFF"));
        }
    }
    EXPECT_FALSE(info_->getDataOfFileIconSize("DIR", 0, 30));
}

TEST(VXSystemInfoIconsSystemTest, computer_installedThemeOrNoRenderer_anIconOrNothing) {
    VXSystemInfoBackEnds backEnds;
    backEnds.images = std::make_shared<QtImageRenderer>();
    backEnds.mimeTypes = std::make_shared<QtMimeTypes>();
    VXSystemInfo info(std::move(backEnds));
    const auto png = info.getDataOfIconForProcessSize(VXProcess("Mac", -1), 64, 64);
    ASSERT_TRUE(png) << "no computer icon in the installed icon theme";
    EXPECT_EQ(decode(png, "PNG").size(), QSize(64, 64));
    EXPECT_TRUE(info.getDataOfFileIconSize("/tmp/README", 64, 64));

    VXSystemInfo withoutRenderer(VXSystemInfoBackEnds{});
    EXPECT_FALSE(withoutRenderer.getDataOfIconForProcessSize(VXProcess("Applications", -2), 64, 64));
    EXPECT_FALSE(withoutRenderer.getDataOfIconForProcessSize(VXProcess("Mac", -1), 64, 64));
    EXPECT_FALSE(withoutRenderer.getDataOfFileIconSize("DIR", 64, 64));
}

} // namespace
