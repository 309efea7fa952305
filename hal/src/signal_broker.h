// Joins the two managers: news of producers goes to consumers, wishes of consumers to producers.
//
// Threads: called by the managers' tasks on the hub's worker thread. Takes no lock; each function
// makes one call and returns when that has returned.
//
// Ownership: holds both managers, which in turn hold it as their listener; the three live until
// the process ends.

#pragma once

#include <memory>

#include "consumer_manager_listener.h"
#include "producer_manager_listener.h"
#include "velmora_hub_consumer_manager.h"
#include "velmora_hub_producer_manager.h"

namespace aidl::vendor::quorin::velmora_hub {

class SignalBroker : public ProducerManagerListener, public ConsumerManagerListener {
  public:
    // Without a manager, what is meant for it is logged and dropped.
    SignalBroker(std::shared_ptr<VelmoraHubProducerManager> producerManager,
                 std::shared_ptr<VelmoraHubConsumerManager> consumerManager);

    void OnSignalAdded(int signalId) override;
    // A cause that consumers have no error for reaches them as UNKNOWN.
    void OnSignalRemoved(int signalId, SignalRemovedCause cause) override;
    void OnSignalUpdated(int signalId, const VelmoraEvent& event) override;

    void OnSignalUpdateRequested(int signalId) override;
    void OnConsumerSubscriptionChanged(int signalId, bool hasConsumers) override;

  private:
    const std::shared_ptr<VelmoraHubProducerManager> producer_manager_;
    const std::shared_ptr<VelmoraHubConsumerManager> consumer_manager_;
};

}  // namespace aidl::vendor::quorin::velmora_hub
