#include "service_name.h"

#include <algorithm>

namespace host {
namespace {

// Not isalnum(): what a name may be does not depend on the locale.
bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '-' || c == '/';
}

}  // namespace

bool IsValidServiceName(std::string_view name) {
    return !name.empty() && name.size() <= kMaxServiceName &&
           std::all_of(name.begin(), name.end(), IsNameCharacter);
}

}  // namespace host
