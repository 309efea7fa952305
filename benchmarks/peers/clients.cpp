#include "clients.h"

#include <aidl/velmora/peers/IRelay.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducerManager.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <chrono>
#include <optional>
#include <thread>
#include <utility>

namespace peers {

namespace {

using aidl::velmora::peers::IRelay;
using aidl::velmora::peers::events::Bytes;
using ::ndk::ScopedAStatus;

constexpr std::chrono::seconds kRegistrationLimit{5};
constexpr std::chrono::milliseconds kRegistrationPause{1};

template <typename Manager>
std::string InstanceOf() {
    return std::string(Manager::descriptor) + "/default";
}

template <typename Service>
std::shared_ptr<Service> WaitFor(const std::string& name) {
    return Service::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(name.c_str())));
}

// Pushes whether anybody listens or not.
class Producer : public hub::BnVelmoraHubProducer {
  public:
    ScopedAStatus onClientsUpdated(bool /*hasClients*/) override { return ScopedAStatus::ok(); }
    ScopedAStatus nudge() override { return ScopedAStatus::ok(); }
};

class Consumer : public hub::BnVelmoraHubConsumer {
  public:
    explicit Consumer(OnBytes on_bytes) : on_bytes_(std::move(on_bytes)) {}

    ScopedAStatus onSignalAvailable(int32_t /*signalId*/) override { return ScopedAStatus::ok(); }
    ScopedAStatus onSignalUnavailable(int32_t /*signalId*/, SignalError /*error*/) override {
        return ScopedAStatus::ok();
    }
    // An event without bytes is handed on as one: whoever counts finds it too short.
    ScopedAStatus onSignalUpdate(const hub::VelmoraEvent& event) override {
        std::optional<Bytes> bytes;
        event.payload.getParcelable(&bytes);
        if (!bytes) bytes.emplace();
        on_bytes_(reinterpret_cast<const uint8_t*>(bytes->data.data()), bytes->data.size());
        return ScopedAStatus::ok();
    }

  private:
    const OnBytes on_bytes_;
};

ScopedAStatus Register(hub::IVelmoraHubProducerManager& manager, int32_t signal,
                       std::shared_ptr<hub::IToken>* token) {
    hub::SignalDescriptor descriptor;
    descriptor.signalId = signal;
    const auto producer = ndk::SharedRefBase::make<Producer>();
    const auto deadline = std::chrono::steady_clock::now() + kRegistrationLimit;
    for (;;) {
        ScopedAStatus status = manager.registerProducer(descriptor, producer, token);
        const bool is_taken = status.getExceptionCode() == EX_ILLEGAL_STATE;
        if (!is_taken || std::chrono::steady_clock::now() > deadline) return status;
        std::this_thread::sleep_for(kRegistrationPause);
    }
}

Push ProducerOfHub(int32_t signal, std::string* error) {
    const auto manager =
            WaitFor<hub::IVelmoraHubProducerManager>(InstanceOf<hub::IVelmoraHubProducerManager>());
    if (manager == nullptr) return (*error = "no producer manager", nullptr);
    std::shared_ptr<hub::IToken> token;
    const ScopedAStatus status = Register(*manager, signal, &token);
    if (!status.isOk()) return (*error = status.getDescription(), nullptr);
    return [manager, token](const hub::VelmoraEvent& event) {
        return manager->updateSignal(token, event);
    };
}

Push ProducerOfRelay(std::string* error) {
    const auto relay = WaitFor<IRelay>(IRelay::descriptor);
    if (relay == nullptr) return (*error = "no relay", nullptr);
    return [relay](const hub::VelmoraEvent& event) { return relay->push(event); };
}

ScopedAStatus SubscribeAt(Broker broker, int32_t signal,
                          const std::shared_ptr<hub::IVelmoraHubConsumer>& consumer) {
    if (broker == Broker::kRelay) {
        const auto relay = WaitFor<IRelay>(IRelay::descriptor);
        return relay ? relay->add(consumer) : ScopedAStatus::fromStatus(STATUS_NAME_NOT_FOUND);
    }
    const auto manager =
            WaitFor<hub::IVelmoraHubConsumerManager>(InstanceOf<hub::IVelmoraHubConsumerManager>());
    if (manager == nullptr) return ScopedAStatus::fromStatus(STATUS_NAME_NOT_FOUND);
    std::shared_ptr<hub::IToken> token;  // let go: the subscription does not hang on it
    return manager->subscribe(signal, consumer, &token);
}

}  // namespace

std::string ServiceName(Broker broker) {
    return broker == Broker::kHub ? InstanceOf<hub::IVelmoraHubProducerManager>()
                                  : IRelay::descriptor;
}

Push ConnectProducer(Broker broker, int32_t signal, std::string* error) {
    ABinderProcess_startThreadPool();
    return broker == Broker::kHub ? ProducerOfHub(signal, error) : ProducerOfRelay(error);
}

const hub::VelmoraEvent& Message::Fill(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    bytes_.data.assign(bytes, bytes + size);
    event_.payload.setParcelable(bytes_);
    return event_;
}

std::shared_ptr<hub::IVelmoraHubConsumer> Subscribe(Broker broker, int32_t signal, OnBytes on_bytes,
                                                    std::string* error) {
    ABinderProcess_startThreadPool();
    const auto consumer = ndk::SharedRefBase::make<Consumer>(std::move(on_bytes));
    const ScopedAStatus status = SubscribeAt(broker, signal, consumer);
    if (status.isOk()) return consumer;
    *error = status.getDescription();
    return nullptr;
}

}  // namespace peers
