#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// Where the raw content of embedded streams goes (JSON "stream" members, XML "file" elements).
// The translator counts and skips the bytes the same way whatever the sink does with them. At most
// one stream is open at a time: opening a new one finishes the previous one.
class VXStreamSink {
public:
    virtual ~VXStreamSink() = default;

    // Opens a new, uniquely named file for a JSON stream; returns its path, or nothing when no file was made.
    virtual std::optional<std::string> openUniqueStream() = 0;
    // Opens the file of an XML file element (name is one path component, never "", "." or "..");
    // returns its path, or nothing when no file was made.
    virtual std::optional<std::string> openNamedStream(const std::string& name) = 0;
    // Appends bytes to the open stream; dropped when none is open.
    virtual void write(const std::uint8_t* bytes, std::size_t count) = 0;
    // Closes the open stream, if any.
    virtual void finish() = 0;
};
