#include "counted_hub.h"

#include "signal_broker.h"

namespace bench {

CountedHub::CountedHub()
        : worker_(std::make_shared<::aidl::android::hardware::biometrics::WorkerThread>(100)) {
    const auto consumers = ::ndk::SharedRefBase::make<hub::VelmoraHubConsumerManager>(worker_);
    const auto producers = ::ndk::SharedRefBase::make<hub::VelmoraHubProducerManager>(worker_);
    const auto broker = std::make_shared<hub::SignalBroker>(producers, consumers);
    consumers->RegisterListener(broker);
    producers->RegisterListener(broker);
    consumers_ = consumers;
    producers_ = producers;
    listening_ = std::shared_ptr<void>(nullptr, [consumers, producers](void*) {
        consumers->RegisterListener(nullptr);
        producers->RegisterListener(nullptr);
    });
}

CountedHub::~CountedHub() = default;

}  // namespace bench
