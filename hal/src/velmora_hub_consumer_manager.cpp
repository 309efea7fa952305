#include "velmora_hub_consumer_manager.h"

#include <android/binder_auto_utils.h>
#include <android/log.h>
#include <stdio.h>

#include <algorithm>
#include <utility>

#include "binder_death_manager.h"
#include "worker/callable.h"

namespace aidl::vendor::quorin::velmora_hub {

namespace {

using ::aidl::android::hardware::biometrics::Callable;
using ::ndk::ScopedAStatus;

constexpr char kLogTag[] = "velmora_hal";

ScopedAStatus Refuse(const char* message) {
    return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, message));
}

ScopedAStatus RefuseToken() {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Invalid token.");
    return Refuse("Invalid token state.");
}

}  // namespace

// Ends in reverse order: first the watch on the consumer.
struct VelmoraHubConsumerManager::Subscription {
    Subscription(std::shared_ptr<ConsumerToken> token,
                 const std::shared_ptr<IVelmoraHubConsumer>& consumer,
                 AIBinder_DeathRecipient* death_recipient)
            : token(std::move(token)), consumer(consumer), death_recipient(death_recipient) {}

    ~Subscription() {
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "Removing subscription: %d::%d",
                            token->signal_id, token->token_id);
    }

    std::shared_ptr<ConsumerToken> token;
    // Moved out before the record is destroyed, and released without the mutex.
    std::shared_ptr<IVelmoraHubConsumer> consumer;
    ::ndk::ScopedAIBinder_DeathRecipient death_recipient;
};

void VelmoraHubConsumerManager::Signal::Add(uint32_t token_id,
                                            std::shared_ptr<Subscription> subscription) {
    WritableConsumers().push_back(subscription->consumer);
    subscriptions.emplace_back(token_id, std::move(subscription));
}

bool VelmoraHubConsumerManager::Signal::Remove(uint32_t token_id,
                                               std::shared_ptr<IVelmoraHubConsumer>* released) {
    const auto found = std::find_if(subscriptions.begin(), subscriptions.end(),
                                    [=](const auto& entry) { return entry.first == token_id; });
    if (found == subscriptions.end()) return false;
    *released = std::move(found->second->consumer);
    Consumers& list = WritableConsumers();
    list.erase(list.begin() + (found - subscriptions.begin()));
    subscriptions.erase(found);
    return true;
}

VelmoraHubConsumerManager::Consumers& VelmoraHubConsumerManager::Signal::WritableConsumers() {
    if (consumers.use_count() > 1) consumers = std::make_shared<Consumers>(*consumers);
    return *consumers;
}

VelmoraHubConsumerManager::VelmoraHubConsumerManager(std::shared_ptr<WorkerThread> worker)
        : worker_(std::move(worker)) {}

template <typename F>
void VelmoraHubConsumerManager::Schedule(F&& task) {
    worker_->schedule(Callable::wrap(std::forward<F>(task)));
}

ScopedAStatus VelmoraHubConsumerManager::subscribe(
        int32_t signalId, const std::shared_ptr<IVelmoraHubConsumer>& consumer,
        std::shared_ptr<IToken>* out) {
    if (*out != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Repurposing a token is not supported.");
        return Refuse("Invalid token state.");
    }
    std::lock_guard lock(mutex_);
    Signal& signal = subscriptions_[signalId];
    for (const auto& other : *signal.consumers)
        if (other == consumer) return Refuse("Already subscribed");

    const bool is_first = signal.subscriptions.empty();
    const auto token =
            ::ndk::SharedRefBase::make<ConsumerToken>(signalId, next_token_id_.fetch_add(1));
    // A death that comes at once waits for the mutex and finds the subscription.
    AIBinder_DeathRecipient* recipient =
            BinderDeathManager::TrackDeath(consumer->asBinder().get(), token, this);
    signal.Add(token->token_id, std::make_shared<Subscription>(token, consumer, recipient));
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "New subscriber (%d::%d)", token->signal_id,
                        token->token_id);
    *out = token;
    if (is_first)
        Schedule([this, signalId] {
            if (listener_ != nullptr) listener_->OnConsumerSubscriptionChanged(signalId, true);
        });
    return ScopedAStatus::ok();
}

ScopedAStatus VelmoraHubConsumerManager::unsubscribe(const std::shared_ptr<IToken>& token) {
    const std::shared_ptr<ConsumerToken> consumer_token = ConsumerToken::From(token);
    if (consumer_token == nullptr) return RefuseToken();
    return InternalUnsubscribe(consumer_token);
}

