#pragma once

// The one place where the layer reads the environment. Safe from any thread as long as nothing in
// the process changes the environment, which no part of this system does after start-up.

#include <optional>
#include <string>

namespace host {

// The variable's value; nothing if it is not set or empty.
std::optional<std::string> ReadEnvironment(const char* name);

}  // namespace host
