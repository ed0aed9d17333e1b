#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "protocol/PZDictionary.h"
#include "protocol/PZValue.h"

// A JSON object under construction: keys and their values in parallel, a key added before its value.
class PZJSONObject {
public:
    PZJSONObject();
    // An empty object that keeps the capacity of the given arrays (their contents are dropped).
    PZJSONObject(std::vector<std::string>&& fields, std::vector<PZValue>&& values);

    // Appends a key; a pending key without value first gets the null marker (logged).
    void addField(std::string key);
    // Appends the key of count characters at chars, as addField(std::string).
    void addField(const char* chars, std::size_t count);
    // Gives the pending key its value (the null marker when absent); logged and dropped without a pending
    // key.
    void addValueToLastField(std::optional<PZValue> value);
    // Gives the pending key its value; logged and dropped without a pending key.
    void addValueToLastField(PZValue&& value);
    // The value of the first key equal to key; null when missing or still without value.
    const PZValue* getValueForField(std::string_view key) const;
    // The dictionary (later duplicate keys overwrite earlier ones); nothing while a key has no value.
    std::optional<PZDictionary> getDictionary() const;
    // Like getDictionary, but moves the values out; on success the object is left empty.
    std::optional<PZDictionary> takeDictionary();
    // The keys in order.
    const std::vector<std::string>& fields() const noexcept { return fields_; }
    // The values in order.
    const std::vector<PZValue>& values() const noexcept { return values_; }

private:
    // Objects with more keys than this keep firstIndex_, so that lookups stay cheap on hostile input.
    static constexpr std::size_t kIndexThreshold = 16;

    // Before a key is appended: the pending key's null marker and the index entry of key.
    void prepareField(std::string_view key);
    // After a key was appended: builds firstIndex_ once the object is large.
    void indexIfLarge();

    std::vector<std::string> fields_;
    std::vector<PZValue> values_;
    // The index of the first occurrence of each key, for large objects.
    std::unique_ptr<std::unordered_map<std::string, std::size_t>> firstIndex_;
};
