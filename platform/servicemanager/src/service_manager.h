// The service manager's object: answers the calls of its clients, each on whatever thread brings
// it. One mutex guards its tables; nothing is sent, released or unlinked under it, since any of
// these may call back.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host.h"
#include "manifest.h"
#include "protocol.h"
#include "service_table.h"
#include "waiter_list.h"

namespace host {

class ServiceManager : public ServiceManagerStub {
  public:
    // How long kGetService waits for a declared service.
    static constexpr std::chrono::seconds kGetLimit{5};

    explicit ServiceManager(Manifest manifest, std::chrono::milliseconds get_limit = kGetLimit);

    // Nothing may call any more. Waiting callers get an error.
    ~ServiceManager() override;
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // The object that clients call, with a reference for the caller; ends before the manager.
    ndk::SpAIBinder NewBinder();

    // Never blocks: who has to wait gets an answer later (STATUS_INVALID_OPERATION for a caller
    // that cannot be answered later, one of this process).
    binder_status_t OnTransact(transaction_code_t code, const AParcel* in, AParcel* out) override
            EXCLUDES(mutex_);

  private:
    // The cookie of a publication's death link.
    struct Link {
        ServiceManager* const manager;
        const std::string name;
        const uint64_t id;
    };
    struct Service {
        ndk::SpAIBinder binder;
        Link* link;   // names the link, is never followed: its unlink callback deletes it; may be
                      // null
        uint64_t id;  // unique among all publications
    };
    using Table = ServiceTable<Service>;
    using Reply = std::unique_ptr<DeferredReply>;

    static bool IsLive(const Table::Entry& entry);

    binder_status_t Add(const AParcel* in, AParcel* out) EXCLUDES(mutex_);
    AddReply Publish(const AddRequest& request) EXCLUDES(mutex_);
    AddReply Enter(const std::string& name, const Service& service, pid_t pid) EXCLUDES(mutex_);
    AddReply Check(const AddRequest& request, pid_t caller) const;
    binder_status_t Find(transaction_code_t code, const AParcel* in, AParcel* out) EXCLUDES(mutex_);
    binder_status_t FindOrWait(const std::string& name, WaiterList<Reply>::Time deadline,
                               ndk::SpAIBinder* service, bool* waits) EXCLUDES(mutex_);
    binder_status_t List(const AParcel* in, AParcel* out) EXCLUDES(mutex_);

    // Ends the link of an entry that is in the table no more.
    void Forget(const Service& service);
    void Withdraw(const std::string& name, uint64_t id) EXCLUDES(mutex_);
    static void Answer(std::vector<Reply> waiters, const ndk::SpAIBinder& service);

    void RunExpiry() EXCLUDES(mutex_);
    std::vector<Reply> NextExpired() EXCLUDES(mutex_);

    const Manifest manifest_;
    const std::chrono::milliseconds get_limit_;
    const ndk::ScopedAIBinder_DeathRecipient recipient_;
    std::atomic<uint64_t> last_id_{0};

    std::mutex mutex_;
    std::condition_variable expiry_changed_;
    Table table_ GUARDED_BY(mutex_);
    WaiterList<Reply> waiters_ GUARDED_BY(mutex_);
    bool stopping_ GUARDED_BY(mutex_) = false;

    std::thread expiry_;  // last: uses the members above
};

}  // namespace host
