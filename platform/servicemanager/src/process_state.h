// Whether a process is as good as dead, also before anyone has noticed. Any thread; reads /proc.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace host {

// True if the process is gone, a zombie, or has a SIGKILL on its way. The answer ages at once: only
// "true" stays true, as long as the pid is not given anew.
bool IsProcessDead(pid_t pid);

// The same, from the text of its /proc/<pid>/status.
bool IsDeadStatus(std::string_view status);

}  // namespace host
