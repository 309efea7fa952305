// The threads on which this process serves calls from others.
//
// Threads: every function may be called from any thread.

#pragma once

#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Begins serving. Returns at once; later calls do nothing. Threads are started when calls need
// them.
void ABinderProcess_startThreadPool();
bool ABinderProcess_isThreadPoolStarted();
// How many threads the pool may start beside those that join (15 by default). False, and nothing
// changes, once the pool is started.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
// Makes the calling thread serve too. Returns only when the process is told to end.
void ABinderProcess_joinThreadPool();

__END_DECLS
