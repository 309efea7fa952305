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
        : worker_(std::move(worker)) {
    // The worker makes one dispatch at a time: an event allocates nothing here.
    dispatching_.reserve(1);
}

VelmoraHubConsumerManager::Entries& VelmoraHubConsumerManager::EntriesOf(int signalId) {
    Entries* const known = subscriptions_.Find(KeyOf(signalId));
    if (known != nullptr) return *known;
    subscriptions_.Put(KeyOf(signalId), {});
    return *subscriptions_.Find(KeyOf(signalId));
}

bool VelmoraHubConsumerManager::IsSubscribed(const std::shared_ptr<IVelmoraHubConsumer>& consumer,
                                             const Entries& entries) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Entry& other) { return other.consumer == consumer; });
}

void VelmoraHubConsumerManager::LeaveToDispatches(Entries& entries) {
    const Entry* const called = entries.data();
    std::shared_ptr<Entries> left;
    for (Dispatching* one : dispatching_) {
        if (one->entries.data() != called) continue;
        if (left == nullptr) {
            left = std::make_shared<Entries>(std::move(entries));
            entries.clear();
            for (Entry& entry : *left)
                entries.push_back({entry.consumer, entry.binder, entry.token_id,
                                   std::move(entry.subscription)});
        }
        one->left = left;
    }
}

bool VelmoraHubConsumerManager::Remove(uint32_t token_id, Entries& entries,
                                       std::shared_ptr<IVelmoraHubConsumer>* released) {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [=](const Entry& one) { return one.token_id == token_id; });
    if (found == entries.end()) return false;
    const auto place = found - entries.begin();
    LeaveToDispatches(entries);
    *released = std::move(entries[static_cast<size_t>(place)].subscription->consumer);
    entries.erase(entries.begin() + place);
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
    // Of a signal of which nothing has been heard for long neither the slot nor the list is in a
    // cache: they are fetched while the token is made and the death tracked.
    subscriptions_.FetchAhead(KeyOf(signalId));
    // One that nobody but the caller holds is in no table, so that the list need not be read: every
    // consumer of another process is new.
    if (consumer.use_count() > 1 && IsSubscribed(consumer, EntriesOf(signalId)))
        return Refuse("Already subscribed");

    const auto token =
            ::ndk::SharedRefBase::make<ConsumerToken>(signalId, next_token_id_.fetch_add(1));
    Entries& entries = EntriesOf(signalId);
    __builtin_prefetch(entries.data() + entries.size(), /*write=*/1);
    // A death that comes at once waits for the mutex and finds the subscription.
    const ::ndk::SpAIBinder binder = consumer->asBinder();
    AIBinder_DeathRecipient* recipient = BinderDeathManager::TrackDeath(binder.get(), token, this);
    const bool is_first = entries.empty();
    LeaveToDispatches(entries);
    entries.push_back({consumer, binder.get(), static_cast<uint32_t>(token->token_id),
                       std::make_shared<Subscription>(token, consumer, recipient)});
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
    Entries* const entries = subscriptions_.Find(KeyOf(signal_id));
    if (entries == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag,
                            "Registration does not exist. No signal found.");
        return ScopedAStatus::ok();
    }
    if (!Remove(static_cast<uint32_t>(token->token_id), *entries, &released)) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "Registration did not exist.");
        return ScopedAStatus::ok();
    }
    if (entries->empty())
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

void VelmoraHubConsumerManager::FetchAhead(std::span<const Entry> entries) {
    for (const Entry& entry : entries) {
        __builtin_prefetch(entry.consumer.get());
        __builtin_prefetch(entry.binder);
    }
}

template <typename F>
void VelmoraHubConsumerManager::Dispatch(int signalId, const F& notify) {
    // What it is left goes with it, without the mutex: a consumer's destructor is free to call the
    // hub.
    Dispatching dispatching;
    Begin(signalId, &dispatching);
    FetchAhead(dispatching.entries);
    for (const Entry& entry : dispatching.entries) {
        if (entry.consumer == nullptr)
            __android_log_print(ANDROID_LOG_WARN, kLogTag,
                                "Invalid consumer attached to subscription. Will not notify.");
        else
            notify(*entry.consumer);
    }
    End(&dispatching);
}

void VelmoraHubConsumerManager::Begin(int signalId, Dispatching* dispatching) {
    std::lock_guard lock(mutex_);
    const Entries& entries = EntriesOf(signalId);
    if (entries.empty()) return;
    dispatching->entries = entries;
    dispatching_.push_back(dispatching);
}

void VelmoraHubConsumerManager::End(Dispatching* dispatching) {
    std::lock_guard lock(mutex_);
    const auto found = std::find(dispatching_.begin(), dispatching_.end(), dispatching);
    if (found != dispatching_.end()) dispatching_.erase(found);
}

binder_status_t VelmoraHubConsumerManager::dump(int fd, const char** /*args*/,
                                                uint32_t /*numArgs*/) {
    if (fd < 0) return STATUS_BAD_VALUE;
    dprintf(fd, "VelmoraHubConsumerManager State:\n");
    std::lock_guard lock(mutex_);
    if (subscriptions_.IsEmpty()) dprintf(fd, "  No active subscriptions.\n");
    subscriptions_.ForEach([=](uint64_t key, const Entries& entries) {
        dprintf(fd, "  Signal ID: %d\n", static_cast<int32_t>(key));
        for (const Entry& entry : entries)
            dprintf(fd, "    Consumer Token ID: %d\n", static_cast<int32_t>(entry.token_id));
    });
    return STATUS_OK;
}

}  // namespace aidl::vendor::quorin::velmora_hub
