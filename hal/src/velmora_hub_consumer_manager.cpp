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

VelmoraHubConsumerManager::VelmoraHubConsumerManager(std::shared_ptr<WorkerThread> worker)
        : worker_(std::move(worker)) {}

std::shared_ptr<VelmoraHubConsumerManager::Signal>& VelmoraHubConsumerManager::EntryOf(
        int signalId) {
    std::shared_ptr<Signal>* entry = subscriptions_.Find(static_cast<uint32_t>(signalId));
    if (entry != nullptr) return *entry;
    subscriptions_.Put(static_cast<uint32_t>(signalId), std::make_shared<Signal>());
    return *subscriptions_.Find(static_cast<uint32_t>(signalId));
}

VelmoraHubConsumerManager::Signal& VelmoraHubConsumerManager::Writable(
        std::shared_ptr<Signal>& entry) {
    if (entry.use_count() > 1)
        entry = std::make_shared<Signal>(Signal{entry->consumers, std::move(entry->subscriptions)});
    return *entry;
}

bool VelmoraHubConsumerManager::Remove(uint32_t token_id, std::shared_ptr<Signal>& entry,
                                       std::shared_ptr<IVelmoraHubConsumer>* released) {
    const auto& all = entry->subscriptions;
    const auto found = std::find_if(all.begin(), all.end(),
                                    [=](const auto& one) { return one.first == token_id; });
    if (found == all.end()) return false;
    const auto place = found - all.begin();
    Signal& signal = Writable(entry);
    *released = std::move(signal.subscriptions[static_cast<size_t>(place)].second->consumer);
    signal.consumers.erase(signal.consumers.begin() + place);
    signal.subscriptions.erase(signal.subscriptions.begin() + place);
    return true;
}

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
    std::shared_ptr<Signal>& entry = EntryOf(signalId);
    // One that nobody but the caller holds is in no table, so that the list of a signal of which
    // nothing has been heard for long need not be read: every consumer of another process is new.
    const auto& others = entry->consumers;
    if (consumer.use_count() > 1 &&
        std::find(others.begin(), others.end(), consumer) != others.end())
        return Refuse("Already subscribed");

    const bool is_first = entry->subscriptions.empty();
    const auto token =
            ::ndk::SharedRefBase::make<ConsumerToken>(signalId, next_token_id_.fetch_add(1));
    // A death that comes at once waits for the mutex and finds the subscription.
    AIBinder_DeathRecipient* recipient =
            BinderDeathManager::TrackDeath(consumer->asBinder().get(), token, this);
    Signal& signal = Writable(entry);
    signal.consumers.push_back(consumer);
    signal.subscriptions.emplace_back(token->token_id,
                                      std::make_shared<Subscription>(token, consumer, recipient));
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
    std::shared_ptr<Signal>* const entry = subscriptions_.Find(static_cast<uint32_t>(signal_id));
    if (entry == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag,
                            "Registration does not exist. No signal found.");
        return ScopedAStatus::ok();
    }
    if (!Remove(static_cast<uint32_t>(token->token_id), *entry, &released)) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Registration did not exist.");
        return ScopedAStatus::ok();
    }
    if ((*entry)->subscriptions.empty())
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
    std::shared_ptr<const Signal> signal = TakeTable(signalId);
    for (const auto& consumer : signal->consumers) {
        if (consumer == nullptr)
            __android_log_print(ANDROID_LOG_WARN, kLogTag,
                                "Invalid consumer attached to subscription. Will not notify.");
        else
            notify(*consumer);
    }
    GiveBack(std::move(signal));
}

std::shared_ptr<const VelmoraHubConsumerManager::Signal> VelmoraHubConsumerManager::TakeTable(
        int signalId) {
    std::lock_guard lock(mutex_);
    return EntryOf(signalId);
}

void VelmoraHubConsumerManager::GiveBack(std::shared_ptr<const Signal> signal) {
    std::lock_guard lock(mutex_);
    if (signal.use_count() > 1) signal.reset();
}

binder_status_t VelmoraHubConsumerManager::dump(int fd, const char** /*args*/,
                                                uint32_t /*numArgs*/) {
    if (fd < 0) return STATUS_BAD_VALUE;
    dprintf(fd, "VelmoraHubConsumerManager State:\n");
    std::lock_guard lock(mutex_);
    if (subscriptions_.IsEmpty()) dprintf(fd, "  No active subscriptions.\n");
    subscriptions_.ForEach([=](uint32_t signal_id, const std::shared_ptr<Signal>& signal) {
        dprintf(fd, "  Signal ID: %d\n", static_cast<int32_t>(signal_id));
        for (const auto& [token_id, subscription] : signal->subscriptions)
            dprintf(fd, "    Consumer Token ID: %d\n", static_cast<int32_t>(token_id));
    });
    return STATUS_OK;
}

}  // namespace aidl::vendor::quorin::velmora_hub
