// Fields of JSON objects that people write. Free functions, any thread.
//
// All throw std::exception with the reason for what does not fit the value.

#pragma once

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "output.h"

namespace velmoractl {

// Null stands for what is no number.
inline float FloatFrom(const Json& json, const char* name) {
    if (json.is_null()) return std::numeric_limits<float>::quiet_NaN();
    if (json.is_number() && std::abs(json.get<double>()) <= std::numeric_limits<float>::max())
        return json.get<float>();
    throw std::invalid_argument(std::string(name) + ": a number of single precision is wanted");
}

template <typename Integer>
Integer IntegerFrom(const Json& json, const char* name) {
    constexpr Integer kLeast = std::numeric_limits<Integer>::min();
    constexpr Integer kMost = std::numeric_limits<Integer>::max();
    const bool fits = json.is_number_unsigned()
                              ? json.get<uint64_t>() <= static_cast<uint64_t>(kMost)
                              : json.is_number_integer() && json.get<int64_t>() >= kLeast &&
                                        json.get<int64_t>() <= kMost;
    if (fits) return json.get<Integer>();
    throw std::invalid_argument(std::string(name) + ": a whole number from " +
                                std::to_string(kLeast) + " to " + std::to_string(kMost) +
                                " is wanted");
}

// A field that nobody asks for is a slip of the pen.
inline void RefuseOthers(const Json& object, std::initializer_list<std::string_view> names) {
    if (!object.is_object()) throw std::invalid_argument(OneLine(object) + " is no object");
    for (const auto& field : object.items())
        if (std::find(names.begin(), names.end(), field.key()) == names.end())
            throw std::invalid_argument(OneLine(field.key()) + " does not belong here");
}

// Leaves the value as it is if the object has no such field.
template <typename Value>
void ReadField(const Json& object, const char* name, Value* value) {
    if (!object.is_object()) throw std::invalid_argument(OneLine(object) + " is no object");
    const auto field = object.find(name);
    if (field == object.end()) return;
    if constexpr (std::is_same_v<Value, float>) {
        *value = FloatFrom(*field, name);
    } else if constexpr (std::is_integral_v<Value>) {
        *value = IntegerFrom<Value>(*field, name);
    } else {
        field->get_to(*value);
    }
}

}  // namespace velmoractl
