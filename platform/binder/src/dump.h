// Dumps across processes. The object writes into a memory file of its own process, which never
// makes it wait; the file, sealed, is the answer, and the asker's own thread copies it to where it
// wants it.
#pragma once

#include <android/binder_status.h>

#include <cstdint>

#include "binder.h"

struct AParcel;

namespace host {

class CallConnection;

// In the asker. Blocks until the object has answered and everything is written. STATUS_TIMED_OUT:
// `fd` took nothing for 5 seconds. STATUS_FAILED_TRANSACTION: it is closed or broken. Never raises
// SIGPIPE.
binder_status_t DumpRemote(ProxyBinder* target, int fd, const char** args, uint32_t count);

// In the object's process, on the serving thread. False: the answer could not be sent.
bool ServeDump(CallConnection* connection, LocalBinder* target, const AParcel* in, bool nested);

}  // namespace host
