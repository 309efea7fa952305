// The hub's service for producers: one registration per signal id, watched for the producer's
// death; every change reported to one listener from the hub's worker thread.
//
// Threads: the binder methods, dump and HandleBinderDeath may be called from any thread, any number
// at once, from inside a producer's or consumer's callback or destructor too. The mutex is held
// for changes and lookups only: no client is called and none is released under it. Lock order:
// mutex_, then the locks of the death tracking, of the tokens and of the worker's queue.
//
// Ownership: tasks and death links hold a plain pointer to the manager, so it outlives its worker's
// tasks and the last callback of a death.

#pragma once

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubProducerManager.h>
#include <aidl/vendor/quorin/velmora_hub/IVelmoraHubProducer.h>
#include <aidl/vendor/quorin/velmora_hub/SignalDescriptor.h>
#include <android-base/thread_annotations.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "death_handler.h"
#include "producer_manager_listener.h"
#include "producer_token.h"
#include "worker/worker_thread.h"

namespace aidl::vendor::quorin::velmora_hub {

class VelmoraHubProducerManager : public BnVelmoraHubProducerManager, public DeathHandler {
  public:
    using WorkerThread = ::aidl::android::hardware::biometrics::WorkerThread;

    // Use ndk::SharedRefBase::make.
    explicit VelmoraHubProducerManager(std::shared_ptr<WorkerThread> worker);

    // Lists the registrations on `fd`, which stays the caller's and is written to with the mutex
    // held: a descriptor that blocks holds up the hub. STATUS_BAD_VALUE for a negative one.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // Makes `producer` (not null) the only source of `descriptor.signalId`; `*out` becomes the
    // token. EX_ILLEGAL_ARGUMENT if `*out` holds one already, EX_ILLEGAL_STATE if the id is taken;
    // neither changes anything. Calls nothing on the producer, also if the signal has consumers. A
    // producer whose death cannot be watched is registered all the same.
    ::ndk::ScopedAStatus registerProducer(const SignalDescriptor& descriptor,
                                          const std::shared_ptr<IVelmoraHubProducer>& producer,
                                          std::shared_ptr<IToken>* out) override;

    // Queues a copy of `event` for the consumers of the token's signal, whatever the event names,
    // also when the token's registration has ended. EX_ILLEGAL_ARGUMENT for a token that is null or
    // not this manager's. Takes no lock of the manager and looks at none of its tables; recognising
    // the token takes the leaf lock of the living tokens, shared. OK does not promise delivery: an
    // event that finds the worker's queue full is lost.
    ::ndk::ScopedAStatus updateSignal(const std::shared_ptr<IToken>& token,
                                      const VelmoraEvent& event) override;

    // Ends the registration of the token's signal, whoever holds it, and tells the listener; OK too
    // if there is none. EX_ILLEGAL_ARGUMENT as for updateSignal. The producer is released before
    // the call returns, unless the worker has just looked it up to call it: that one callback may
    // follow, and the reference ends with it.
    ::ndk::ScopedAStatus unregisterProducer(const std::shared_ptr<IToken>& token) override;

    void HandleBinderDeath(const std::shared_ptr<IToken>& token) override;

    // Once, before the first other call; takes no lock. Without a listener nothing is reported.
    virtual void RegisterListener(const std::shared_ptr<ProducerManagerListener>& listener);

    // Both call the signal's producer, without a lock, and drop its status; without a producer they
    // log a warning. The call goes to the one that was registered when they began.
    virtual void RequestSignalUpdate(int signal_id);
    virtual void UpdateSubscriptionState(int signal_id, bool has_clients);

  private:
    struct Registration;

    ::ndk::ScopedAStatus InternalUnregister(const std::shared_ptr<ProducerToken>& token)
            EXCLUDES(mutex_);
    // False if the signal is not registered; `*producer` is left alone then.
    bool FindProducer(int signal_id, std::shared_ptr<IVelmoraHubProducer>* producer)
            EXCLUDES(mutex_);

    // Hands the function to the worker; a full queue loses it.
    template <typename F>
    void Schedule(F&& task);

    // By signal id. The only owner of the registrations.
    std::unordered_map<uint32_t, std::shared_ptr<Registration>> registrations_ GUARDED_BY(mutex_);
    std::mutex mutex_;
    std::atomic<int32_t> next_token_id_{1};
    // Set before there are tasks; only they read it.
    std::shared_ptr<ProducerManagerListener> listener_;
    std::shared_ptr<WorkerThread> worker_;
};

}  // namespace aidl::vendor::quorin::velmora_hub
