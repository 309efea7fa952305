// Conversion between UTF-8 and UTF-16 that never fails: each sequence that is not valid becomes
// U+FFFD.
//
// Threads: pure functions. The lengths are those of the result, without a terminating zero; the
// writing functions need a place for exactly that much.

#pragma once

#include <stddef.h>
#include <stdint.h>

namespace host {

size_t Utf16Length(const char* utf8, size_t size);
// The units are written byte by byte: `out` need not be aligned.
void WriteUtf16(const char* utf8, size_t size, uint8_t* out);

size_t Utf8Length(const uint8_t* utf16, size_t units);
void WriteUtf8(const uint8_t* utf16, size_t units, char* out);

}  // namespace host
