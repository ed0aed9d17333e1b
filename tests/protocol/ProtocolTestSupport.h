#pragma once

// Helpers shared by the protocol tests: an independent raw URL encoder for golden texts, a log
// recorder, a temporary home directory, a recording translator delegate and an in-memory sink.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/VXCommand.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXError.h"
#include "protocol/VXFile.h"
#include "protocol/VXInfo.h"
#include "protocol/VXProcess.h"
#include "protocol/VXProcessList.h"
#include "protocol/VXRequest.h"
#include "protocol/VXStreamSink.h"
#include "protocol/VXTrackpadCommand.h"
#include "protocol/VXTranslator.h"
#include "protocol/VXTranslatorDelegate.h"
#include "support/LogCapture.h"
#include "transport/PZLogger.h"

namespace vxtest {

// "%" + lowercase hex of each character; for ASCII test texts only (one character = one unit).
inline std::string E(std::string_view text) {
    std::string out;
    char buffer[8];
    for (const char c : text) {
        std::snprintf(buffer, sizeof buffer, "%%%x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        out += buffer;
    }
    return out;
}

inline std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

inline std::string text(const std::vector<std::uint8_t>& data) {
    return {data.begin(), data.end()};
}

// A fresh $HOME (with a "tmp" folder) for the life of the object.
class TemporaryHome {
public:
    TemporaryHome() {
        if (const char* old = std::getenv("HOME")) {
            oldHome_ = old;
        }
        std::string pattern = (std::filesystem::temp_directory_path() / "vxh-home-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
        std::filesystem::create_directory(path_ / "tmp");
        ::setenv("HOME", path_.c_str(), 1);
    }
    ~TemporaryHome() {
        if (oldHome_) {
            ::setenv("HOME", oldHome_->c_str(), 1);
        } else {
            ::unsetenv("HOME");
        }
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path tmp() const { return path_ / "tmp"; }

private:
    std::filesystem::path path_;
    std::optional<std::string> oldHome_;
};

inline std::string opt(const std::optional<std::string>& value) {
    return value ? *value : "<none>";
}

// Records every delegate call as one line of text, and keeps the objects.
class RecordingDelegate : public VXTranslatorDelegate {
public:
    void translatorDidGetCommand(VXTranslator&, std::shared_ptr<VXCommand> command) override {
        std::string line = "cmd " + command->getJSONString();
        if (dynamic_cast<VXTrackpadCommand*>(command.get())) {
            line = "trackpad " + command->getJSONString();
        }
        calls.push_back(line);
        commands.push_back(std::move(command));
    }
    void translatorDidGetRequest(VXTranslator& translator, std::shared_ptr<VXRequest> request) override {
        calls.push_back("request " + request->getJSONString() + (request->arguments() ? "" : " noargs"));
        requests.push_back(std::move(request));
        if (switchToJSONOnRequest) {
            translator.setProtocol(VXTranslator::kProtocolJSON);
        }
    }
    void translatorDidGetInfo(VXTranslator& translator, std::shared_ptr<VXInfo> info) override {
        calls.push_back("info " + info->getJSONString());
        infos.push_back(std::move(info));
        if (switchToJSONOnInfo) {
            translator.setProtocol(VXTranslator::kProtocolJSON);
        }
    }
    void translatorDidGetFile(VXTranslator&, std::shared_ptr<VXFile> file) override {
        std::string line = "file local=" + opt(file->localPath()) + " original=" + opt(file->originalPath()) +
                           " name=" + opt(file->name());
        if (file->attributes()) {
            for (std::size_t i = 0; i < file->attributes()->size(); ++i) {
                line += " " + file->attributes()->keyAt(i);
            }
        }
        calls.push_back(line);
        files.push_back(std::move(file));
    }
    void translatorDidGetError(VXTranslator&, std::shared_ptr<VXError> error) override {
        calls.push_back("error " + error->getJSONString());
        errors.push_back(std::move(error));
    }
    void translatorDidGetProcess(VXTranslator&, std::shared_ptr<VXProcess> process) override {
        calls.push_back("process " + process->getJSONString());
        processes.push_back(std::move(process));
    }
    void translatorDidGetProcessList(VXTranslator&, std::shared_ptr<VXProcessList> list) override {
        calls.push_back("processList " + list->getJSONString());
        processLists.push_back(std::move(list));
    }
    void translatorDidGetDirectory(VXTranslator&, std::shared_ptr<VXDirectory> directory) override {
        std::string line = "directory " + directory->getJSONString();
        for (const auto& element : directory->elements()) {
            const auto& message = std::get<std::shared_ptr<VXTranslationProtocol>>(element);
            if (auto* file = dynamic_cast<VXFile*>(message.get())) {
                line += " file:" + opt(file->originalPath());
            } else if (auto* dir = dynamic_cast<VXDirectory*>(message.get())) {
                line += " dir:" + opt(dir->path());
            }
        }
        calls.push_back(line);
        directories.push_back(std::move(directory));
    }
    void translatorDidExceedLimit(VXTranslator&, VXTranslatorLimit limit,
                                  const std::string& reason) override {
        calls.push_back("limit " + reason);
        limits.push_back(limit);
    }

    bool switchToJSONOnRequest = false;
    bool switchToJSONOnInfo = false;
    std::vector<std::string> calls;
    std::vector<std::shared_ptr<VXCommand>> commands;
    std::vector<std::shared_ptr<VXRequest>> requests;
    std::vector<std::shared_ptr<VXInfo>> infos;
    std::vector<std::shared_ptr<VXFile>> files;
    std::vector<std::shared_ptr<VXError>> errors;
    std::vector<std::shared_ptr<VXProcess>> processes;
    std::vector<std::shared_ptr<VXProcessList>> processLists;
    std::vector<std::shared_ptr<VXDirectory>> directories;
    std::vector<VXTranslatorLimit> limits;
};

// A sink that keeps every stream in memory, named "mem:<n>" (or "mem:<name>" for named ones).
class MemorySink : public VXStreamSink {
public:
    struct Stream {
        std::string path;
        std::string content;
        bool finished = false;
    };
    std::optional<std::string> openUniqueStream() override {
        return open("mem:" + std::to_string(streams.size()));
    }
    std::optional<std::string> openNamedStream(const std::string& name) override {
        return open("mem:" + name);
    }
    void write(const std::uint8_t* data, std::size_t count) override {
        if (current) {
            streams.back().content.append(reinterpret_cast<const char*>(data), count);
        }
        written += count;
    }
    void finish() override {
        if (current) {
            streams.back().finished = true;
        }
        current = false;
    }

    std::vector<Stream> streams;
    bool current = false;
    std::size_t written = 0;

private:
    std::optional<std::string> open(std::string path) {
        finish();
        streams.push_back({path, {}, false});
        current = true;
        return path;
    }
};

inline void feed(VXTranslator& translator, std::string_view data) {
    translator.translateBytes(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
}

} // namespace vxtest
