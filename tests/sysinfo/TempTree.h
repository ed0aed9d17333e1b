#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

// A temporary folder that tests fill with files; removed with everything in it at the end.
class TempTree {
public:
    TempTree() {
        char pattern[] = "/tmp/vxh-sysinfo-XXXXXX";
        root_ = ::mkdtemp(pattern);
    }
    ~TempTree() {
        std::error_code error;
        std::filesystem::remove_all(root_, error);
    }
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    // Writes `content` to `relative` (folders made as needed); returns the full path.
    std::string write(const std::string& relative, const std::string& content) const {
        const std::filesystem::path path = root_ / relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
        return path.string();
    }
    // Makes the folder `relative`; returns the full path.
    std::string folder(const std::string& relative) const {
        std::filesystem::create_directories(root_ / relative);
        return (root_ / relative).string();
    }
    // The full path of `relative`.
    std::string path(const std::string& relative = {}) const {
        return relative.empty() ? root_.string() : (root_ / relative).string();
    }

private:
    std::filesystem::path root_;
};
