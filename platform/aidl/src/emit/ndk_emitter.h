// C++ for the NDK from a checked document. Stateless; the same document gives the same bytes.

#pragma once

#include <string>
#include <vector>

#include "../ast.h"

namespace host::aidl {

struct EmitOptions {
    int version = 1;
    // Of the frozen version, or kNotFrozen.
    std::string hash;
};

inline constexpr const char* kNotFrozen = "notfrozen";

struct OutputFile {
    // Below the output folder.
    std::string path;
    std::string text;
};

// aidl/<package path>/<Type>.h, for an interface also Bn....h and Bp....h, and
// <package path>/<Type>.cpp.
std::vector<OutputFile> EmitNdk(const Document& document, const EmitOptions& options);

}  // namespace host::aidl
