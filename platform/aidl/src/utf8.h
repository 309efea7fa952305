// Checks that a text is what it looks like. Stateless.

#pragma once

#include <cstddef>
#include <string_view>

namespace host::aidl {

enum class Utf8Fault { kNone, kInvalid, kControl };

// kControl: a control character other than tab and line breaks, or one of Unicode's marks that
// reverse the direction of text, which can make a line read differently from what is compiled.
// *at is the offset of the first fault.
Utf8Fault CheckUtf8(std::string_view text, size_t* at);

}  // namespace host::aidl
