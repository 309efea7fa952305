// Runs calls that came in, on the thread that read them.
#pragma once

#include <android/binder_status.h>

#include <memory>

#include "binder.h"
#include "frame.h"

struct AParcel;

namespace host {

class CallConnection;

// Reserved codes, outside of what an interface may use.
inline constexpr uint32_t kPingTransaction = 0x5f504e47;  // '_PNG'
inline constexpr uint32_t kDumpTransaction = 0x5f444d50;  // '_DMP'

enum class Served {
    kAnswered,
    kDeferred,   // the answer comes later, from another thread
    kClosed,     // the answer could not be sent
    kMalformed,  // the message is not one that a process of ours sends
};

// Runs one two-way call and answers it. `nested`: the calling thread waits on this connection
// itself.
Served ServeCall(CallConnection* connection, Bytes body, bool nested);

// Calls the object: checks the interface named in the parcel, then runs the class's code.
binder_status_t Dispatch(LocalBinder* target, uint32_t code, const AParcel* in, AParcel* out);

// Writes the interface's name at the start of a parcel; what Dispatch checks.
binder_status_t WriteInterfaceName(AParcel* parcel, const AIBinder_Class* clazz);

}  // namespace host
