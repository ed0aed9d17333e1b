#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "protocol/PZDictionary.h"

class PZValue;

// An ordered array of decoded values.
using PZArray = std::vector<PZValue>;

// One decoded value of the protocol: null, boolean, number (always a double), string, array or
// dictionary. Booleans are not numbers.
class PZValue {
public:
    // The null marker (an absent JSON value).
    struct Null {
        bool operator==(const Null&) const = default;
    };
    using Storage = std::variant<Null, bool, double, std::string, PZArray, PZDictionary>;

    // The null marker.
    PZValue() = default;
    // The null marker.
    PZValue(Null) {}
    // A boolean.
    PZValue(bool value) : storage_(value) {}
    // A number.
    PZValue(double value) : storage_(value) {}
    // A number (integers are stored as doubles).
    PZValue(int value) : storage_(static_cast<double>(value)) {}
    // A number (integers are stored as doubles).
    PZValue(long value) : storage_(static_cast<double>(value)) {}
    // A number (integers are stored as doubles).
    PZValue(long long value) : storage_(static_cast<double>(value)) {}
    // A string.
    PZValue(std::string value) : storage_(std::move(value)) {}
    // A string.
    PZValue(const char* value) : storage_(std::string(value)) {}
    // An array.
    PZValue(PZArray value) : storage_(std::move(value)) {}
    // A dictionary.
    PZValue(PZDictionary value) : storage_(std::move(value)) {}

    // True for the null marker.
    bool isNull() const noexcept { return std::holds_alternative<Null>(storage_); }
    // True for a boolean.
    bool isBool() const noexcept { return std::holds_alternative<bool>(storage_); }
    // True for a number.
    bool isNumber() const noexcept { return std::holds_alternative<double>(storage_); }
    // True for a string.
    bool isString() const noexcept { return std::holds_alternative<std::string>(storage_); }
    // True for an array.
    bool isArray() const noexcept { return std::holds_alternative<PZArray>(storage_); }
    // True for a dictionary.
    bool isDictionary() const noexcept { return std::holds_alternative<PZDictionary>(storage_); }

    // The boolean, or null for another kind.
    const bool* asBool() const noexcept { return std::get_if<bool>(&storage_); }
    // The number, or null for another kind.
    const double* asNumber() const noexcept { return std::get_if<double>(&storage_); }
    // The string, or null for another kind.
    const std::string* asString() const noexcept { return std::get_if<std::string>(&storage_); }
    // The array, or null for another kind.
    const PZArray* asArray() const noexcept { return std::get_if<PZArray>(&storage_); }
    // The dictionary, or null for another kind.
    const PZDictionary* asDictionary() const noexcept { return std::get_if<PZDictionary>(&storage_); }
    // The mutable array, or null for another kind.
    PZArray* asArray() noexcept { return std::get_if<PZArray>(&storage_); }
    // The mutable dictionary, or null for another kind.
    PZDictionary* asDictionary() noexcept { return std::get_if<PZDictionary>(&storage_); }

    // The underlying variant.
    const Storage& storage() const noexcept { return storage_; }
    // Same kind and equal contents (dictionaries compare regardless of key order).
    bool operator==(const PZValue& other) const { return storage_ == other.storage_; }

private:
    Storage storage_;
};
