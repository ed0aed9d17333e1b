#include "sysinfo/linux/QtMimeTypes.h"

#include <QFileInfo>
#include <QMimeDatabase>

namespace {

// The generic document: what a file of unknown kind shows.
const char* const genericDocument = "text-x-generic";

std::vector<std::string> iconNames(const QMimeType& type) {
    std::vector<std::string> names;
    if (type.isValid() && !type.isDefault()) {
        names.push_back(type.iconName().toStdString());
        names.push_back(type.genericIconName().toStdString());
    }
    names.push_back(genericDocument);
    names.push_back("application-x-generic");
    return names;
}

} // namespace

std::vector<std::string> QtMimeTypes::iconNamesForFileType(const std::string& extension) {
    if (extension.empty()) {
        return iconNames(QMimeType());
    }
    const QMimeDatabase database;
    return iconNames(database.mimeTypeForFile(QStringLiteral("file.") + QString::fromStdString(extension),
                                              QMimeDatabase::MatchExtension));
}

std::vector<std::string> QtMimeTypes::iconNamesForFile(const std::string& path) {
    const QFileInfo info(QString::fromStdString(path));
    if (info.isDir()) {
        return {"folder"};
    }
    const QMimeDatabase database;
    return iconNames(database.mimeTypeForFile(info));
}
