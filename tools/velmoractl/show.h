// The verbs that look once: list, dump and nudge. Each waits for the service manager, and gives the
// exit status. On the verb's thread.

#pragma once

#include "options.h"
#include "output.h"

namespace velmoractl {

int List(const Output& output);

// kNotFound: no hub is published.
int Dump(const Options& options, const Output& output);

// Waits for the hub. kNotFound: the signal has no producer.
int Nudge(const Options& options, const Output& output);

}  // namespace velmoractl
