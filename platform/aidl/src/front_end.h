// All stages up to a checked program. Not thread-safe.

#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "program.h"

namespace host::aidl {

// Parses the files, loads what they name, resolves, evaluates and checks. The result is never
// null; it is usable for code only if its diagnostics are ok.
std::unique_ptr<Program> RunFrontEnd(const FileProvider* files,
                                     const std::vector<std::string>& roots,
                                     const std::vector<std::string>& paths, bool vintf);

// The normal form of each file being compiled, by "<package path>/<Type>.aidl".
std::map<std::string, std::string> DumpPrimary(const Program& program);

// Names version and content of an interface: equal exactly for equal dumps of an equal version.
std::string HashOf(const std::map<std::string, std::string>& dumps, int version);

}  // namespace host::aidl
