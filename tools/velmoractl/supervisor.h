// The frame around a verb: the end that a signal or the clock sets to it. Called by main alone.

#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "loop.h"
#include "output.h"

namespace velmoractl {

// A verb gives its exit status; it ends soon after its loop was stopped.
using Verb = std::function<int(const std::shared_ptr<Loop>& loop)>;

struct Limits {
    std::optional<std::chrono::duration<double>> timeout;
    int interrupted_status = kError;  // for SIGINT and SIGTERM
};

// Runs the verb on a thread of its own and gives the exit status. Where the verb is held up in a
// call to a hub that does not answer, the process is ended after a short grace. To be called before
// there are other threads, which inherit the blocked signals.
int Supervise(const Limits& limits, const Output& output, const Verb& verb);

}  // namespace velmoractl
