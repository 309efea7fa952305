#include "host/hosted_producer_registry.h"

#include <android/binder_interface_utils.h>

#include "host/skelda_producer.h"

namespace aidl::vendor::quorin::velmora_hub::host {

const std::vector<std::shared_ptr<IHostedProducer>>&
HostedProducerRegistry::CreateHostedProducers() {
    static const std::vector<std::shared_ptr<IHostedProducer>> producers = {
            ::ndk::SharedRefBase::make<SkeldaProducer>()};
    return producers;
}

}  // namespace aidl::vendor::quorin::velmora_hub::host
