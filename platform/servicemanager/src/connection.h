// This process's way to the service manager: finds it, waits for it, and notices when it dies. Any
// thread. Nothing is called while a lock is held.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "protocol.h"

namespace host {

class Connection {
  public:
    // A service manager, and how many there were up to this one.
    struct Manager {
        ndk::SpAIBinder binder;
        uint64_t generation = 0;
    };

    using Write = std::function<binder_status_t(AParcel*)>;
    using Read = std::function<binder_status_t(const AParcel*)>;

    // `on_loss` is called on any thread each time a service manager is found to be dead.
    explicit Connection(std::function<void()> on_loss);
    Connection(const Connection&) = delete;  // and never destroyed: death links name it
    Connection& operator=(const Connection&) = delete;

    // Waits until a service manager runs. `purpose` says in the log what waits; "" waits silently.
    // Not STATUS_OK: the runtime folder cannot be used, and `*error` is a sentence that says why.
    binder_status_t WaitForManager(const std::string& purpose, Manager* manager, std::string* error)
            EXCLUDES(mutex_);

    // One two-way call. STATUS_DEAD_OBJECT: this service manager is dead, and the connection has
    // noticed. STATUS_WOULD_BLOCK: it has ended a connection, and lives as far as is known.
    binder_status_t Transact(const Manager& manager, transaction_code_t code, const Write& write,
                             const Read& read) EXCLUDES(mutex_);

    // Whether that status of Transact asks for another attempt, for which it is time now: waits a
    // moment if the same service manager is asked again.
    static bool ShallTryAgain(binder_status_t status);

    // WaitForManager and Transact until a service manager has lived through the call. Logs
    // failures.
    binder_status_t Call(const std::string& purpose, transaction_code_t code, const Write& write,
                         const Read& read, std::string* error) EXCLUDES(mutex_);

  private:
    struct DeathCookie;
    class Patience;

    binder_status_t WaitForManager(Patience* patience, Manager* manager, std::string* error)
            EXCLUDES(mutex_);
    binder_status_t Find(Manager* manager, std::string* error) EXCLUDES(mutex_);
    bool Adopt(ndk::SpAIBinder binder, Manager* manager) EXCLUDES(mutex_);
    void Lose(uint64_t generation) EXCLUDES(mutex_);

    const std::function<void()> on_loss_;
    AIBinder_DeathRecipient* const recipient_;

    std::mutex mutex_;
    Manager manager_ GUARDED_BY(mutex_);  // without a binder while none is known
};

}  // namespace host
