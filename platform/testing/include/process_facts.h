// What the kernel says about a process. A count is -1 if the process is gone. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace host::testing {

int OpenDescriptors(pid_t pid);
int Threads(pid_t pid);
int64_t ResidentKib(pid_t pid);

// Voluntary and involuntary switches of all threads that the process has now.
int64_t ContextSwitches(pid_t pid);

// Waits until none of the processes' threads has run for a while (20 ms): what they
// were told in messages that nobody answers is done. False if they do not come to rest in time.
bool WaitForRest(const std::vector<pid_t>& pids);

// As in /proc: 'R', 'S', 'T' (stopped), 'Z'...; 0 if the process is gone. A thread's
// number gives the state of that thread.
char ProcessState(pid_t pid);

}  // namespace host::testing
