// What the service manager knows, for tools. Any thread; waits as <android/binder_manager.h> says.

#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace host {

struct ServiceInfo {
    std::string name;
    bool declared = false;   // by a manifest
    bool published = false;  // by a process that lives
    pid_t pid = 0;           // of that process, 0 if not published
};

// Every name that is declared or published, in order. False, with one sentence in `*error`: the
// service manager cannot be asked.
bool ListServices(std::vector<ServiceInfo>* services, std::string* error);

}  // namespace host
