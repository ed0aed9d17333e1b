#pragma once

#include "protocol/VXStreamSink.h"

// A sink that makes no file and drops every byte.
class VXDiscardingStreamSink : public VXStreamSink {
public:
    // Makes no file: nothing.
    std::optional<std::string> openUniqueStream() override { return std::nullopt; }
    // Makes no file: nothing.
    std::optional<std::string> openNamedStream(const std::string&) override { return std::nullopt; }
    // Drops the bytes.
    void write(const std::uint8_t*, std::size_t) override {}
    // Nothing to close.
    void finish() override {}
};
