#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "protocol/PZDictionary.h"
#include "protocol/VXTranslationProtocol.h"

// A running application or process. The pids 0 (known by name and path), -1 (the computer itself)
// and -2 (launcher folders) are reserved for pseudo-processes.
class VXProcess : public VXTranslationProtocol {
public:
    // A process without name, pid 0.
    VXProcess() = default;
    // A process with a name and a pid.
    VXProcess(std::optional<std::string> name, std::int64_t pid);
    // The class constructor.
    static std::shared_ptr<VXProcess> processWithNamePid(std::optional<std::string> name, std::int64_t pid);
    // Reads "name" (a string) and "pid" (its integer value) from a dictionary.
    static std::shared_ptr<VXProcess> processWithDictionary(const PZDictionary& dictionary);
    // Restores an archive written by encodeWithCoder.
    static std::shared_ptr<VXProcess> initWithCoder(const PZDictionary& archive);

    // The name.
    const std::optional<std::string>& name() const noexcept { return name_; }
    // The pid.
    std::int64_t pid() const noexcept { return pid_; }
    // The path of the application, optional.
    const std::optional<std::string>& path() const noexcept { return path_; }
    // The title shown for the application, optional.
    const std::optional<std::string>& mainWindowTitle() const noexcept { return mainWindowTitle_; }
    // Replaces the name.
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    // Replaces the pid.
    void setPid(std::int64_t pid) { pid_ = pid; }
    // Replaces the path.
    void setPath(std::optional<std::string> path) { path_ = std::move(path); }
    // Replaces the title.
    void setMainWindowTitle(std::optional<std::string> title) { mainWindowTitle_ = std::move(title); }

    // "name", "pid" (a number) and "mainWindowTitle" when set; no path.
    PZDictionary toDictionary() const;
    // The archive: "name", "pid" (32-bit), "path", "mainWindowTitle" (absent ones left out).
    PZDictionary encodeWithCoder() const;
    // "name pid path" when a path is set, else "name pid".
    std::string description() const;

    // The other object is a VXProcess with an equal name and pid.
    bool isEqual(const VXTranslationProtocol& other) const override;
    // Names equal (or both absent) and pids equal.
    bool isEqualToProcess(const VXProcess& other) const;
    // Case-insensitive comparison of names.
    std::weak_ordering compareOnName(const VXProcess& other) const;
    // Both pids 0: compareOnName; otherwise ascending by pid.
    std::weak_ordering compareOnPid(const VXProcess& other) const;
    // Brings the process to the front through bringToFront(pid); pid 0 and -2 fail, -1 succeeds untouched.
    bool setFrontProcess(const std::function<bool(std::int64_t pid)>& bringToFront) const;

    // {"name":...,"pid":N[,"path":...][,"mainWindowTitle":...]}.
    std::string getJSONString() const override;
    // {"process":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;
    // <process pid="...">name</process>.
    std::optional<std::string> getXMLString() const override;
    // The XML element as bytes.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

private:
    std::optional<std::string> name_;
    std::int64_t pid_ = 0;
    std::optional<std::string> path_;
    std::optional<std::string> mainWindowTitle_;
};
