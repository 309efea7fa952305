// A producer of the hub: pushes an event of signal 100 whenever it is asked for one, thrice.
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>
#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdio>
#include <semaphore>

namespace hub = aidl::vendor::quorin::velmora_hub;
using ndk::ScopedAStatus;

// Called by the hub, on a thread of this process's pool.
class Producer : public hub::BnVelmoraHubProducer {
  public:
    // Not called at registration, even if consumers are there: a nudge comes from each that asks.
    ScopedAStatus onClientsUpdated(bool /*hasClients*/) override { return ScopedAStatus::ok(); }
    ScopedAStatus nudge() override {
        requests_.release();
        return ScopedAStatus::ok();
    }
    void WaitForRequest() { requests_.acquire(); }

  private:
    std::counting_semaphore<> requests_{0};
};

int main() {
    ABinderProcess_startThreadPool();  // callbacks arrive while the pool runs
    const std::string name = std::string(hub::IVelmoraHubProducerManager::descriptor) + "/default";
    // Waits for the hub if it is not up yet.
    const ndk::SpAIBinder binder(AServiceManager_waitForService(name.c_str()));
    const auto manager = hub::IVelmoraHubProducerManager::fromBinder(binder);
    if (manager == nullptr) return 1;

    hub::SignalDescriptor descriptor;
    descriptor.signalId = 100;
    const auto producer = ndk::SharedRefBase::make<Producer>();
    std::shared_ptr<hub::IToken> token;
    ScopedAStatus status = manager->registerProducer(descriptor, producer, &token);
    for (int i = 1; i <= 3 && status.isOk(); ++i) {
        producer->WaitForRequest();
        hub::signals::UserEngagementPayload payload;
        payload.display = i;
        hub::VelmoraEvent event;
        event.signalId = descriptor.signalId;
        event.payload.setParcelable(payload);
        // Returns at once: the hub calls the consumers later, on a thread of its own.
        status = manager->updateSignal(token, event);
    }
    if (status.isOk()) status = manager->unregisterProducer(token);
    if (!status.isOk()) std::fprintf(stderr, "%s\n", status.getDescription().c_str());
    return status.isOk() ? 0 : 1;
}