ScopedAStatus VelmoraHubConsumerManager::InternalUnsubscribe(
        const std::shared_ptr<ConsumerToken>& token) {
    const int32_t signal_id = token->signal_id;
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "Unsubscribing s[%d]-t[%d]", signal_id,
                        token->token_id);
    // Outlives the lock: the consumer's destructor is free to call the hub.
    std::shared_ptr<IVelmoraHubConsumer> released;
    std::lock_guard lock(mutex_);
    const auto signal = subscriptions_.find(signal_id);
    if (signal == subscriptions_.end()) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag,
                            "Registration does not exist. No signal found.");
        return ScopedAStatus::ok();
    }
    if (!signal->second.Remove(token->token_id, &released)) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Registration did not exist.");
        return ScopedAStatus::ok();
    }
    if (signal->second.subscriptions.empty())
        Schedule([this, signal_id] {
            if (listener_ != nullptr) listener_->OnConsumerSubscriptionChanged(signal_id, false);
        });
    return ScopedAStatus::ok();
}

ScopedAStatus VelmoraHubConsumerManager::requestSignalUpdate(const std::shared_ptr<IToken>& token) {
    __android_log_print(ANDROID_LOG_INFO, kLogTag,
                        "requestSignalUpdate invoked. Not implemented yet!");
    const std::shared_ptr<ConsumerToken> consumer_token = ConsumerToken::From(token);
    if (consumer_token == nullptr) return RefuseToken();
    Schedule([this, signal_id = consumer_token->signal_id] {
        if (listener_ != nullptr) listener_->OnSignalUpdateRequested(signal_id);
    });
    return ScopedAStatus::ok();
}

void VelmoraHubConsumerManager::RegisterListener(
        const std::shared_ptr<ConsumerManagerListener>& listener) {
    listener_ = listener;
}

void VelmoraHubConsumerManager::HandleBinderDeath(const std::shared_ptr<IToken>& token) {
    if (!unsubscribe(token).isOk())
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Client died but failed to unsubscribe.");
}

void VelmoraHubConsumerManager::DispatchSignalAvailable(int signalId) {
    Dispatch(signalId,
             [=](IVelmoraHubConsumer& consumer) { consumer.onSignalAvailable(signalId); });
}

void VelmoraHubConsumerManager::DispatchSignalUnavailable(int signalId,
                                                          IVelmoraHubConsumer::SignalError error) {
    Dispatch(signalId,
             [=](IVelmoraHubConsumer& consumer) { consumer.onSignalUnavailable(signalId, error); });
}

void VelmoraHubConsumerManager::DispatchSignalUpdate(int signalId, VelmoraEvent event) {
    Dispatch(signalId, [&](IVelmoraHubConsumer& consumer) { consumer.onSignalUpdate(event); });
}

template <typename F>
void VelmoraHubConsumerManager::Dispatch(int signalId, const F& notify) {
    std::shared_ptr<const Consumers> consumers = TakeConsumers(signalId);
    for (const auto& consumer : *consumers) {
        if (consumer == nullptr)
            __android_log_print(ANDROID_LOG_WARN, kLogTag,
                                "Invalid consumer attached to subscription. Will not notify.");
        else
            notify(*consumer);
    }
    GiveBack(std::move(consumers));
}

std::shared_ptr<const VelmoraHubConsumerManager::Consumers>
VelmoraHubConsumerManager::TakeConsumers(int signalId) {
    std::lock_guard lock(mutex_);
    return subscriptions_[signalId].consumers;
}

void VelmoraHubConsumerManager::GiveBack(std::shared_ptr<const Consumers> consumers) {
    std::lock_guard lock(mutex_);
    if (consumers.use_count() > 1) consumers.reset();
}

binder_status_t VelmoraHubConsumerManager::dump(int fd, const char** /*args*/,
                                                uint32_t /*numArgs*/) {
    if (fd < 0) return STATUS_BAD_VALUE;
    dprintf(fd, "VelmoraHubConsumerManager State:\n");
    std::lock_guard lock(mutex_);
    if (subscriptions_.empty()) dprintf(fd, "  No active subscriptions.\n");
    for (const auto& [signal_id, signal] : subscriptions_) {
        dprintf(fd, "  Signal ID: %d\n", static_cast<int32_t>(signal_id));
        for (const auto& [token_id, subscription] : signal.subscriptions)
            dprintf(fd, "    Consumer Token ID: %d\n", static_cast<int32_t>(token_id));
    }
    return STATUS_OK;
}

}  // namespace aidl::vendor::quorin::velmora_hub
