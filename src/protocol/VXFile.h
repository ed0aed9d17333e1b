#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/PZDictionary.h"
#include "protocol/VXTranslationProtocol.h"

// A file's content, or a file entry of a directory listing. The only message that carries raw
// bytes in both encodings.
class VXFile : public VXTranslationProtocol {
public:
    // An empty file object: every field absent.
    VXFile() = default;
    // Reads the whole file at path; throws PZException "VXFile initWithContentsAtPath:" "No file at path".
    explicit VXFile(const std::string& path);
    // Sets only data and path.
    VXFile(std::vector<std::uint8_t> data, std::optional<std::string> path);
    // The class constructor from data and path.
    static std::shared_ptr<VXFile> fileWithDataPath(std::vector<std::uint8_t> data,
                                                    std::optional<std::string> path);
    // The class constructor from a file on disk; null when it cannot be read.
    static std::shared_ptr<VXFile> fileWithContentsAtPath(const std::string& path);
    // The text after the last "/" (the whole text without one); nothing when that is empty.
    static std::optional<std::string> detectFileNameOfPath(std::string_view path);

    // The path as given when the object was made.
    const std::optional<std::string>& path() const noexcept { return path_; }
    // The content.
    const std::vector<std::uint8_t>& data() const noexcept { return data_; }
    // The attributes (string or number values; "fileType" is read by directory listings).
    const std::optional<PZDictionary>& attributes() const noexcept { return attributes_; }
    // Where the content lies on this machine.
    const std::optional<std::string>& localPath() const noexcept { return localPath_; }
    // The path on the sending side.
    const std::optional<std::string>& originalPath() const noexcept { return originalPath_; }
    // The file name.
    const std::optional<std::string>& name() const noexcept { return name_; }
    // The number of content bytes.
    std::uint64_t length() const noexcept { return data_.size(); }
    // Replaces the path.
    void setPath(std::optional<std::string> value) { path_ = std::move(value); }
    // Replaces the content.
    void setData(std::vector<std::uint8_t> value) { data_ = std::move(value); }
    // Replaces the attributes.
    void setAttributes(std::optional<PZDictionary> value) { attributes_ = std::move(value); }
    // Replaces the local path.
    void setLocalPath(std::optional<std::string> value) { localPath_ = std::move(value); }
    // Replaces the original path.
    void setOriginalPath(std::optional<std::string> value) { originalPath_ = std::move(value); }
    // Replaces the name.
    void setName(std::optional<std::string> value) { name_ = std::move(value); }

    // {"file":{"originalPath":...,"name":...,"length":N}} (no content).
    std::string getJSONString() const override;
    // {"file":{"originalPath":...,"name":...,"length":N<attributes>,"stream":<N raw bytes>}}.
    std::vector<std::uint8_t> getJSONData() const override;
    // <file path=".." name="<first path component>" length="..">content as text</file>.
    std::optional<std::string> getXMLString() const override;
    // <file path=".." name="<last path component>" length=".."<attributes>><raw bytes></file>; empty
    // when there is no content.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

private:
    std::optional<std::string> path_;
    std::vector<std::uint8_t> data_;
    std::optional<PZDictionary> attributes_;
    std::optional<std::string> localPath_;
    std::optional<std::string> originalPath_;
    std::optional<std::string> name_;
};
