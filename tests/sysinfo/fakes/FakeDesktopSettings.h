#pragma once

#include "sysinfo/VXDesktopSettings.h"

#include <mutex>

// Desktop settings that the test sets: the favourite launchers (nothing: the desktop keeps none) and
// the icon theme's name. Thread-safe.
class FakeDesktopSettings : public VXDesktopSettings {
public:
    void setFavorites(std::optional<std::vector<std::string>> ids) {
        std::lock_guard<std::mutex> lock(mutex_);
        favorites_ = std::move(ids);
    }
    void setIconTheme(std::optional<std::string> name) {
        std::lock_guard<std::mutex> lock(mutex_);
        theme_ = std::move(name);
    }
    std::optional<std::vector<std::string>> favoriteDesktopIds() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return favorites_;
    }
    std::optional<std::string> iconThemeName() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return theme_;
    }

private:
    std::mutex mutex_;
    std::optional<std::vector<std::string>> favorites_;
    std::optional<std::string> theme_;
};
