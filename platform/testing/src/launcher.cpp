#include "launcher.h"

#include <unistd.h>

#include <array>
#include <filesystem>

namespace host::testing {
namespace {

// The emulator and its options, as the build gives them; nothing where programs run by themselves.
constexpr std::array kEmulator{HOST_EMULATOR static_cast<const char*>(nullptr)};
constexpr size_t kMaxLine = 64;

}  // namespace

void BecomeProgram(const char* const* arguments, char* const* environment) {
    std::array<const char*, kMaxLine + 1> line{};
    size_t used = 0;
    while (kEmulator[used] != nullptr) {
        line[used] = kEmulator[used];
        ++used;
    }
    // An emulator has a status of its own for what is no program.
    if (access(arguments[0], X_OK) != 0) _exit(127);
    for (; *arguments != nullptr; ++arguments) {
        if (used == kMaxLine) _exit(127);
        line[used++] = *arguments;
    }
    execve(line[0], const_cast<char* const*>(line.data()), environment);
    _exit(127);
}

std::string OwnProgram() {
    std::error_code failure;
    return std::filesystem::read_symlink("/proc/self/exe", failure).string();
}

}  // namespace host::testing
