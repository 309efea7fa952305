// Walking over the values of a generated enumeration. Constants only: any thread may use them.

#pragma once

#include <array>
#include <iterator>

namespace ndk {

namespace internal {

// Generated code specialises this with the values in the order of their declaration.
template <typename EnumType>
constexpr inline std::array<EnumType, 0> enum_values;

}  // namespace internal

// for (auto value : ndk::enum_range<E>()) visits each value once, in the order of declaration.
template <typename EnumType>
struct enum_range {
    constexpr auto begin() const { return std::begin(internal::enum_values<EnumType>); }
    constexpr auto end() const { return std::end(internal::enum_values<EnumType>); }
};

}  // namespace ndk
