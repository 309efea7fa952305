// The bare relay: does with an event what the hub does, through the same layer, and nothing that
// makes the hub a hub. It takes a push, queues it for a second thread, answers, and that thread
// calls each consumer oneway. What the hub costs above it is the product's own price.

#include <aidl/velmora/peers/BnRelay.h>
#include <android-base/thread_annotations.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

namespace hub = aidl::vendor::quorin::velmora_hub;
using ::ndk::ScopedAStatus;

// Never destroyed: its thread runs until the process is killed.
class Relay : public aidl::velmora::peers::BnRelay {
  public:
    Relay() : worker_([this] { Work(); }) {}

    ScopedAStatus add(const std::shared_ptr<hub::IVelmoraHubConsumer>& consumer) override {
        std::lock_guard lock(mutex_);
        consumers_.push_back(consumer);
        return ScopedAStatus::ok();
    }

    ScopedAStatus push(const hub::VelmoraEvent& event) override {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(event);
        }
        filled_.notify_one();
        return ScopedAStatus::ok();
    }

  private:
    using Consumers = std::vector<std::shared_ptr<hub::IVelmoraHubConsumer>>;

    void Work() {
        for (Consumers consumers;;) {
            const hub::VelmoraEvent event = Take(&consumers);
            for (const auto& consumer : consumers)
                consumer->onSignalUpdate(event);
        }
    }

    // The oldest event, once there is one; brings the caller's list of consumers up to date.
    hub::VelmoraEvent Take(Consumers* consumers) {
        std::unique_lock lock(mutex_);
        ::android::base::ScopedLockAssertion held(mutex_);
        filled_.wait(lock, [this] {
            ::android::base::ScopedLockAssertion held_by_wait(mutex_);
            return !queue_.empty();
        });
        hub::VelmoraEvent event = std::move(queue_.front());
        queue_.pop_front();
        if (consumers->size() != consumers_.size()) *consumers = consumers_;
        return event;
    }

    std::mutex mutex_;
    std::condition_variable filled_;
    std::deque<hub::VelmoraEvent> queue_ GUARDED_BY(mutex_);
    Consumers consumers_ GUARDED_BY(mutex_);
    std::thread worker_;  // last: it uses the others
};

}  // namespace

int main() {
    ABinderProcess_startThreadPool();
    const auto relay = ndk::SharedRefBase::make<Relay>();
    if (AServiceManager_addService(relay->asBinder().get(), Relay::descriptor) != EX_NONE) return 1;
    ABinderProcess_joinThreadPool();
    _Exit(0);
}
