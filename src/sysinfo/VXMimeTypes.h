#pragma once

#include <string>
#include <vector>

// Which icons stand for a kind of file, most specific first ("text-x-csrc", "text-x-generic").
class VXMimeTypes {
public:
    virtual ~VXMimeTypes() = default;

    // The icon names of the file type with this extension ("" for a file without one).
    virtual std::vector<std::string> iconNamesForFileType(const std::string& extension) = 0;
    // The icon names of the file at `path`, by its name and content ("folder" for a directory).
    virtual std::vector<std::string> iconNamesForFile(const std::string& path) = 0;
};
