// Programs that a test starts. A Child belongs to one thread; only Log() may be used by several.
// The kernel kills a child when the *thread* that launched it ends: launch from one that outlives
// it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "child_log.h"
#include "eventually.h"

namespace host::testing {

struct LaunchOptions {
    std::map<std::string, std::string> environment = {};  // beside what this process has
    bool pipe_input = false;                              // else /dev/null
    bool pipe_output = false;                             // else standard error
    bool echo_log = true;     // the child's standard error also appears on ours
    bool pool_end = false;    // gives BINDER_HOST_END_FD, for EndPool()
    bool capture_log = true;  // else standard error is ours, uncaptured
    bool own_build = false;   // a helper is this program whatever HOST_HELPER_FOLDER says
};

// How a process ended.
struct ExitStatus {
    int code = -1;   // exit status; -1 if a signal ended it
    int signal = 0;  // the signal; 0 if it exited

    bool operator==(const ExitStatus&) const = default;
};

class Child {
  public:
    // Kills what still runs, and reaps it.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    int input() const { return input_; }    // our end; -1 without a pipe
    int output() const { return output_; }  // our end; -1 without a pipe
    ChildLog& log() { return log_; }

    // Signals a child that was not reaped. Returns at once.
    void Signal(int signal);

    // Kills with SIGKILL and reaps.
    void Kill();

    // SIGSTOP, and returns when every thread of the child stands still; false if that takes too
    // long.
    bool Stop();

    // SIGCONT, and returns when the child is no longer stopped.
    bool Continue();

    // Ends the child's joined thread pool (LaunchOptions::pool_end).
    void EndPool();

    // End of file on the child's standard input.
    void CloseInput();

    // How it ended, reaped; nothing if it still runs when the time is up.
    std::optional<ExitStatus> WaitExit(std::chrono::milliseconds limit = kTestLimit);

  private:
    friend std::unique_ptr<Child> LaunchProgram(const std::vector<std::string>& arguments,
                                                const LaunchOptions& options);
    Child() = default;

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    int pool_end_ = -1;
    std::optional<ExitStatus> status_;
    ChildLog log_;
};

// Starts arguments[0], a path, with the arguments: the only place where tests start programs. Null
// (and a failed test) if there are no descriptors or processes left; a program that cannot be
// executed ends with status 127.
std::unique_ptr<Child> LaunchProgram(const std::vector<std::string>& arguments,
                                     const LaunchOptions& options = {});

}  // namespace host::testing
