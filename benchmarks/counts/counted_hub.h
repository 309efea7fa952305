// The hub's own objects in a library of their own, velmora_hub_counted: what runs in its object
// file is what the hub's sources were compiled to, headers inlined into them included, and nothing
// else. It holds the very objects that the daemon is linked from and exports this class only, so
// that the optimiser is as free within it as within the daemon.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>

#include <memory>

#include "worker/worker_thread.h"

namespace bench {

namespace hub = ::aidl::vendor::quorin::velmora_hub;

// Both managers and the broker on a worker of their own, as the daemon has them. Made and destroyed
// by one thread, when no task is queued.
class CountedHub {
  public:
    CountedHub();
    ~CountedHub();
    CountedHub(const CountedHub&) = delete;
    CountedHub& operator=(const CountedHub&) = delete;

    // To be called through their virtual functions.
    ::aidl::android::hardware::biometrics::WorkerThread& worker() const { return *worker_; }
    hub::IVelmoraHubConsumerManager& consumers() const { return *consumers_; }
    hub::IVelmoraHubProducerManager& producers() const { return *producers_; }

  private:
    std::shared_ptr<::aidl::android::hardware::biometrics::WorkerThread> worker_;
    std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_;
    std::shared_ptr<hub::IVelmoraHubProducerManager> producers_;
    std::shared_ptr<void> listening_;  // let go first: unties the broker
};

}  // namespace bench
