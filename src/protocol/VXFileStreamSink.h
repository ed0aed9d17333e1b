#pragma once

#include <optional>
#include <string>

#include "protocol/VXStreamSink.h"

// Writes streams to files in one folder (normally $HOME/tmp, which it does not create). Files are
// created with mode 0600 and close-on-exec; a named file replaces any file of that name.
class VXFileStreamSink : public VXStreamSink {
public:
    // A sink writing into $HOME/tmp.
    VXFileStreamSink();
    // A sink writing into directory.
    explicit VXFileStreamSink(std::string directory);
    // Closes the open file.
    ~VXFileStreamSink() override;
    VXFileStreamSink(const VXFileStreamSink&) = delete;
    VXFileStreamSink& operator=(const VXFileStreamSink&) = delete;

    // "$HOME/tmp" (the home directory from $HOME, else the password database).
    static std::string homeTemporaryDirectory();
    // A new random UUID in upper-case text form.
    static std::string makeUUIDString();

    // The folder the files go to.
    const std::string& directory() const noexcept { return directory_; }
    // Creates "<directory>/<new UUID>" (a fresh UUID while the name is taken); its path or nothing.
    std::optional<std::string> openUniqueStream() override;
    // Creates "<directory>/<name>", replacing an existing file; its path or nothing.
    std::optional<std::string> openNamedStream(const std::string& name) override;
    // Writes all bytes to the open file (short writes retried); dropped when none is open.
    void write(const std::uint8_t* bytes, std::size_t count) override;
    // Closes the open file.
    void finish() override;

private:
    std::string directory_;
    int fd_ = -1;
};
