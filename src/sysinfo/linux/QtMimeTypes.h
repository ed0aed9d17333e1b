#pragma once

#include "sysinfo/VXMimeTypes.h"

// File types from the shared MIME database (QMimeDatabase, usable on any thread).
class QtMimeTypes : public VXMimeTypes {
public:
    std::vector<std::string> iconNamesForFileType(const std::string& extension) override;
    std::vector<std::string> iconNamesForFile(const std::string& path) override;
};
