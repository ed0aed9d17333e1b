#pragma once

#include "input/SystemControls.h"
#include "sysinfo/VXImageRenderer.h"
#include "sysinfo/VXMimeTypes.h"
#include "sysinfo/fakes/FakeAudioOutput.h"
#include "sysinfo/fakes/FakeBacklight.h"
#include "sysinfo/fakes/FakeDesktopSettings.h"
#include "sysinfo/fakes/FakeProcessSource.h"
#include "sysinfo/fakes/FakeScreenGrabber.h"

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
    // A 320x200 screen at the origin (the fake grabber's pattern of pixels).
    static constexpr VXPixelRect screenFrame{0, 0, 320, 200};

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
    // Processes have a 2x2 window icon; the volume is 0.5 and one display's brightness 0.75 until set;
    // the desktop has no favourites and the "hicolor" icon theme.
    std::shared_ptr<FakeProcessSource> processes = std::make_shared<FakeProcessSource>();
    std::shared_ptr<FakeAudioOutput> audio = std::make_shared<FakeAudioOutput>();
    std::shared_ptr<FakeBacklight> backlight = std::make_shared<FakeBacklight>();
    std::shared_ptr<FakeScreenGrabber> screen =
        std::make_shared<FakeScreenGrabber>(screenFrame.width, screenFrame.height, screenFrame);
    std::shared_ptr<FakeDesktopSettings> desktop = std::make_shared<FakeDesktopSettings>();
    std::shared_ptr<Images> images = std::make_shared<Images>();
    std::shared_ptr<MimeTypes> mimeTypes;
    std::shared_ptr<VXSystemInfo> systemInfo;
    std::shared_ptr<VXCommandExecute> executor;
};
