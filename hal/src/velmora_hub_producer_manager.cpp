#include "velmora_hub_producer_manager.h"

#include <android/binder_auto_utils.h>
#include <android/log.h>
#include <stdio.h>

#include <utility>

#include "binder_death_manager.h"
#include "worker/callable.h"

namespace aidl::vendor::quorin::velmora_hub {

namespace {

using ::aidl::android::hardware::biometrics::Callable;
using ::ndk::ScopedAStatus;

constexpr char kLogTag[] = "velmora_hal";

ScopedAStatus Refuse(binder_exception_t exception, const char* message) {
    return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
}

ScopedAStatus RefuseToken() {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Invalid token.");
    return Refuse(EX_ILLEGAL_ARGUMENT, "Invalid token.");
}

void WarnOfMissingProducer() {
    __android_log_print(ANDROID_LOG_WARN, kLogTag,
                        "Invalid producer attached to registration. Will not notify.");
}

}  // namespace

// Ends in reverse order: first the watch on the producer.
struct VelmoraHubProducerManager::Registration {
    Registration(std::shared_ptr<ProducerToken> token,
                 const std::shared_ptr<IVelmoraHubProducer>& producer,
                 const SignalDescriptor& descriptor, AIBinder_DeathRecipient* death_recipient)
            : signal_id(descriptor.signalId),
              token(std::move(token)),
              producer(producer),
              descriptor(descriptor),
              death_recipient(death_recipient) {}

    int32_t signal_id;
    std::shared_ptr<ProducerToken> token;
    // Moved out before the record is destroyed, and released without the mutex.
    std::shared_ptr<IVelmoraHubProducer> producer;
    SignalDescriptor descriptor;
    ::ndk::ScopedAIBinder_DeathRecipient death_recipient;
};

VelmoraHubProducerManager::VelmoraHubProducerManager(std::shared_ptr<WorkerThread> worker)
        : worker_(std::move(worker)) {}

template <typename F>
void VelmoraHubProducerManager::Schedule(F&& task) {
    worker_->schedule(Callable::wrap(std::forward<F>(task)));
}

ScopedAStatus VelmoraHubProducerManager::registerProducer(
        const SignalDescriptor& descriptor, const std::shared_ptr<IVelmoraHubProducer>& producer,
        std::shared_ptr<IToken>* out) {
    if (*out != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Repurposing a token is not supported.");
        return Refuse(EX_ILLEGAL_ARGUMENT, "Invalid token.");
    }
    const int32_t signal_id = descriptor.signalId;
    std::lock_guard lock(mutex_);
    if (registrations_.count(signal_id) != 0) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag,
                            "Signal already registered. Request denied.");
        return Refuse(EX_ILLEGAL_STATE, "Signal already registered.");
    }
    const auto token =
            ::ndk::SharedRefBase::make<ProducerToken>(signal_id, next_token_id_.fetch_add(1));
    // A death that comes at once waits for the mutex and finds the registration.
    AIBinder_DeathRecipient* recipient =
            BinderDeathManager::TrackDeath(producer->asBinder().get(), token, this);
    registrations_[signal_id] =
            std::make_shared<Registration>(token, producer, descriptor, recipient);
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "addSignal invoked");
    *out = token;
    Schedule([this, signal_id] {
        if (listener_ != nullptr) listener_->OnSignalAdded(signal_id);
    });
    return ScopedAStatus::ok();
}

ScopedAStatus VelmoraHubProducerManager::updateSignal(const std::shared_ptr<IToken>& token,
                                                      const VelmoraEvent& event) {
    std::shared_ptr<ProducerToken> producer_token = ProducerToken::From(token);
    if (producer_token == nullptr) return RefuseToken();
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "schedule update: %p",
                        static_cast<const void*>(&event));
    Schedule([this, token = std::move(producer_token), event = VelmoraEvent(event)] {
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "update invoked: %p",
                            static_cast<const void*>(&event));
        if (listener_ != nullptr) listener_->OnSignalUpdated(token->signal_id, event);
    });
    return ScopedAStatus::ok();
}

ScopedAStatus VelmoraHubProducerManager::unregisterProducer(const std::shared_ptr<IToken>& token) {
    const std::shared_ptr<ProducerToken> producer_token = ProducerToken::From(token);
    if (producer_token == nullptr) return RefuseToken();
    return InternalUnregister(producer_token);
}

ScopedAStatus VelmoraHubProducerManager::InternalUnregister(
        const std::shared_ptr<ProducerToken>& token) {
    const int32_t signal_id = token->signal_id;
    // Outlives the lock: the producer's destructor is free to call the hub.
    std::shared_ptr<IVelmoraHubProducer> released;
    std::lock_guard lock(mutex_);
    const auto registration = registrations_.find(signal_id);
    if (registration == registrations_.end()) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Unknown signal cannot be removed.");
    } else {
        released = std::move(registration->second->producer);
        registrations_.erase(registration);
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "Removed signal p:%d s:%d", token->token_id,
                            signal_id);
    }
    Schedule([this, signal_id] {
        if (listener_ != nullptr)
            listener_->OnSignalRemoved(signal_id, SignalRemovedCause::UNREGISTERED);
    });
    return ScopedAStatus::ok();
}

void VelmoraHubProducerManager::HandleBinderDeath(const std::shared_ptr<IToken>& token) {
    if (!unregisterProducer(token).isOk())
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Producer died and failed to unsubscribe.");
}

void VelmoraHubProducerManager::RegisterListener(
        const std::shared_ptr<ProducerManagerListener>& listener) {
    listener_ = listener;
}

bool VelmoraHubProducerManager::FindProducer(int signal_id,
                                             std::shared_ptr<IVelmoraHubProducer>* producer) {
    std::lock_guard lock(mutex_);
    const auto registration = registrations_.find(signal_id);
    if (registration == registrations_.end()) return false;
    *producer = registration->second->producer;
    return true;
}

void VelmoraHubProducerManager::RequestSignalUpdate(int signal_id) {
    std::shared_ptr<IVelmoraHubProducer> producer;
    if (!FindProducer(signal_id, &producer)) return WarnOfMissingProducer();
    producer->nudge();
}

void VelmoraHubProducerManager::UpdateSubscriptionState(int signal_id, bool has_clients) {
    std::shared_ptr<IVelmoraHubProducer> producer;
    if (!FindProducer(signal_id, &producer)) return WarnOfMissingProducer();
    producer->onClientsUpdated(has_clients);
}

binder_status_t VelmoraHubProducerManager::dump(int fd, const char** /*args*/,
                                                uint32_t /*numArgs*/) {
    if (fd < 0) return STATUS_BAD_VALUE;
    dprintf(fd, "VelmoraHubProducerManager State:\n");
    std::lock_guard lock(mutex_);
    if (registrations_.empty()) dprintf(fd, "  No registered producers.\n");
    for (const auto& [signal_id, registration] : registrations_) {
        dprintf(fd, "  Signal ID: %d\n", static_cast<int32_t>(signal_id));
        if (registration == nullptr) continue;
        dprintf(fd, "    Producer Token ID: %d\n    TTL: %ld ms\n", registration->token->token_id,
                static_cast<long>(registration->descriptor.ttlMs));
    }
    return STATUS_OK;
}

}  // namespace aidl::vendor::quorin::velmora_hub
