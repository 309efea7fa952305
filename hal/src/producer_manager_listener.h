// Who hears of changes on the producer side. Every call comes from a task of the hub's worker
// thread, one at a time, in the order of the changes, with no lock held.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>

#include "signal_removed_cause.h"

namespace aidl::vendor::quorin::velmora_hub {

class ProducerManagerListener {
  public:
    // A producer has registered the signal.
    virtual void OnSignalAdded(int signal_id) = 0;

    // The signal's registration has ended, or one that had ended before was ended once more.
    virtual void OnSignalRemoved(int signal_id, SignalRemovedCause cause) = 0;

    // A holder of a token of the signal pushed `event`, which is valid during the call.
    virtual void OnSignalUpdated(int signal_id, const VelmoraEvent& event) = 0;

    // Last, as the order of the virtual functions is fixed.
    virtual ~ProducerManagerListener() = default;
};

}  // namespace aidl::vendor::quorin::velmora_hub
