// The one way in which tests and benchmarks start a program that was built here: a cross build's
// runs behind an emulator. No state; any thread, also that of a child forked by a process with
// threads.
#pragma once

#include <string>

namespace host::testing {

// Becomes arguments[0], a path, with the arguments and the environment, each ended by a null
// pointer. Makes system calls only. Exits with status 127 if that is no program, or if there are
// more than 60 arguments.
[[noreturn]] void BecomeProgram(const char* const* arguments, char* const* environment);

// The path of the program that this process runs; allocates.
std::string OwnProgram();

}  // namespace host::testing
