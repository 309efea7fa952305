// A private runtime folder with a service manager of its own. Construct it before the first binder
// call of the process, or let only child processes make binder calls; one at a time. One thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "child.h"

namespace host::testing {

struct ScopedHostOptions {
    std::vector<std::string> manifests = {};  // files or folders for the service manager
    std::vector<std::string> declared = {};  // "package.IInterface/instance", in a further fragment
    bool start = true;                       // whether the service manager runs from the beginning
    bool echo_log = true;
};

class ScopedHost {
  public:
    // Sets BINDER_HOST_DIR for this process and its children. Returns at once: clients wait for the
    // service manager by themselves.
    explicit ScopedHost(ScopedHostOptions options = {});

    // Kills the service manager and removes the folder. Children of the test end before.
    ~ScopedHost();
    ScopedHost(const ScopedHost&) = delete;
    ScopedHost& operator=(const ScopedHost&) = delete;

    // The runtime folder, short enough for every socket address.
    const std::string& path() const { return path_; }

    // SIGKILL; returns when the process is gone.
    void KillServiceManager();

    // Starts one; none may run.
    void StartServiceManager();

    // One more on the same folder, with its standard error captured.
    std::unique_ptr<Child> LaunchServiceManager(const std::vector<std::string>& arguments,
                                                const LaunchOptions& options = {});

    // The running one; null between Kill and Start.
    Child* service_manager() { return service_manager_.get(); }

  private:
    std::string WriteManifest(const std::vector<std::string>& declared);

    std::string base_;  // what the destructor removes
    std::string path_;
    std::vector<std::string> manifests_;
    const bool echo_log_;
    std::unique_ptr<Child> service_manager_;
};

}  // namespace host::testing
