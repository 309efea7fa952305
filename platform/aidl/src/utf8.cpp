#include "utf8.h"

#include <cstdint>

namespace host::aidl {
namespace {

// Length of the character that starts with `lead`, 0 if none does, and its payload bits.
size_t LeadLength(unsigned char lead, uint32_t* bits) {
    if (lead < 0x80) return *bits = lead, 1;
    if (lead >= 0xc2 && lead < 0xe0) return *bits = lead & 0x1f, 2;
    if (lead >= 0xe0 && lead < 0xf0) return *bits = lead & 0x0f, 3;
    if (lead >= 0xf0 && lead < 0xf5) return *bits = lead & 0x07, 4;
    return 0;
}

bool Decode(std::string_view text, size_t at, size_t* length, uint32_t* code) {
    *length = LeadLength(static_cast<unsigned char>(text[at]), code);
    if (*length == 0 || *length > text.size() - at) return false;
    for (size_t i = 1; i < *length; ++i) {
        const auto byte = static_cast<unsigned char>(text[at + i]);
        if ((byte & 0xc0) != 0x80) return false;
        *code = *code << 6 | (byte & 0x3f);
    }
    const bool overlong = (*length == 3 && *code < 0x800) || (*length == 4 && *code < 0x10000);
    return !overlong && *code <= 0x10ffff && (*code < 0xd800 || *code > 0xdfff);
}

bool IsControl(uint32_t code) {
    if (code < 0x20) return code != '\t' && code != '\n' && code != '\r';
    return (code >= 0x7f && code < 0xa0) || (code >= 0x202a && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

Utf8Fault CheckUtf8(std::string_view text, size_t* at) {
    size_t length = 0;
    for (*at = 0; *at < text.size(); *at += length) {
        uint32_t code = 0;
        if (!Decode(text, *at, &length, &code)) return Utf8Fault::kInvalid;
        if (IsControl(code)) return Utf8Fault::kControl;
    }
    return Utf8Fault::kNone;
}

}  // namespace host::aidl
