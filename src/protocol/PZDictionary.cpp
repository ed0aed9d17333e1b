#include "protocol/PZDictionary.h"

#include "protocol/PZValue.h"

PZDictionary::PZDictionary() = default;

PZDictionary::PZDictionary(const PZDictionary& other) : keys_(other.keys_), values_(other.values_) {
    if (other.index_) {
        rebuildIndex();
    }
}

PZDictionary::PZDictionary(PZDictionary&& other) noexcept = default;

PZDictionary& PZDictionary::operator=(const PZDictionary& other) {
    if (this != &other) {
        keys_ = other.keys_;
        values_ = other.values_;
        index_.reset();
        if (other.index_) {
            rebuildIndex();
        }
    }
    return *this;
}

PZDictionary& PZDictionary::operator=(PZDictionary&& other) noexcept = default;
PZDictionary::~PZDictionary() = default;

PZDictionary PZDictionary::fromParallelArrays(std::vector<std::string>&& keys,
                                              std::vector<PZValue>&& values) {
    PZDictionary dictionary;
    bool duplicates = false;
    if (keys.size() <= kIndexThreshold) {
        for (std::size_t i = 1; i < keys.size() && !duplicates; ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                if (keys[i] == keys[j]) {
                    duplicates = true;
                    break;
                }
            }
        }
    } else {
        auto index = std::make_unique<std::unordered_map<std::string, std::size_t>>();
        index->reserve(keys.size());
        for (std::size_t i = 0; i < keys.size() && !duplicates; ++i) {
            duplicates = !index->emplace(keys[i], i).second;
        }
        if (!duplicates) {
            dictionary.index_ = std::move(index);
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

std::ptrdiff_t PZDictionary::indexOf(std::string_view key) const {
    if (index_) {
        const auto found = index_->find(std::string(key));
        return found == index_->end() ? -1 : static_cast<std::ptrdiff_t>(found->second);
    }
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        if (keys_[i] == key) {
            return static_cast<std::ptrdiff_t>(i);
        }
    }
    return -1;
}

void PZDictionary::rebuildIndex() {
    index_ = std::make_unique<std::unordered_map<std::string, std::size_t>>();
    index_->reserve(keys_.size());
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        index_->emplace(keys_[i], i);
    }
}

const PZValue& PZDictionary::valueAt(std::size_t i) const {
    return values_[i];
}

const PZValue* PZDictionary::find(std::string_view key) const {
    const std::ptrdiff_t i = indexOf(key);
    return i < 0 ? nullptr : &values_[static_cast<std::size_t>(i)];
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
    const std::ptrdiff_t i = indexOf(key);
    if (i >= 0) {
        values_[static_cast<std::size_t>(i)] = std::move(value);
        return;
    }
    if (index_) {
        index_->emplace(key, keys_.size());
    }
    keys_.push_back(std::move(key));
    values_.push_back(std::move(value));
    if (!index_ && keys_.size() > kIndexThreshold) {
        rebuildIndex();
    }
}

bool PZDictionary::remove(std::string_view key) {
    const std::ptrdiff_t i = indexOf(key);
    if (i < 0) {
        return false;
    }
    keys_.erase(keys_.begin() + i);
    values_.erase(values_.begin() + i);
    index_.reset();
    if (keys_.size() > kIndexThreshold) {
        rebuildIndex();
    }
    return true;
}

void PZDictionary::clear() {
    keys_.clear();
    values_.clear();
    index_.reset();
}

void PZDictionary::releaseEntries(std::vector<std::string>& keys, std::vector<PZValue>& values) noexcept {
    keys = std::move(keys_);
    values = std::move(values_);
    keys_.clear();
    values_.clear();
    index_.reset();
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
