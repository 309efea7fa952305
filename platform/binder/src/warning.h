// The layer's lines to the log. A logger is the process's own code, and may make calls itself: what
// there is to say under a lock is said after it.
#pragma once

#include <string>
#include <vector>

namespace host {

// A line of the tag "host_binder", at once or as the calling thread's HeldWarnings end. Any thread.
void Warn(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The lines of the thread wait until this goes. It stands ahead of the guard of a lock.
class HeldWarnings {
  public:
    HeldWarnings();
    ~HeldWarnings();
    HeldWarnings(const HeldWarnings&) = delete;
    HeldWarnings& operator=(const HeldWarnings&) = delete;

  private:
    friend void Warn(const char* format, ...);

    // Those of a caller may stand ahead of a lock as well: they take the lines over.
    HeldWarnings* const outer_;
    std::vector<std::string> lines_;
};

}  // namespace host
