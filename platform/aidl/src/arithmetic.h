// Integer and literal arithmetic of constant expressions. Stateless.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ast.h"

namespace host::aidl {

// The value of a numeric literal, int64_t or double; nothing if it is malformed or out of range.
// Hexadecimal ones of up to 8 digits without L are 32-bit patterns, as int constants want them.
std::optional<Value> ParseNumber(std::string_view text);

// The result of an operator on whole numbers; nothing on overflow, with the reason in *error.
std::optional<int64_t> Apply(std::string_view op, int64_t left, int64_t right, std::string* error);

// Does the value lie in the range of byte, int or long?
bool Fits(int64_t value, Builtin type);

}  // namespace host::aidl
