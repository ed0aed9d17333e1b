#include "input/linux/DesktopLauncher.h"

#include "input/InputText.h"
#include "input/linux/DesktopExec.h"
#include "input/linux/DetachedProcess.h"
#include "sysinfo/VXDesktopEntryIndex.h"
#include "transport/PZLogger.h"

#include <cstdlib>
#include <sys/stat.h>

namespace {

bool isUrl(const std::string& text) {
    // "scheme:" with a scheme of letters, digits, + - . and at least two characters (not "C:").
    const auto colon = text.find(':');
    if (colon == std::string::npos || colon < 2) {
        return false;
    }
    for (std::size_t i = 0; i < colon; ++i) {
        const char c = text[i];
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (i > 0 && ((c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.'));
        if (!allowed) {
            return false;
        }
    }
    return true;
}

std::string withoutDesktopSuffix(const std::string& id) {
    constexpr std::string_view suffix = ".desktop";
    return id.ends_with(suffix) ? id.substr(0, id.size() - suffix.size()) : id;
}

} // namespace

DesktopLauncher::DesktopLauncher(std::vector<std::string> dataDirs, std::string opener)
    : index_(std::make_unique<VXDesktopEntryIndex>(std::move(dataDirs))), opener_(std::move(opener)) {}

DesktopLauncher::~DesktopLauncher() = default;

std::shared_ptr<const VXDesktopEntry> DesktopLauncher::findApplication(const std::string& name) {
    if (name.empty()) {
        return nullptr;
    }
    if (name.front() == '/' && name.ends_with(".desktop")) {
        const auto slash = name.rfind('/');
        auto entry = VXDesktopEntry::load(name, name.substr(slash + 1), VXDesktopEntry::currentLocale());
        return entry && entry->type() == "Application" && !entry->hidden()
                   ? std::make_shared<const VXDesktopEntry>(std::move(*entry))
                   : nullptr;
    }
    index_->invalidate(); // an application installed a moment ago counts
    const auto entries = index_->allEntries();
    for (bool ignoreCase : {false, true}) {
        const auto same = [&](const std::string& a) {
            return ignoreCase ? InputText::equalsIgnoringCase(a, name) : a == name;
        };
        for (const auto& entry : entries) {
            if (entry->type() != "Application" || entry->hidden()) {
                continue;
            }
            if (same(entry->name()) || same(entry->desktopId()) ||
                same(withoutDesktopSuffix(entry->desktopId())) || same(entry->executableName())) {
                return entry;
            }
        }
    }
    return nullptr;
}

bool DesktopLauncher::launchApplication(const std::string& name) {
    const auto entry = findApplication(name);
    if (!entry) {
        PZLog("Launch: no application called \"" + name + "\"");
        return false;
    }
    const auto arguments = DesktopExec::parse(entry->exec());
    if (!arguments) {
        PZLog("Launch: the entry " + entry->path() + " has no usable Exec key");
        return false;
    }
    std::string error;
    if (!DetachedProcess::spawn(*arguments, &error)) {
        PZLog("Launch: " + entry->path() + ": " + error);
        return false;
    }
    return true;
}

bool DesktopLauncher::openPath(const std::string& given) {
    std::string path = given;
    if (path.starts_with("~/")) {
        const char* home = std::getenv("HOME");
        path = std::string(home != nullptr ? home : "") + path.substr(1);
    }
    struct stat info {};
    if (!isUrl(path) && ::stat(path.c_str(), &info) != 0) {
        PZLog("Open: " + path + " does not exist");
        return false;
    }
    if (path.starts_with("-")) {
        path = "./" + path; // never an option of the opener
    }
    std::string error;
    if (!DetachedProcess::spawn({opener_, path}, &error)) {
        PZLog("Open: " + error);
        return false;
    }
    return true;
}
