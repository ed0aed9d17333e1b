#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

// The icons rendered last, so that the icons a phone asks for again and again (every process list
// shows them) are not decoded and scaled each time. Keys name the source file with its time stamp and
// size, so a changed file is rendered again. The least recently used images go first once the cache
// holds more than its byte budget. Thread-safe.
class VXRenderedImageCache {
public:
    using Bytes = std::vector<std::uint8_t>;

    explicit VXRenderedImageCache(std::size_t byteBudget = 8u << 20);

    // The image of `key`, rendered with `render` when it is not kept yet (failures are not kept).
    std::optional<Bytes> getOrRender(const std::string& key,
                                     const std::function<std::optional<Bytes>()>& render);
    // The key of an image file rendered at a size and format: path, time stamp and size of the file;
    // nothing when the file cannot be examined.
    static std::optional<std::string> fileKey(const std::string& path, int width, int height, int format);
    // How many images are kept.
    std::size_t size() const;

private:
    struct Entry {
        std::string key;
        Bytes bytes;
    };
    void insert(const std::string& key, Bytes bytes);

    std::size_t byteBudget_;
    mutable std::mutex mutex_;
    std::list<Entry> entries_; // most recently used first
    std::unordered_map<std::string, std::list<Entry>::iterator> index_;
    std::size_t bytes_ = 0;
};
