#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "protocol/PZJSONObject.h"
#include "protocol/PZJSONValue.h"
#include "protocol/PZValue.h"

// One value under construction on the tree's stack: an object, an array, a string or a bare value.
using PZJSONTreeElement = std::variant<PZJSONObject, PZArray, std::string, PZJSONValue>;

// The stack of JSON values under construction behind the translator's state machine. It does no
// tokenising: the caller says when a value starts, which characters belong to it and when it ends.
// Errors are logged and the operation skipped; the tree never recovers on its own.
class PZJSONTree {
public:
    // Type numbers of getTypeOf.
    static constexpr int kObject = 0;
    static constexpr int kArray = 1;
    static constexpr int kString = 2;
    static constexpr int kOther = 3;

    // 0 object, 1 array, 2 string, 3 anything else (also for no element).
    static int getTypeOf(const PZJSONTreeElement* element);

    // Pushes an empty object.
    void addObject();
    // Pushes an empty array.
    void addArray();
    // Pushes an empty string.
    void addString();
    // Pushes an empty bare value.
    void addValue();
    // Adds a key to the top object (logged when the top is not an object).
    void addFieldToLastObject(std::string key);
    // Adds the key of count characters at chars to the top object, as addFieldToLastObject(std::string).
    void addFieldToLastObject(const char* chars, std::size_t count);
    // Appends a character to the top string (logged when the top is not a string).
    void addCharToLastString(char c);
    // Appends characters to the top string (logged once when the top is not a string).
    void addCharsToLastString(const char* chars, std::size_t count);
    // Appends a character to the top bare value (logged when the top is not a bare value).
    void addCharToLastValue(char c);
    // Appends characters to the top bare value (logged once when the top is not a bare value).
    void addCharsToLastValue(const char* chars, std::size_t count);
    // Gives the top object's pending key its value, the null marker when absent (logged when not an object).
    void addValueToLastField(std::optional<PZValue> value);
    // Appends a value to the top array (logged when the top is not an array).
    void addValueToLastArray(PZValue value);
    // Finishes the top value and attaches it to its parent; returns it when it has no parent. A value
    // that cannot be converted stays on the stack.
    std::optional<PZValue> setEndOfLastObject();
    // Same as addString, addCharsToLastString(chars, count) and setEndOfLastObject for a string whose
    // characters are all known, without the string passing through the stack; the tree must not be empty.
    void addFinishedString(const char* chars, std::size_t count);
    // Same as addValue, addCharsToLastValue(chars, count) and setEndOfLastObject for a bare value whose
    // characters are all known; the tree must not be empty.
    void addFinishedValue(const char* chars, std::size_t count);
    // Takes back the storage of a finished value's objects, so that the next values reuse it instead of
    // allocating; the value is left in an unspecified state.
    void recycle(PZValue&& value);
    // getTypeOf of the top element.
    int getCurrentObjectType() const;
    // getTypeOf of the element below the top.
    int getSuperObjectType() const;
    // The top object's value for key; null when the top is not an object or the key has no value.
    const PZValue* getValueOfCurrentObjectForField(std::string_view key) const;
    // The number of values under construction.
    std::size_t depth() const noexcept { return objects_.size(); }
    // The stack, bottom first.
    const std::vector<PZJSONTreeElement>& objects() const noexcept { return objects_; }

private:
    // Storage kept for new objects: at most kMaxSpareObjects pairs, none above kMaxSpareCapacity entries.
    static constexpr std::size_t kMaxSpareObjects = 8;
    static constexpr std::size_t kMaxSpareCapacity = 16;

    struct ObjectStorage {
        std::vector<std::string> fields;
        std::vector<PZValue> values;
    };

    // Attaches a finished value to the top element as setEndOfLastObject does with its parent.
    void attachToTop(PZValue&& value);
    void recycleDictionary(PZDictionary& dictionary);

    std::vector<PZJSONTreeElement> objects_;
    std::vector<ObjectStorage> spareObjects_;
};
