// SHA-1, for telling versions of an interface apart, not for security. Stateless.

#pragma once

#include <string>
#include <string_view>

namespace host::aidl {

// 40 hexadecimal digits.
std::string Sha1(std::string_view text);

}  // namespace host::aidl
