#pragma once

#include <memory>
#include <optional>
#include <string>

#include "protocol/PZDictionary.h"
#include "protocol/VXTranslationProtocol.h"

// A request from one side to the other: a kind, a main operand and optional arguments.
class VXRequest : public VXTranslationProtocol {
public:
    // Makes a request; throws PZException "VXRequest initWithType: text:" when type is absent.
    VXRequest(std::optional<std::string> type, std::optional<std::string> text = std::nullopt,
              std::optional<PZDictionary> arguments = std::nullopt);
    // The class constructor: like the constructor, but returns null for an absent type instead of throwing.
    static std::shared_ptr<VXRequest>
    requestWithTypeTextArguments(std::optional<std::string> type,
                                 std::optional<std::string> text = std::nullopt,
                                 std::optional<PZDictionary> arguments = std::nullopt);

    // The request kind ("info", "file", ...).
    const std::string& type() const noexcept { return type_; }
    // The main operand, absent when not set.
    const std::optional<std::string>& text() const noexcept { return text_; }
    // The arguments (string or number values), absent when not set.
    const std::optional<PZDictionary>& arguments() const noexcept { return arguments_; }
    // Replaces the kind.
    void setType(std::string type) { type_ = std::move(type); }
    // Replaces the main operand.
    void setText(std::optional<std::string> text) { text_ = std::move(text); }
    // Replaces the arguments.
    void setArguments(std::optional<PZDictionary> arguments) { arguments_ = std::move(arguments); }

    // Types equal, texts equal or both absent, arguments equal or both absent.
    bool isEqualToRequest(const VXRequest& other) const;

    // {"type":...,"text":...,<arguments>}.
    std::string getJSONString() const override;
    // {"request":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;
    // <request type="..." <arguments>>text</request>.
    std::optional<std::string> getXMLString() const override;
    // The XML element as bytes.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

private:
    std::string type_;
    std::optional<std::string> text_;
    std::optional<PZDictionary> arguments_;
};
