#include "session/VXSessionStreamSink.h"

#include "protocol/VXFileStreamSink.h"

VXSessionStreamSink::VXSessionStreamSink(std::string directory, bool open)
    : open_(open), directory_(std::move(directory)) {}

VXSessionStreamSink::~VXSessionStreamSink() = default;

VXStreamSink& VXSessionStreamSink::files() {
    if (!files_) {
        files_ = directory_.empty() ? std::make_unique<VXFileStreamSink>()
                                    : std::make_unique<VXFileStreamSink>(directory_);
    }
    return *files_;
}

std::optional<std::string> VXSessionStreamSink::openUniqueStream() {
    if (!isOpen()) {
        finish();
        return std::nullopt;
    }
    return files().openUniqueStream();
}

std::optional<std::string> VXSessionStreamSink::openNamedStream(const std::string& name) {
    if (!isOpen()) {
        finish();
        return std::nullopt;
    }
    return files().openNamedStream(name);
}

void VXSessionStreamSink::write(const std::uint8_t* bytes, std::size_t count) {
    if (files_) {
        files_->write(bytes, count);
    }
}

void VXSessionStreamSink::finish() {
    if (files_) {
        files_->finish();
    }
}
