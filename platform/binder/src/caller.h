// Two-way calls to other processes.
#pragma once

#include <android/binder_status.h>

#include "binder.h"
#include "fd.h"

struct AParcel;

namespace host {

// Calls and waits for the answer, serving what the process called asks of this thread meanwhile.
// STATUS_DEAD_OBJECT: the process is gone or goes. STATUS_FAILED_TRANSACTION: not sent, too large
// or nested too deep. `memory` takes the memory file that an answer may carry. May be called on any
// thread, with no lock of the layer held.
binder_status_t CallRemote(ProxyBinder* target, uint32_t code, const AParcel& in, AParcel* out,
                           UniqueFd* memory = nullptr);

}  // namespace host
