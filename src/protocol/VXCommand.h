#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/VXProcess.h"
#include "protocol/VXTranslationProtocol.h"

// An action for the server to perform: a kind, a target process and an operand.
class VXCommand : public VXTranslationProtocol {
public:
    // A command without type, process or instruction.
    VXCommand() = default;
    // A command with a type, a target process and an instruction.
    VXCommand(std::optional<std::string> type, std::optional<VXProcess> process,
              std::optional<std::string> instruction);
    // The copy operation: type and instruction, and a new process made of the source's name and pid only.
    static std::shared_ptr<VXCommand> commandWithCommand(const VXCommand& source);
    // Puts a keyboard instruction in canonical order: every word but the last sorted, the last kept last.
    static std::string sortKeyboardInstruction(std::string_view instruction);

    // The kind ("keyboard", "trackpad", ...).
    const std::optional<std::string>& type() const noexcept { return type_; }
    // The target process (name and pid are used).
    const std::optional<VXProcess>& process() const noexcept { return process_; }
    // The operand.
    const std::optional<std::string>& instruction() const noexcept { return instruction_; }
    // Replaces the kind.
    void setType(std::optional<std::string> type) { type_ = std::move(type); }
    // Replaces the target process.
    void setProcess(std::optional<VXProcess> process) { process_ = std::move(process); }
    // Replaces the operand.
    void setInstruction(std::optional<std::string> instruction) { instruction_ = std::move(instruction); }
    // "type instruction".
    std::string description() const;

    // {"type":...,"pid":N,"processName":...,"instruction":...}.
    std::string getJSONString() const override;
    // {"cmd":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;
    // <cmd type="..." pid="..." processName="...">instruction</cmd>.
    std::optional<std::string> getXMLString() const override;
    // The XML element as bytes.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

protected:
    // The pid of the process, 0 when there is none.
    std::int64_t processPid() const noexcept { return process_ ? process_->pid() : 0; }

    std::optional<std::string> type_;
    std::optional<VXProcess> process_;
    std::optional<std::string> instruction_;
};
