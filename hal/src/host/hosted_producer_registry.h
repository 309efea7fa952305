// The one place that knows which producers the daemon hosts.

#pragma once

#include <memory>
#include <vector>

#include "host/hosted_producer.h"

namespace aidl::vendor::quorin::velmora_hub::host {

class HostedProducerRegistry {
  public:
    // The producers, made by the first call; the same ones ever after. The registry holds them
    // until static destruction. Any thread.
    static const std::vector<std::shared_ptr<IHostedProducer>>& CreateHostedProducers();
};

}  // namespace aidl::vendor::quorin::velmora_hub::host
