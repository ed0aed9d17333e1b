#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/PZDictionary.h"
#include "protocol/PZValue.h"

// A JSON object under construction: keys and their values in parallel, a key added before its value.
class PZJSONObject {
public:
    PZJSONObject();

    // Appends a key; a pending key without value first gets the null marker (logged).
    void addField(std::string key);
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
    std::vector<std::string> fields_;
    std::vector<PZValue> values_;
};
