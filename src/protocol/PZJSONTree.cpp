#include "protocol/PZJSONTree.h"

#include "protocol/PZStringEncoding.h"
#include "transport/PZLogger.h"

int PZJSONTree::getTypeOf(const PZJSONTreeElement* element) {
    if (!element) {
        return kOther;
    }
    switch (element->index()) {
    case 0:
        return kObject;
    case 1:
        return kArray;
    case 2:
        return kString;
    default:
        return kOther;
    }
}

void PZJSONTree::addObject() {
    if (spareObjects_.empty()) {
        objects_.emplace_back(std::in_place_index<0>);
        return;
    }
    ObjectStorage& spare = spareObjects_.back();
    objects_.emplace_back(std::in_place_index<0>, std::move(spare.fields), std::move(spare.values));
    spareObjects_.pop_back();
}

void PZJSONTree::addArray() {
    objects_.emplace_back(std::in_place_index<1>);
}

void PZJSONTree::addString() {
    objects_.emplace_back(std::in_place_index<2>);
}

void PZJSONTree::addValue() {
    objects_.emplace_back(std::in_place_index<3>);
}

void PZJSONTree::addFieldToLastObject(std::string key) {
    PZJSONObject* object = objects_.empty() ? nullptr : std::get_if<PZJSONObject>(&objects_.back());
    if (!object) {
        PZLog("addFieldToLastObject: last object is not a PZJSONObject");
        return;
    }
    object->addField(std::move(key));
}

void PZJSONTree::addFieldToLastObject(const char* chars, std::size_t count) {
    PZJSONObject* object = objects_.empty() ? nullptr : std::get_if<PZJSONObject>(&objects_.back());
    if (!object) {
        PZLog("addFieldToLastObject: last object is not a PZJSONObject");
        return;
    }
    object->addField(chars, count);
}

void PZJSONTree::addCharToLastString(char c) {
    addCharsToLastString(&c, 1);
}

void PZJSONTree::addCharsToLastString(const char* chars, std::size_t count) {
    std::string* text = objects_.empty() ? nullptr : std::get_if<std::string>(&objects_.back());
    if (!text) {
        PZLog("addCharToLastString: last object is not a PZJSONObject");
        return;
    }
    text->append(chars, count);
}

void PZJSONTree::addCharToLastValue(char c) {
    addCharsToLastValue(&c, 1);
}

void PZJSONTree::addCharsToLastValue(const char* chars, std::size_t count) {
    PZJSONValue* value = objects_.empty() ? nullptr : std::get_if<PZJSONValue>(&objects_.back());
    if (!value) {
        PZLog("addCharToLastValue: last object is not a PZJSONValue");
        return;
    }
    value->addChars(chars, count);
}

void PZJSONTree::addValueToLastField(std::optional<PZValue> value) {
    PZJSONObject* object = objects_.empty() ? nullptr : std::get_if<PZJSONObject>(&objects_.back());
    if (!object) {
        PZLog("addValueToLastField: last object is not a PZJSONObject");
        return;
    }
    object->addValueToLastField(std::move(value));
}

void PZJSONTree::addValueToLastArray(PZValue value) {
    PZArray* array = objects_.empty() ? nullptr : std::get_if<PZArray>(&objects_.back());
    if (!array) {
        PZLog("addValueToLastArray: last object is not a PZJSONObject");
        return;
    }
    array->push_back(std::move(value));
}

std::optional<PZValue> PZJSONTree::setEndOfLastObject() {
    if (objects_.empty()) {
        return std::nullopt;
    }
    std::optional<PZValue> value;
    PZJSONTreeElement& top = objects_.back();
    switch (top.index()) {
    case 0:
        if (auto dictionary = std::get<0>(top).takeDictionary()) {
            value.emplace(std::move(*dictionary));
        }
        break;
    case 1:
        value.emplace(std::move(std::get<1>(top)));
        break;
    case 2:
        value.emplace(PZStringEncoding::stringWithRawURLDecode(std::get<2>(top)));
        break;
    default:
        value = std::get<3>(top).getValue();
        break;
    }
    // A value that cannot be converted stays on the stack and becomes its own "parent" below.
    if (value) {
        objects_.pop_back();
    }
    if (objects_.empty()) {
        return value;
    }
    if (value) {
        attachToTop(std::move(*value));
    } else if (objects_.back().index() == 0) {
        // The object that cannot finish is its own parent: its pending key gets the null marker.
        std::get<0>(objects_.back()).addValueToLastField(PZValue());
    } else if (objects_.back().index() == 2) {
        PZLog("setEndOfLastObject error string");
    } else if (objects_.back().index() == 3) {
        PZLog("setEndOfLastObject error value");
    }
    return std::nullopt;
}

void PZJSONTree::attachToTop(PZValue&& value) {
    PZJSONTreeElement& parent = objects_.back();
    switch (parent.index()) {
    case 0:
        std::get<0>(parent).addValueToLastField(std::move(value));
        break;
    case 1:
        std::get<1>(parent).push_back(std::move(value));
        break;
    case 2:
        PZLog("setEndOfLastObject error string");
        break;
    default:
        PZLog("setEndOfLastObject error value");
        break;
    }
}

void PZJSONTree::addFinishedString(const char* chars, std::size_t count) {
    attachToTop(PZValue(PZStringEncoding::stringWithRawURLDecode(std::string_view(chars, count))));
}

void PZJSONTree::addFinishedValue(const char* chars, std::size_t count) {
    std::optional<PZValue> value = PZJSONValue::valueOfText(std::string_view(chars, count));
    if (value) {
        attachToTop(std::move(*value));
        return;
    }
    // As setEndOfLastObject: the value that cannot be converted stays on the stack as its own parent.
    addValue();
    addCharsToLastValue(chars, count);
    PZLog("setEndOfLastObject error value");
}

void PZJSONTree::recycle(PZValue&& value) {
    if (PZDictionary* dictionary = value.asDictionary()) {
        recycleDictionary(*dictionary);
    }
}

void PZJSONTree::recycleDictionary(PZDictionary& dictionary) {
    ObjectStorage storage;
    dictionary.releaseEntries(storage.fields, storage.values);
    for (PZValue& member : storage.values) {
        if (spareObjects_.size() >= kMaxSpareObjects) {
            break;
        }
        if (PZDictionary* inner = member.asDictionary()) {
            recycleDictionary(*inner);
        }
    }
    if (spareObjects_.size() < kMaxSpareObjects && storage.fields.capacity() <= kMaxSpareCapacity &&
        storage.values.capacity() <= kMaxSpareCapacity) {
        storage.fields.clear();
        storage.values.clear();
        spareObjects_.push_back(std::move(storage));
    }
}

int PZJSONTree::getCurrentObjectType() const {
    return objects_.empty() ? kOther : getTypeOf(&objects_.back());
}

int PZJSONTree::getSuperObjectType() const {
    return objects_.size() < 2 ? kOther : getTypeOf(&objects_[objects_.size() - 2]);
}

const PZValue* PZJSONTree::getValueOfCurrentObjectForField(std::string_view key) const {
    const PZJSONObject* object = objects_.empty() ? nullptr : std::get_if<PZJSONObject>(&objects_.back());
    return object ? object->getValueForField(key) : nullptr;
}
