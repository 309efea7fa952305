// The hub's service for consumers: any number of subscriptions per signal id, each watched for its
// consumer's death; news of a signal handed to every consumer of it.
//
// Threads: the binder methods, dump and HandleBinderDeath may be called from any thread, any number
// at once, from inside a consumer's or producer's callback or destructor too. The dispatch
// functions are the worker thread's. The mutex is held for changes and lookups only: no client is
// called and none is released under it. Lock order: mutex_, then the locks of the death tracking,
// of the tokens and of the worker's queue.
//
// What a consumer may rely on: it is called by one thread at a time, in the order of the news. A
// dispatch calls those that were subscribed when it began. So an unsubscribe, a death and a
// subscribe count from the next dispatch on: a callback that has begun goes on, and one that its
// dispatch had still to make may follow after unsubscribe has returned, from that one dispatch
// only. The consumer is referenced until that dispatch ends, its subscription is not.
//
// Ownership: tasks and death links hold a plain pointer to the manager, so it outlives its worker's
// tasks and the last callback of a death.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumerManager.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubConsumer.h>
#include <aidl/vendor/quorin/velmora_hub/VelmoraEvent.h>
#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "consumer_manager_listener.h"
#include "consumer_token.h"
#include "death_handler.h"
#include "flat_table.h"
#include "worker/worker_thread.h"

namespace aidl::vendor::quorin::velmora_hub {

class VelmoraHubConsumerManager : public BnVelmoraHubConsumerManager, public DeathHandler {
  public:
    using WorkerThread = ::aidl::android::hardware::biometrics::WorkerThread;

    // Use ndk::SharedRefBase::make.
    explicit VelmoraHubConsumerManager(std::shared_ptr<WorkerThread> worker);

    // Lists the subscriptions on `fd`, which stays the caller's and is written to with the mutex
    // held: a descriptor that blocks holds up the hub. STATUS_BAD_VALUE for a negative one.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // Adds a subscription of `consumer` (not null) to the signal, which need not have a producer;
    // `*out` becomes the token. EX_ILLEGAL_ARGUMENT if `*out` holds one already, or if this very
    // object is subscribed to the signal; neither changes anything. A consumer of another process
    // comes as a new object with each call, so it may subscribe twice. A consumer whose death
    // cannot be watched is subscribed all the same.
    ::ndk::ScopedAStatus subscribe(int32_t signalId,
                                   const std::shared_ptr<IVelmoraHubConsumer>& consumer,
                                   std::shared_ptr<IToken>* out) override;

    // Ends the token's subscription; OK too if it has ended before. EX_ILLEGAL_ARGUMENT for a token
    // that is null or not this manager's. The subscription is destroyed, and the consumer released
    // unless a dispatch is under way, before the call returns.
    ::ndk::ScopedAStatus unsubscribe(const std::shared_ptr<IToken>& token) override;

    // Queues a request to the producer of the token's signal, also when the subscription has ended.
    // EX_ILLEGAL_ARGUMENT as for unsubscribe. Takes no lock of the manager.
    ::ndk::ScopedAStatus requestSignalUpdate(const std::shared_ptr<IToken>& token) override;

    // Once, before the first other call; takes no lock. Without a listener nothing is reported.
    void RegisterListener(const std::shared_ptr<ConsumerManagerListener>& listener);

    void HandleBinderDeath(const std::shared_ptr<IToken>& token) override;

    // Each calls the consumers of the signal in the order of the table, on the calling thread and
    // without a lock, and drops their statuses. Subscriptions stay as they are.
    virtual void DispatchSignalAvailable(int signalId);
    virtual void DispatchSignalUnavailable(int signalId, IVelmoraHubConsumer::SignalError error);
    virtual void DispatchSignalUpdate(int signalId, VelmoraEvent event);

  private:
    struct Subscription;
    struct Entry {
        std::shared_ptr<IVelmoraHubConsumer> consumer;
        // The consumer's own. Fetched ahead of a call, never used.
        const AIBinder* binder;
        uint32_t token_id;
        // The only owner.
        std::shared_ptr<Subscription> subscription;
    };
    // One signal's table, in the order of the subscriptions. Where there are many signals, each
    // place in memory that a call has to look for costs as much as a tenth of the call: a subscribe
    // needs two, the signal's slot and the end of its list, and fetches both ahead.
    using Entries = std::vector<Entry>;

    // A dispatch under way. It calls from the signal's own list, without the mutex and without a
    // copy; whoever changes the list meanwhile leaves it to the dispatch and goes on with another.
    struct Dispatching {
        std::span<const Entry> entries;
        // The list that it calls from, once it is the signal's no more.
        std::shared_ptr<const Entries> left;
    };

    // A signal's key in the table: never zero.
    static uint64_t KeyOf(int signalId) {
        return uint64_t{1} << 32 | static_cast<uint32_t>(signalId);
    }
    // The signal's list, made if there is none.
    Entries& EntriesOf(int signalId) REQUIRES(mutex_);
    static bool IsSubscribed(const std::shared_ptr<IVelmoraHubConsumer>& consumer,
                             const Entries& entries);
    // Before any change: the list becomes a copy of itself if a dispatch calls from it, which keeps
    // the consumers and not the subscriptions.
    void LeaveToDispatches(Entries& entries) REQUIRES(mutex_);
    // Destroys the subscription but for its consumer, which goes to `*released`. False if there is
    // none.
    bool Remove(uint32_t token_id, Entries& entries, std::shared_ptr<IVelmoraHubConsumer>* released)
            REQUIRES(mutex_);

    ::ndk::ScopedAStatus InternalUnsubscribe(const std::shared_ptr<ConsumerToken>& token)
            EXCLUDES(mutex_);

    // Consumers of a signal that has not been heard of for long are in no cache: all are fetched at
    // once, as each would be waited for otherwise, one after the other.
    static void FetchAhead(std::span<const Entry> entries);

    // Calls `notify` with each consumer of the signal.
    template <typename F>
    void Dispatch(int signalId, const F& notify) EXCLUDES(mutex_);

    // Between them the signal's list stays as it is for the dispatch.
    void Begin(int signalId, Dispatching* dispatching) EXCLUDES(mutex_);
    void End(Dispatching* dispatching) EXCLUDES(mutex_);

    // Hands the function to the worker; a full queue loses it.
    template <typename F>
    void Schedule(F&& task);

    // A signal's list, once made, stays.
    FlatTable<uint64_t, Entries> subscriptions_ GUARDED_BY(mutex_);
    std::vector<Dispatching*> dispatching_ GUARDED_BY(mutex_);
    std::mutex mutex_;
    std::atomic<int32_t> next_token_id_{1};
    // Set before there are tasks; only they read it.
    std::shared_ptr<ConsumerManagerListener> listener_;
    std::shared_ptr<WorkerThread> worker_;
};

}  // namespace aidl::vendor::quorin::velmora_hub
