// Counts this process's system calls for input, output and waiting by standing in front of the C
// library's functions, so that what is counted runs as it always does. Locks that have to wait are
// not counted. Any thread.
#pragma once

#include <atomic>
#include <cstdint>

namespace bench {

// Where this process counts. Set it before other threads exist.
extern std::atomic<uint64_t>* g_counted_calls;

}  // namespace bench
