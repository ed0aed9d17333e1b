#pragma once

#include "TempTree.h"

#include <QColor>
#include <QImage>

#include <string>

// A small icon theme on disk: "TestTheme" (inheriting "ParentTheme", which inherits it back), a
// "hicolor" theme and a pixmaps folder, with PNG and SVG icons of known colours.
class IconFixture {
public:
    IconFixture() {
        tree_.write("icons/TestTheme/index.theme",
                    "[Icon Theme]\nName=Test\nInherits=ParentTheme\n"
                    "Directories=16x16/apps,48x48/apps,scalable/apps,48x48/mimetypes\n"
                    "[16x16/apps]\nSize=16\nType=Fixed\n"
                    "[48x48/apps]\nSize=48\nType=Fixed\n"
                    "[scalable/apps]\nSize=64\nType=Scalable\nMinSize=8\nMaxSize=512\n"
                    "[48x48/mimetypes]\nSize=48\nType=Threshold\n");
        png("icons/TestTheme/16x16/apps/app-one.png", 16, Qt::red);
        png("icons/TestTheme/48x48/apps/app-one.png", 48, Qt::green);
        svg("icons/TestTheme/scalable/apps/app-one.svg", "#0000ff");
        png("icons/TestTheme/16x16/apps/fixed-only.png", 16, Qt::red);
        png("icons/TestTheme/48x48/apps/fixed-only.png", 48, Qt::green);
        png("icons/TestTheme/48x48/apps/both.png", 48, Qt::green);
        svg("icons/TestTheme/48x48/apps/both.svg", "#0000ff");
        svg("icons/TestTheme/scalable/apps/computer.svg", "#00ffff");
        svg("icons/TestTheme/scalable/apps/folder.svg", "#ff8000");
        png("icons/TestTheme/48x48/mimetypes/text-x-generic.png", 48, Qt::yellow);
        png("icons/TestTheme/48x48/mimetypes/image-x-generic.png", 48, Qt::magenta);
        tree_.write("icons/TestTheme/48x48/apps/broken.png", "not a png at all");
        tree_.write("icons/TestTheme/scalable/apps/broken-svg.svg", "<svg><unclosed");
        // A PNG header that claims 100000 x 100000 pixels.
        tree_.write(
            "icons/TestTheme/48x48/apps/giant.png",
            std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\x01\x86\xa0\0\x01\x86\xa0\x08\x06\0\0\0", 29));
        tree_.write("icons/ParentTheme/index.theme",
                    "[Icon Theme]\nInherits=TestTheme\nDirectories=32x32/apps\n"
                    "[32x32/apps]\nSize=32\nType=Fixed\n");
        png("icons/ParentTheme/32x32/apps/parent-icon.png", 32, Qt::darkGreen);
        tree_.write("icons/hicolor/index.theme",
                    "[Icon Theme]\nDirectories=48x48/apps\n[48x48/apps]\nSize=48\n");
        png("icons/hicolor/48x48/apps/hicolor-app.png", 48, Qt::gray);
        png("pixmaps/legacy-icon.png", 32, Qt::darkBlue);
    }

    // The folders themes are looked up in.
    std::vector<std::string> iconDirs() const { return {tree_.path("icons"), tree_.path("pixmaps")}; }
    const TempTree& tree() const { return tree_; }

private:
    void png(const std::string& relative, int size, QColor colour) {
        QImage image(size, size, QImage::Format_ARGB32);
        image.fill(colour);
        const std::string path = tree_.write(relative, "");
        image.save(QString::fromStdString(path), "PNG");
    }
    void svg(const std::string& relative, const std::string& colour) {
        tree_.write(relative, "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"16\" height=\"16\">"
                              "<rect width=\"16\" height=\"16\" fill=\"" +
                                  colour + "\"/></svg>");
    }

    TempTree tree_;
};
