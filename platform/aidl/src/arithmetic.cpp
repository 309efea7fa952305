#include "arithmetic.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace host::aidl {
namespace {

std::optional<Value> ParseHex(std::string_view digits, bool is_long) {
    if (digits.empty() || digits.size() > 16) return std::nullopt;
    uint64_t bits = 0;
    for (char c : digits) {
        const char lower = static_cast<char>(c | 0x20);
        if (c >= '0' && c <= '9') {
            bits = bits << 4 | static_cast<uint64_t>(c - '0');
        } else if (lower >= 'a' && lower <= 'f') {
            bits = bits << 4 | static_cast<uint64_t>(lower - 'a' + 10);
        } else {
            return std::nullopt;
        }
    }
    const bool narrow = !is_long && digits.size() <= 8;
    return Value{narrow ? int64_t{static_cast<int32_t>(static_cast<uint32_t>(bits))}
                        : static_cast<int64_t>(bits),
                 {}};
}

std::optional<Value> ParseDecimal(const std::string& digits) {
    if (digits.size() > 1 && digits[0] == '0') return std::nullopt;
    int64_t value = 0;
    for (char c : digits) {
        if (__builtin_mul_overflow(value, int64_t{10}, &value) ||
            __builtin_add_overflow(value, int64_t{c - '0'}, &value)) {
            return std::nullopt;
        }
    }
    return Value{value, {}};
}

std::optional<Value> ParseReal(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !std::isfinite(value)) return std::nullopt;
    return Value{value, {}};
}

}  // namespace

std::optional<Value> ParseNumber(std::string_view text) {
    const bool hex = text.size() > 1 && (text[1] | 0x20) == 'x';
    const char last = static_cast<char>(text.back() | 0x20);
    const bool is_long = last == 'l';
    if (is_long) text.remove_suffix(1);
    if (hex) return ParseHex(text.substr(2), is_long);
    const bool real = last == 'f' || text.find_first_of(".eE") != std::string_view::npos;
    if (real && last == 'f') text.remove_suffix(1);
    if (text.find_first_not_of(real ? "0123456789.eE+-" : "0123456789") != std::string_view::npos ||
        (real && is_long)) {
        return std::nullopt;
    }
    return real ? ParseReal(std::string(text)) : ParseDecimal(std::string(text));
}

std::optional<int64_t> Apply(std::string_view op, int64_t left, int64_t right, std::string* error) {
    int64_t result = 0;
    *error = "the value of '" + std::string(op) + "' does not fit 64 bits";
    if (op == "+") {
        if (__builtin_add_overflow(left, right, &result)) return std::nullopt;
        return result;
    }
    if (op == "-") {
        if (__builtin_sub_overflow(left, right, &result)) return std::nullopt;
        return result;
    }
    if (op == "*") {
        if (__builtin_mul_overflow(left, right, &result)) return std::nullopt;
        return result;
    }
    if (op == "/" || op == "%") {
        if (right == 0) *error = "division by zero";
        const bool overflow = left == std::numeric_limits<int64_t>::min() && right == -1;
        if (right == 0 || overflow) return std::nullopt;
        return op == "/" ? left / right : left % right;
    }
    if (op == "<<" || op == ">>") {
        *error = "a shift is by 0 to 63 bits";
        if (right < 0 || right > 63) return std::nullopt;
        return op == "<<" ? static_cast<int64_t>(static_cast<uint64_t>(left) << right)
                          : left >> right;
    }
    if (op == "&") return left & right;
    if (op == "|") return left | right;
    if (op == "^") return left ^ right;
    *error = "'" + std::string(op) + "' is not an operator on whole numbers";
    return std::nullopt;
}

bool Fits(int64_t value, Builtin type) {
    switch (type) {
        case Builtin::kByte:
            return value >= INT8_MIN && value <= INT8_MAX;
        case Builtin::kInt:
            return value >= INT32_MIN && value <= INT32_MAX;
        default:
            return true;
    }
}

}  // namespace host::aidl
