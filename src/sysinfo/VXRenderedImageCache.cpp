#include "sysinfo/VXRenderedImageCache.h"

#include <sys/stat.h>

VXRenderedImageCache::VXRenderedImageCache(std::size_t byteBudget) : byteBudget_(byteBudget) {}

std::optional<std::string> VXRenderedImageCache::fileKey(const std::string& path, int width, int height,
                                                         int format) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return std::nullopt;
    }
    return std::to_string(format) + ":" + std::to_string(width) + "x" + std::to_string(height) + ":" +
           std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec) + ":" +
           std::to_string(info.st_size) + ":" + path;
}

std::optional<VXRenderedImageCache::Bytes>
VXRenderedImageCache::getOrRender(const std::string& key,
                                  const std::function<std::optional<Bytes>()>& render) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = index_.find(key);
        if (found != index_.end()) {
            entries_.splice(entries_.begin(), entries_, found->second);
            return found->second->bytes;
        }
    }
    // Rendered outside the lock: other icons are served meanwhile. Two threads may render the same
    // image at once; both get it, one copy is kept.
    std::optional<Bytes> rendered = render();
    if (rendered && !rendered->empty()) {
        insert(key, *rendered);
    }
    return rendered;
}

void VXRenderedImageCache::insert(const std::string& key, Bytes bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (bytes.size() > byteBudget_ / 4 || index_.count(key) != 0) {
        return;
    }
    bytes_ += bytes.size();
    entries_.push_front(Entry{key, std::move(bytes)});
    index_[key] = entries_.begin();
    while (bytes_ > byteBudget_ && !entries_.empty()) {
        bytes_ -= entries_.back().bytes.size();
        index_.erase(entries_.back().key);
        entries_.pop_back();
    }
}

std::size_t VXRenderedImageCache::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_.size();
}
