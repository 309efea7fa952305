#include "signal_broker.h"

#include <android/log.h>

#include <utility>

namespace aidl::vendor::quorin::velmora_hub {

namespace {

using SignalError = IVelmoraHubConsumer::SignalError;

constexpr char kLogTag[] = "velmora_hal";
constexpr char kNoConsumer[] = "Invalid consumer. Can't update it.";

bool IsThere(const void* manager, const char* warning) {
    if (manager == nullptr) __android_log_print(ANDROID_LOG_WARN, kLogTag, "%s", warning);
    return manager != nullptr;
}

SignalError ErrorOf(SignalRemovedCause cause) {
    switch (cause) {
        case SignalRemovedCause::SOURCE_FAILED:
        case SignalRemovedCause::REPLACED:
        case SignalRemovedCause::UNREGISTERED:
            return static_cast<SignalError>(cause);
        case SignalRemovedCause::UNKNOWN:
            break;
    }
    return SignalError::UNKNOWN;
}

}  // namespace

SignalBroker::SignalBroker(std::shared_ptr<VelmoraHubProducerManager> producerManager,
                           std::shared_ptr<VelmoraHubConsumerManager> consumerManager)
        : producer_manager_(std::move(producerManager)),
          consumer_manager_(std::move(consumerManager)) {}

void SignalBroker::OnSignalAdded(int signalId) {
    if (IsThere(consumer_manager_.get(), kNoConsumer))
        consumer_manager_->DispatchSignalAvailable(signalId);
}

void SignalBroker::OnSignalRemoved(int signalId, SignalRemovedCause cause) {
    if (IsThere(consumer_manager_.get(), kNoConsumer))
        consumer_manager_->DispatchSignalUnavailable(signalId, ErrorOf(cause));
}

void SignalBroker::OnSignalUpdated(int signalId, const VelmoraEvent& event) {
    if (IsThere(consumer_manager_.get(), kNoConsumer))
        consumer_manager_->DispatchSignalUpdate(signalId, event);
}

void SignalBroker::OnSignalUpdateRequested(int signalId) {
    if (IsThere(producer_manager_.get(), "No producer manager registered."))
        producer_manager_->RequestSignalUpdate(signalId);
}

void SignalBroker::OnConsumerSubscriptionChanged(int signalId, bool hasConsumers) {
    if (IsThere(producer_manager_.get(), "Invalid producer. Can't update it."))
        producer_manager_->UpdateSubscriptionState(signalId, hasConsumers);
}

}  // namespace aidl::vendor::quorin::velmora_hub
