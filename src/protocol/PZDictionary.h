#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class PZValue;

// A dictionary of decoded values that keeps its keys in insertion order. Setting a key that is
// already present replaces its value in place; equality ignores the order of the keys. Large
// dictionaries keep a hash index so that building one from hostile input stays linear.
class PZDictionary {
public:
    PZDictionary();
    PZDictionary(const PZDictionary& other);
    PZDictionary(PZDictionary&& other) noexcept;
    PZDictionary& operator=(const PZDictionary& other);
    PZDictionary& operator=(PZDictionary&& other) noexcept;
    ~PZDictionary();

    // The dictionary of keys[i] -> values[i] (same sizes); a later duplicate key overwrites an earlier one.
    static PZDictionary fromParallelArrays(std::vector<std::string>&& keys, std::vector<PZValue>&& values);

    // Number of entries.
    std::size_t size() const noexcept { return keys_.size(); }
    // True when the dictionary holds no entry.
    bool empty() const noexcept { return keys_.empty(); }
    // The key of entry i (insertion order).
    const std::string& keyAt(std::size_t i) const { return keys_[i]; }
    // The value of entry i (insertion order).
    const PZValue& valueAt(std::size_t i) const;
    // The value stored under key, or null when the key is missing.
    const PZValue* find(std::string_view key) const;
    // The string stored under key, or null when the key is missing or holds another kind.
    const std::string* findString(std::string_view key) const;
    // The number stored under key, or null when the key is missing or holds another kind.
    const double* findNumber(std::string_view key) const;
    // The dictionary stored under key, or null when the key is missing or holds another kind.
    const PZDictionary* findDictionary(std::string_view key) const;
    // Sets key to value: replaces the value of an existing key, else appends a new entry.
    void set(std::string key, PZValue value);
    // Removes the entry of key; returns whether there was one.
    bool remove(std::string_view key);
    // Removes every entry.
    void clear();
    // Moves the keys and values out into keys and values (replacing their contents); the dictionary is
    // left empty.
    void releaseEntries(std::vector<std::string>& keys, std::vector<PZValue>& values) noexcept;
    // Same keys mapped to equal values, in any order.
    bool operator==(const PZDictionary& other) const;

private:
    // Dictionaries above this size keep index_.
    static constexpr std::size_t kIndexThreshold = 16;

    std::ptrdiff_t indexOf(std::string_view key) const;
    void rebuildIndex();

    std::vector<std::string> keys_;
    std::vector<PZValue> values_;
    std::unique_ptr<std::unordered_map<std::string, std::size_t>> index_;
};
