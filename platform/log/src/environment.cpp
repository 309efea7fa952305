#include "host/environment.h"

#include <cstdlib>

namespace host {

std::optional<std::string> ReadEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return value;
}

}  // namespace host
