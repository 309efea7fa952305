// A consumer of the hub: asks for events of signal 100 and prints them, until it goes away.
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/signals/UserEngagementPayload.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <atomic>
#include <cstdio>
#include <semaphore>

namespace hub = aidl::vendor::quorin::velmora_hub;
using hub::signals::UserEngagementPayload;
using ndk::ScopedAStatus;

// Called by the hub, one call at a time, on a thread of this process's pool.
class Consumer : public hub::BnVelmoraHubConsumer {
  public:
    ScopedAStatus onSignalAvailable(int32_t /*signalId*/) override { return Wake(); }
    ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override {
        std::optional<UserEngagementPayload> payload;  // stays empty for another type
        event.payload.getParcelable(&payload);
        if (payload) std::printf("display %d\n", payload->display);
        return Wake();
    }
    ScopedAStatus onSignalUnavailable(int32_t /*signalId*/, SignalError /*error*/) override {
        gone_ = true;
        return Wake();
    }
    // Whether the signal is still there, after something happened to it.
    bool WaitForNews() {
        news_.acquire();
        return !gone_;
    }

  private:
    ScopedAStatus Wake() {
        news_.release();
        return ScopedAStatus::ok();
    }
    std::atomic<bool> gone_ = false;
    std::counting_semaphore<> news_{0};
};

int main() {
    ABinderProcess_startThreadPool();  // callbacks arrive while the pool runs
    const std::string name = std::string(hub::IVelmoraHubConsumerManager::descriptor) + "/default";
    const ndk::SpAIBinder binder(AServiceManager_waitForService(name.c_str()));
    const auto manager = hub::IVelmoraHubConsumerManager::fromBinder(binder);
    if (manager == nullptr) return 1;
    const auto consumer = ndk::SharedRefBase::make<Consumer>();
    std::shared_ptr<hub::IToken> token;
    ScopedAStatus status = manager->subscribe(100, consumer, &token);
    // A request that no producer was there for is made again when one has come.
    do {
        if (status.isOk()) status = manager->requestSignalUpdate(token);
    } while (status.isOk() && consumer->WaitForNews());
    return status.isOk() && manager->unsubscribe(token).isOk() ? 0 : 1;
}
