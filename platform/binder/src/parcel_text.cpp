#include "parcel_text.h"

#include <string.h>

namespace host {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kFirstSurrogate = 0xD800;
constexpr char32_t kFirstLowSurrogate = 0xDC00;
constexpr char32_t kBehindSurrogates = 0xE000;
constexpr char32_t kFirstPair = 0x10000;
constexpr char32_t kLast = 0x10FFFF;

bool IsSurrogate(char32_t point) {
    return point >= kFirstSurrogate && point < kBehindSurrogates;
}

bool Continues(char byte) {
    return (static_cast<uint8_t>(byte) & 0xC0) == 0x80;
}

// The bytes that a sequence with this first byte has; 0 if none begins so.
size_t SequenceLength(uint8_t first) {
    if (first < 0x80) return 1;
    if (first < 0xC2) return 0;
    if (first < 0xE0) return 2;
    if (first < 0xF0) return 3;
    return first < 0xF5 ? 4 : 0;
}

// Takes the next code point off [*at, end); a byte that fits nowhere counts as one.
char32_t NextPoint(const char** at, const char* end) {
    const auto first = static_cast<uint8_t>(*(*at)++);
    const size_t length = SequenceLength(first);
    if (length == 1) return first;
    if (length == 0) return kReplacement;
    char32_t point = first & (0x7Fu >> length);
    const char* next = *at;
    for (size_t i = 1; i < length; ++i, ++next) {
        if (next == end || !Continues(*next)) return kReplacement;
        point = (point << 6) | (static_cast<uint8_t>(*next) & 0x3F);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < kFirstPair);
    if (overlong || IsSurrogate(point) || point > kLast) return kReplacement;
    *at = next;
    return point;
}

char16_t UnitAt(const uint8_t* utf16, size_t index) {
    char16_t unit;
    memcpy(&unit, utf16 + index * sizeof(unit), sizeof(unit));
    return unit;
}

// Takes the next code point off the units [*index, units).
char32_t NextPoint(const uint8_t* utf16, size_t* index, size_t units) {
    const char32_t first = UnitAt(utf16, (*index)++);
    if (!IsSurrogate(first)) return first;
    if (first >= kFirstLowSurrogate || *index == units) return kReplacement;
    const char32_t second = UnitAt(utf16, *index);
    if (second < kFirstLowSurrogate || second >= kBehindSurrogates) return kReplacement;
    ++*index;
    return kFirstPair + ((first - kFirstSurrogate) << 10) + (second - kFirstLowSurrogate);
}

size_t Utf8Bytes(char32_t point) {
    if (point < 0x80) return 1;
    if (point < 0x800) return 2;
    return point < kFirstPair ? 3 : 4;
}

char* PutUtf8(char32_t point, char* out) {
    const size_t bytes = Utf8Bytes(point);
    if (bytes == 1) {
        *out = static_cast<char>(point);
        return out + 1;
    }
    for (size_t i = bytes - 1; i > 0; --i, point >>= 6) {
        out[i] = static_cast<char>(0x80 | (point & 0x3F));
    }
    out[0] = static_cast<char>((0xF00u >> bytes) | point);
    return out + bytes;
}

// How many of the bytes, from the first on, are plain ASCII: nearly all text is, and is copied
// without decoding.
size_t AsciiBytes(const char* utf8, size_t size) {
    size_t count = 0;
    for (uint64_t eight; size - count >= sizeof(eight); count += sizeof(eight)) {
        memcpy(&eight, utf8 + count, sizeof(eight));
        if ((eight & 0x8080808080808080) != 0) break;
    }
    while (count < size && static_cast<uint8_t>(utf8[count]) < 0x80) {
        ++count;
    }
    return count;
}

size_t AsciiUnits(const uint8_t* utf16, size_t units) {
    size_t count = 0;
    for (uint64_t four; units - count >= 4; count += 4) {
        memcpy(&four, utf16 + count * sizeof(char16_t), sizeof(four));
        if ((four & 0xFF80FF80FF80FF80) != 0) break;
    }
    while (count < units && UnitAt(utf16, count) < 0x80) {
        ++count;
    }
    return count;
}

uint8_t* PutUnit(char32_t unit, uint8_t* out) {
    const auto narrow = static_cast<char16_t>(unit);
    memcpy(out, &narrow, sizeof(narrow));
    return out + sizeof(narrow);
}

}  // namespace

size_t Utf16Length(const char* utf8, size_t size) {
    size_t units = AsciiBytes(utf8, size);
    for (const char *at = utf8 + units, *end = utf8 + size; at != end;) {
        units += NextPoint(&at, end) < kFirstPair ? 1 : 2;
    }
    return units;
}

void WriteUtf16(const char* utf8, size_t size, uint8_t* out) {
    const size_t ascii = AsciiBytes(utf8, size);
    for (size_t i = 0; i < ascii; ++i) {
        out = PutUnit(static_cast<uint8_t>(utf8[i]), out);
    }
    for (const char *at = utf8 + ascii, *end = utf8 + size; at != end;) {
        const char32_t point = NextPoint(&at, end);
        if (point < kFirstPair) {
            out = PutUnit(point, out);
            continue;
        }
        out = PutUnit(kFirstSurrogate + ((point - kFirstPair) >> 10), out);
        out = PutUnit(kFirstLowSurrogate + ((point - kFirstPair) & 0x3FF), out);
    }
}

size_t Utf8Length(const uint8_t* utf16, size_t units) {
    size_t bytes = AsciiUnits(utf16, units);
    for (size_t i = bytes; i < units;) {
        bytes += Utf8Bytes(NextPoint(utf16, &i, units));
    }
    return bytes;
}

void WriteUtf8(const uint8_t* utf16, size_t units, char* out) {
    const size_t ascii = AsciiUnits(utf16, units);
    for (size_t i = 0; i < ascii; ++i) {
        *out++ = static_cast<char>(utf16[i * sizeof(char16_t)]);
    }
    for (size_t i = ascii; i < units;) {
        out = PutUtf8(NextPoint(utf16, &i, units), out);
    }
}

}  // namespace host
