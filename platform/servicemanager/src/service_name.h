// What may be a service's name. Pure function, any thread.
#pragma once

#include <string_view>

namespace host {

constexpr size_t kMaxServiceName = 127;

// 1 to 127 characters out of letters, digits and `_.-/`.
bool IsValidServiceName(std::string_view name);

}  // namespace host
