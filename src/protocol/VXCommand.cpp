#include "protocol/VXCommand.h"

#include <algorithm>
#include <vector>

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"

VXCommand::VXCommand(std::optional<std::string> type, std::optional<VXProcess> process,
                     std::optional<std::string> instruction)
    : type_(std::move(type)), process_(std::move(process)), instruction_(std::move(instruction)) {}

std::shared_ptr<VXCommand> VXCommand::commandWithCommand(const VXCommand& source) {
    std::optional<VXProcess> process;
    if (source.process_) {
        process = VXProcess(source.process_->name(), source.process_->pid());
    }
    return std::make_shared<VXCommand>(source.type_, std::move(process), source.instruction_);
}

std::string VXCommand::sortKeyboardInstruction(std::string_view instruction) {
    std::vector<std::string_view> words;
    std::size_t start = 0;
    while (true) {
        const std::size_t space = instruction.find(' ', start);
        if (space == std::string_view::npos) {
            words.push_back(instruction.substr(start));
            break;
        }
        words.push_back(instruction.substr(start, space - start));
        start = space + 1;
    }
    if (words.size() > 1) {
        std::sort(words.begin(), words.end() - 1);
    }
    std::string out;
    out.reserve(instruction.size());
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0) {
            out += ' ';
        }
        out += words[i];
    }
    return out;
}

std::string VXCommand::description() const {
    return (type_ ? *type_ : std::string("(null)")) + " " +
           (instruction_ ? *instruction_ : std::string("(null)"));
}

std::string VXCommand::getJSONString() const {
    std::string out = "{\"type\":\"";
    appendEncoded(out, type_);
    out += "\",\"pid\":";
    PZNumberText::appendInteger(out, static_cast<std::int32_t>(processPid()));
    out += ",\"processName\":\"";
    appendEncoded(out, process_ ? process_->name() : std::nullopt);
    out += "\",\"instruction\":\"";
    appendEncoded(out, instruction_);
    out += "\"}";
    return out;
}

std::vector<std::uint8_t> VXCommand::getJSONData() const {
    return asciiData("{\"cmd\":" + getJSONString() + "}");
}

std::optional<std::string> VXCommand::getXMLString() const {
    std::string pid;
    PZNumberText::appendInteger(pid, static_cast<std::int32_t>(processPid()));
    std::string out = "<cmd type=\"";
    appendEncoded(out, type_);
    out += "\" pid=\"";
    PZStringEncoding::appendRawURLEncode(pid, out);
    out += "\" processName=\"";
    appendEncoded(out, process_ ? process_->name() : std::nullopt);
    out += "\">";
    appendEncoded(out, instruction_);
    out += "</cmd>";
    return out;
}

std::optional<std::vector<std::uint8_t>> VXCommand::getXMLData() const {
    return asciiData(*getXMLString());
}
