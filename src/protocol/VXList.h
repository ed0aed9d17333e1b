#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "protocol/VXTranslationProtocol.h"

// One element of a list: a plain string (written as it is), a number or a message object.
using VXListElement = std::variant<std::string, double, std::shared_ptr<VXTranslationProtocol>>;

// A named, ordered collection of elements. Lists have no XML form.
class VXList : public VXTranslationProtocol {
public:
    // An empty list without name.
    VXList() = default;
    // An empty list with a name.
    explicit VXList(std::optional<std::string> name);
    // A list with a name and elements.
    VXList(std::optional<std::string> name, std::vector<VXListElement> elements);
    // The class constructor with a name.
    static std::shared_ptr<VXList> listWithName(std::optional<std::string> name);
    // The class constructor with a name and elements.
    static std::shared_ptr<VXList> listWithNameArray(std::optional<std::string> name,
                                                     std::vector<VXListElement> elements);
    // A JSON array of the elements: strings quoted as they are, numbers, message bodies; others skipped.
    static std::string getJSONStringOfArray(const std::vector<VXListElement>& elements);
    // Equality of two elements: same kind and equal (messages by isEqual).
    static bool elementsEqual(const VXListElement& a, const VXListElement& b);

    // The name, optional.
    const std::optional<std::string>& name() const noexcept { return name_; }
    // Replaces the name.
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    // Appends an element.
    void addElement(VXListElement element);
    // Removes every element equal to element.
    void removeElement(const VXListElement& element);
    // Removes every element.
    void removeAllElements();
    // A copy of the elements.
    std::vector<VXListElement> getElements() const { return elements_; }
    // The elements, without copying.
    const std::vector<VXListElement>& elements() const noexcept { return elements_; }

    // {["name":...,]"elements":[...]}.
    std::string getJSONString() const override;
    // {"list":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;
    // Nothing: lists have no XML form.
    std::optional<std::string> getXMLString() const override;
    // Nothing: lists have no XML form.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

protected:
    // The body "{...}" of this list with the given elements text.
    std::string bodyWithElementsText(const std::string& elementsText) const;

    std::optional<std::string> name_;
    std::vector<VXListElement> elements_;
};
