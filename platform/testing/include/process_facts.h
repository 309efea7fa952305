// What the kernel says about a process. A count is -1 if the process is gone. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace host::testing {

int OpenDescriptors(pid_t pid);
int Threads(pid_t pid);
int64_t ResidentKib(pid_t pid);

// Voluntary and involuntary switches of all threads that the process has now.
int64_t ContextSwitches(pid_t pid);

// As in /proc: 'R', 'S', 'T' (stopped), 'Z'...; 0 if the process is gone.
char ProcessState(pid_t pid);

}  // namespace host::testing
