#include "protocol/PZDictionary.h"

#include "protocol/PZValue.h"

PZDictionary::PZDictionary() = default;
PZDictionary::PZDictionary(const PZDictionary& other) = default;
PZDictionary::PZDictionary(PZDictionary&& other) noexcept = default;
PZDictionary& PZDictionary::operator=(const PZDictionary& other) = default;
PZDictionary& PZDictionary::operator=(PZDictionary&& other) noexcept = default;
PZDictionary::~PZDictionary() = default;

PZDictionary PZDictionary::fromParallelArrays(std::vector<std::string>&& keys,
                                              std::vector<PZValue>&& values) {
    PZDictionary dictionary;
    bool duplicates = false;
    for (std::size_t i = 1; i < keys.size() && !duplicates; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (keys[i] == keys[j]) {
                duplicates = true;
                break;
            }
        }
    }
    if (!duplicates) {
        dictionary.keys_ = std::move(keys);
        dictionary.values_ = std::move(values);
        return dictionary;
    }
    for (std::size_t i = 0; i < keys.size(); ++i) {
        dictionary.set(std::move(keys[i]), std::move(values[i]));
    }
    return dictionary;
}

const PZValue& PZDictionary::valueAt(std::size_t i) const {
    return values_[i];
}

const PZValue* PZDictionary::find(std::string_view key) const {
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        if (keys_[i] == key) {
            return &values_[i];
        }
    }
    return nullptr;
}

const std::string* PZDictionary::findString(std::string_view key) const {
    const PZValue* value = find(key);
    return value ? value->asString() : nullptr;
}

const double* PZDictionary::findNumber(std::string_view key) const {
    const PZValue* value = find(key);
    return value ? value->asNumber() : nullptr;
}

const PZDictionary* PZDictionary::findDictionary(std::string_view key) const {
    const PZValue* value = find(key);
    return value ? value->asDictionary() : nullptr;
}

void PZDictionary::set(std::string key, PZValue value) {
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        if (keys_[i] == key) {
            values_[i] = std::move(value);
            return;
        }
    }
    keys_.push_back(std::move(key));
    values_.push_back(std::move(value));
}

bool PZDictionary::remove(std::string_view key) {
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        if (keys_[i] == key) {
            keys_.erase(keys_.begin() + static_cast<std::ptrdiff_t>(i));
            values_.erase(values_.begin() + static_cast<std::ptrdiff_t>(i));
            return true;
        }
    }
    return false;
}

void PZDictionary::clear() {
    keys_.clear();
    values_.clear();
}

bool PZDictionary::operator==(const PZDictionary& other) const {
    if (keys_.size() != other.keys_.size()) {
        return false;
    }
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        const PZValue* theirs = other.find(keys_[i]);
        if (!theirs || !(*theirs == values_[i])) {
            return false;
        }
    }
    return true;
}
