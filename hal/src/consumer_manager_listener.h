// Who hears of changes on the consumer side. Every call comes from a task of the hub's worker
// thread, one at a time, with no lock held.

#pragma once

namespace aidl::vendor::quorin::velmora_hub {

class ConsumerManagerListener {
  public:
    // A consumer asks for a fresh value of the signal.
    virtual void OnSignalUpdateRequested(int signalId) = 0;

    // True: the signal has gained its first consumer. False: it has lost its last one. The calls
    // for one signal come in the order in which that happened.
    virtual void OnConsumerSubscriptionChanged(int signalId, bool hasConsumers) = 0;

    // Last, as the order of the virtual functions is fixed.
    virtual ~ConsumerManagerListener() = default;
};

}  // namespace aidl::vendor::quorin::velmora_hub
