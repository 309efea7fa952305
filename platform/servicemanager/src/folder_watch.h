// Notices that something appears in the runtime folder, so that waiting for the service manager
// needs no polling. Belongs to one thread.
#pragma once

#include <chrono>
#include <string>

#include "fd.h"

namespace host {

class FolderWatch {
  public:
    // Watches from now on. Where the system gives no watch, Wait() only waits.
    explicit FolderWatch(const std::string& folder);

    // Returns when something has appeared since the watch began or since the last return, or after
    // `limit`, or for no reason.
    void Wait(std::chrono::milliseconds limit);

  private:
    UniqueFd watch_;
};

}  // namespace host
