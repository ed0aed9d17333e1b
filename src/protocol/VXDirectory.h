#pragma once

#include <memory>
#include <optional>
#include <string>

#include "protocol/VXList.h"

// A directory listing: a list of VXFile (files) and VXDirectory (sub-directories) entries.
class VXDirectory : public VXList {
public:
    // An empty directory without name or path.
    VXDirectory() = default;
    // An empty directory with a name.
    explicit VXDirectory(std::optional<std::string> name);
    // The class constructor with a name.
    static std::shared_ptr<VXDirectory> directoryWithName(std::optional<std::string> name);

    // The path, optional.
    const std::optional<std::string>& path() const noexcept { return path_; }
    // Replaces the path.
    void setPath(std::optional<std::string> path) { path_ = std::move(path); }

    // {["name":...,]["path":...,]"elements":[{"name":...,"type":...},...]}.
    std::string getJSONString() const override;
    // {"directory":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;

private:
    std::optional<std::string> path_;
};
