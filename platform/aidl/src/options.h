// The command line of the tool. Stateless.

#pragma once

#include <string>
#include <vector>

namespace host::aidl {

struct Options {
    enum class Mode { kCompile, kFreeze, kCheck, kHelp };
    Mode mode = Mode::kCompile;
    std::string out;
    std::string root;
    std::vector<std::string> imports;
    std::string api;
    int version = 0;
    std::string hash;
    bool vintf = false;
    std::vector<std::string> files;
};

// False with a sentence in *error for a command line that makes no sense.
bool ParseOptions(int argc, char** argv, Options* options, std::string* error);

extern const char* const kHelpText;

}  // namespace host::aidl
