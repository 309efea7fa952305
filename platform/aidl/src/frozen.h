// Frozen versions: <api folder>/<package>/<version>/<package path>/<Type>.aidl, and .hash beside
// the first folder of the package path. Not thread-safe.

#pragma once

#include <map>
#include <string>
#include <vector>

namespace host::aidl {

struct FrozenVersion {
    std::string api_folder;
    std::string package;
    int version = 1;

    std::string Folder() const {
        return api_folder + "/" + package + "/" + std::to_string(version);
    }
};

// Writes the dumps and their hash, in the place of what was there. False with a sentence in *error.
bool Freeze(const FrozenVersion& where, const std::map<std::string, std::string>& dumps,
            std::string* error);

// Compares the dumps of the sources with the frozen version; *hash becomes its hash. Comments and
// spacing of either do not count. False with all that is to be printed in *error: errors inside the
// frozen files, or what differs and how to freeze anew.
bool CheckFrozen(const FrozenVersion& where, const std::map<std::string, std::string>& dumps,
                 const std::vector<std::string>& import_roots, std::string* hash,
                 std::string* error);

}  // namespace host::aidl
