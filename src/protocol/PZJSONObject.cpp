#include "protocol/PZJSONObject.h"

#include "transport/PZLogger.h"

PZJSONObject::PZJSONObject() {
    fields_.reserve(8);
    values_.reserve(8);
}

PZJSONObject::PZJSONObject(std::vector<std::string>&& fields, std::vector<PZValue>&& values)
    : fields_(std::move(fields)), values_(std::move(values)) {
    fields_.clear();
    values_.clear();
}

void PZJSONObject::addField(std::string key) {
    if (fields_.size() > values_.size() || firstIndex_) {
        prepareField(key);
    }
    fields_.push_back(std::move(key));
    if (fields_.size() > kIndexThreshold && !firstIndex_) {
        indexIfLarge();
    }
}

void PZJSONObject::addField(const char* chars, std::size_t count) {
    const std::string_view key(chars, count);
    if (fields_.size() > values_.size() || firstIndex_) {
        prepareField(key);
    }
    fields_.emplace_back(key);
    if (fields_.size() > kIndexThreshold && !firstIndex_) {
        indexIfLarge();
    }
}

void PZJSONObject::prepareField(std::string_view key) {
    if (fields_.size() > values_.size()) {
        PZLog("PZJSONObject error: the number of fields is more than number of values");
        values_.emplace_back();
    }
    if (firstIndex_) {
        firstIndex_->emplace(std::string(key), fields_.size());
    }
}

void PZJSONObject::indexIfLarge() {
    if (!firstIndex_ && fields_.size() > kIndexThreshold) {
        firstIndex_ = std::make_unique<std::unordered_map<std::string, std::size_t>>();
        for (std::size_t i = 0; i < fields_.size(); ++i) {
            firstIndex_->emplace(fields_[i], i);
        }
    }
}

void PZJSONObject::addValueToLastField(std::optional<PZValue> value) {
    addValueToLastField(value ? std::move(*value) : PZValue());
}

void PZJSONObject::addValueToLastField(PZValue&& value) {
    if (fields_.size() != values_.size() + 1) {
        PZLog("PZJSONObject error: there isn't field to add value");
        return;
    }
    values_.push_back(std::move(value));
}

const PZValue* PZJSONObject::getValueForField(std::string_view key) const {
    if (firstIndex_) {
        const auto found = firstIndex_->find(std::string(key));
        if (found == firstIndex_->end()) {
            return nullptr;
        }
        return found->second < values_.size() ? &values_[found->second] : nullptr;
    }
    for (std::size_t i = 0; i < fields_.size(); ++i) {
        if (fields_[i] == key) {
            return i < values_.size() ? &values_[i] : nullptr;
        }
    }
    return nullptr;
}

std::optional<PZDictionary> PZJSONObject::getDictionary() const {
    if (fields_.size() != values_.size()) {
        return std::nullopt;
    }
    PZDictionary dictionary;
    for (std::size_t i = 0; i < fields_.size(); ++i) {
        dictionary.set(fields_[i], values_[i]);
    }
    return dictionary;
}

std::optional<PZDictionary> PZJSONObject::takeDictionary() {
    if (fields_.size() != values_.size()) {
        return std::nullopt;
    }
    PZDictionary dictionary = PZDictionary::fromParallelArrays(std::move(fields_), std::move(values_));
    fields_.clear();
    values_.clear();
    firstIndex_.reset();
    return dictionary;
}
