// The daemon's entry point: makes every long-lived object of the hub, wires them, publishes the two
// services, and lends its thread to the binder pool.

#define LOG_TAG "velmora_hal"

#include <android-base/logging.h>
#include <android/binder_interface_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <memory>
#include <string>

#include "host/hosted_producer_registry.h"
#include "host/velmora_hub_producer_host.h"
#include "signal_broker.h"
#include "velmora_hub_consumer_manager.h"
#include "velmora_hub_producer_manager.h"
#include "worker/worker_thread.h"

namespace {

using ::aidl::android::hardware::biometrics::WorkerThread;
using ::aidl::vendor::quorin::velmora_hub::SignalBroker;
using ::aidl::vendor::quorin::velmora_hub::VelmoraHubConsumerManager;
using ::aidl::vendor::quorin::velmora_hub::VelmoraHubProducerManager;
using ::aidl::vendor::quorin::velmora_hub::host::HostedProducerRegistry;
using ::aidl::vendor::quorin::velmora_hub::host::VelmoraHubProducerHost;

constexpr size_t kMaxQueueSize = 100;

// Publishes the manager as its interface's default instance; ends the process if that is refused.
template <typename Manager>
void Publish(const std::shared_ptr<Manager>& manager) {
    const std::string name = std::string(Manager::descriptor) + "/default";
    const binder_exception_t status =
            AServiceManager_addService(manager->asBinder().get(), name.c_str());
    CHECK_EQ(status, EX_NONE);
}

}  // namespace

int main(int /*argc*/, char** /*argv*/) {
    ABinderProcess_startThreadPool();

    const auto worker = std::make_shared<WorkerThread>(kMaxQueueSize);
    const auto consumer_manager = ndk::SharedRefBase::make<VelmoraHubConsumerManager>(worker);
    const auto producer_manager = ndk::SharedRefBase::make<VelmoraHubProducerManager>(worker);
    const auto broker = std::make_shared<SignalBroker>(producer_manager, consumer_manager);
    consumer_manager->RegisterListener(broker);
    producer_manager->RegisterListener(broker);

    const auto host = std::make_shared<VelmoraHubProducerHost>();
    LOG(DEBUG) << "Creating hosted producers...";
    const auto& producers = HostedProducerRegistry::CreateHostedProducers();
    LOG(DEBUG) << "Adding " << producers.size() << " hosted producers...";
    for (const auto& producer : producers)
        host->AddProducer(producer);
    LOG(DEBUG) << "Starting hosted producers...";
    host->StartAll();

    Publish(consumer_manager);
    Publish(producer_manager);

    ABinderProcess_joinThreadPool();
    return 1;
}
