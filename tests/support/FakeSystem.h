#pragma once

#include "input/SystemControls.h"
#include "sysinfo/VXAudioOutput.h"
#include "sysinfo/VXBacklight.h"
#include "sysinfo/VXDesktopSettings.h"
#include "sysinfo/VXImageRenderer.h"
#include "sysinfo/VXMimeTypes.h"
#include "sysinfo/VXProcessSource.h"
#include "sysinfo/VXScreenGrabber.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class VXCommandExecute;
class VXSystemInfo;

// A computer made of fakes for the session, request and server tests: a real VXSystemInfo and a real
// VXCommandExecute over back ends whose values the test sets (processes, volume, brightness, screen,
// favourites, icons). Images are not drawn: a rendered icon is the text "<how> <what> <w>x<h> <format>".
// Every fake may be used from several threads.
class FakeSystem {
public:
    // Running processes with a user interface, changed by the test.
    class Processes : public VXProcessSource {
    public:
        void setProcesses(std::vector<VXRunningProcess> processes);
        std::vector<VXRunningProcess> uiProcesses() override;
        std::optional<VXRunningProcess> processWithPid(std::int64_t pid) override;
        // Every process has a 2x2 window icon.
        std::optional<VXArgbImage> windowIcon(std::int64_t pid, int size) override;

    private:
        std::mutex mutex_;
        std::vector<VXRunningProcess> processes_;
    };

    // One output device whose volume the test sets.
    class Audio : public VXAudioOutput {
    public:
        void setLevel(float volume) { volume_.store(volume); }
        float level() const { return volume_.load(); }
        std::uint32_t defaultOutputDevice() override { return 1; }
        std::optional<float> volume(std::uint32_t) override { return volume_.load(); }
        bool canSetVolume(std::uint32_t) override { return true; }
        bool setVolume(std::uint32_t, float volume) override;
        bool canSetMute(std::uint32_t) override { return true; }
        bool setMute(std::uint32_t, bool muted) override;
        std::optional<bool> muted(std::uint32_t) override { return muted_.load(); }

    private:
        std::atomic<float> volume_{0.5f};
        std::atomic<bool> muted_{false};
    };

    // One display whose brightness the test sets.
    class Backlight : public VXBacklight {
    public:
        void setLevel(float brightness) { brightness_.store(brightness); }
        int activeDisplays(std::size_t capacity, std::vector<std::uint32_t>& displays) override;
        int getBrightness(std::uint32_t, float& value) override;
        int setBrightness(std::uint32_t, float value) override;

    private:
        std::atomic<float> brightness_{0.75f};
    };

    // A 320x200 screen at the origin; captures are filled with grey.
    class Screen : public VXScreenGrabber {
    public:
        static constexpr VXPixelRect frame{0, 0, 320, 200};
        // The rectangles asked for so far.
        std::vector<VXPixelRect> requested();
        bool canCaptureRect() override { return true; }
        std::optional<VXPixelRect> mainScreenFrame() override { return frame; }
        std::optional<VXPixelRect> screenBounds() override { return frame; }
        std::optional<VXPixelRect> captureRect(const VXPixelRect& rect, VXPixelBuffer& into) override;
        std::optional<VXPixelPoint> pointerLocation() override { return VXPixelPoint{10, 10}; }

    private:
        std::mutex mutex_;
        std::vector<VXPixelRect> requested_;
    };

    // The favourite launchers, none unless set.
    class Desktop : public VXDesktopSettings {
    public:
        void setFavorites(std::optional<std::vector<std::string>> ids);
        std::optional<std::vector<std::string>> favoriteDesktopIds() override;
        std::optional<std::string> iconThemeName() override { return std::string("hicolor"); }

    private:
        std::mutex mutex_;
        std::optional<std::vector<std::string>> favorites_;
    };

    // Renders nothing: answers the text "<how> <what> <w>x<h> <format>".
    class Images : public VXImageRenderer {
    public:
        std::optional<std::vector<std::uint8_t>> renderFile(const std::string& imagePath, int width,
                                                            int height, VXImageFormat format) override;
        std::optional<std::vector<std::uint8_t>> renderResource(const std::string& name, int width,
                                                                int height, VXImageFormat format) override;
        std::optional<std::vector<std::uint8_t>> renderPixels(const VXArgbImage& image, int width, int height,
                                                              VXImageFormat format) override;
    };

    // File types whose icon is "<home>/icons/<extension>.png" (made by the test when wanted).
    class MimeTypes : public VXMimeTypes {
    public:
        explicit MimeTypes(std::string iconDirectory) : iconDirectory_(std::move(iconDirectory)) {}
        std::vector<std::string> iconNamesForFileType(const std::string& extension) override;
        std::vector<std::string> iconNamesForFile(const std::string& path) override;

    private:
        std::string iconDirectory_;
    };

    // What volume and brightness commands change: the system information's setters.
    class Controls : public SystemControls {
    public:
        explicit Controls(std::weak_ptr<VXSystemInfo> systemInfo) : systemInfo_(std::move(systemInfo)) {}
        void setVolume(float volume) override;
        void setBrightness(float brightness) override;

    private:
        std::weak_ptr<VXSystemInfo> systemInfo_;
    };

    // A computer whose home is `home` (desktop entries under <home>/share/applications, icons under
    // <home>/icons); the shared values are cached for snapshotInterval.
    explicit FakeSystem(const std::string& home,
                        std::chrono::steady_clock::duration snapshotInterval = std::chrono::milliseconds(0));
    ~FakeSystem();

    // Writes <home>/share/applications/<id> naming an application with an icon file of its own; returns its
    // path.
    std::string addApplication(const std::string& id, const std::string& name);
    // Makes the icon file of a file type: <home>/icons/<extension>.png.
    void addFileTypeIcon(const std::string& extension);
    // A running process with a user interface.
    static VXRunningProcess running(std::int64_t pid, const std::string& name);

    std::string home;
    std::shared_ptr<Processes> processes = std::make_shared<Processes>();
    std::shared_ptr<Audio> audio = std::make_shared<Audio>();
    std::shared_ptr<Backlight> backlight = std::make_shared<Backlight>();
    std::shared_ptr<Screen> screen = std::make_shared<Screen>();
    std::shared_ptr<Desktop> desktop = std::make_shared<Desktop>();
    std::shared_ptr<Images> images = std::make_shared<Images>();
    std::shared_ptr<MimeTypes> mimeTypes;
    std::shared_ptr<VXSystemInfo> systemInfo;
    std::shared_ptr<VXCommandExecute> executor;
};
