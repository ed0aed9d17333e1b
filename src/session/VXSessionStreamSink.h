#pragma once

#include "protocol/VXStreamSink.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>

// The stream sink of one session: until the phone's password is satisfied it makes no file and drops
// every byte; afterwards it writes through a file sink (mode 0600). A stream that began while closed
// stays without a file to its end.
class VXSessionStreamSink : public VXStreamSink {
public:
    // A sink writing into directory (empty: $HOME/tmp) once opened; open tells whether it starts so.
    VXSessionStreamSink(std::string directory, bool open);
    ~VXSessionStreamSink() override;

    // Lets later streams make files (any thread).
    void open() noexcept { open_.store(true); }
    // Whether streams make files.
    bool isOpen() const noexcept { return open_.load(); }

    // A new uniquely named file when open; nothing otherwise.
    std::optional<std::string> openUniqueStream() override;
    // The named file when open; nothing otherwise.
    std::optional<std::string> openNamedStream(const std::string& name) override;
    // Writes to the open file, if one was made.
    void write(const std::uint8_t* bytes, std::size_t count) override;
    // Closes the open file, if one was made.
    void finish() override;

private:
    VXStreamSink& files();

    std::atomic<bool> open_;
    std::string directory_;
    std::unique_ptr<VXStreamSink> files_; // made on the first file
};
