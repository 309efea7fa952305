// What this process has published, and the thread that publishes it again with each new service
// manager. One object per process, never destroyed. Any thread.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_auto_utils.h>
#include <sys/types.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "connection.h"

namespace host {

class Publications {
  public:
    static Publications& Get();

    Connection& connection() { return connection_; }

    // As AServiceManager_addService, for a valid name and an object.
    binder_exception_t Publish(const std::string& name, const ndk::SpAIBinder& service)
            EXCLUDES(order_, mutex_);

  private:
    struct Publication {
        ndk::SpAIBinder service;
        uint64_t generation = 0;  // of the service manager that knows it
    };

    Publications();

    binder_status_t Send(const Connection::Manager& manager, const std::string& name,
                         const ndk::SpAIBinder& service, AddReply* reply) REQUIRES(order_);
    void Remember(const std::string& name, const ndk::SpAIBinder& service, uint64_t generation)
            EXCLUDES(mutex_);

    void RunAnnouncer() EXCLUDES(order_, mutex_);
    // Until there is work; not longer than a second if the last attempt failed.
    void WaitForWork(bool failed) EXCLUDES(mutex_);
    void Wake() EXCLUDES(mutex_);
    // False, with a sentence that says why: it has to be tried again.
    bool AnnounceAll(std::string* error) EXCLUDES(order_, mutex_);
    // As Connection::Transact; what has failed is still to be announced.
    binder_status_t AnnounceNext(const Connection::Manager& manager, bool* more)
            EXCLUDES(order_, mutex_);
    // One that the service manager of this generation does not know yet; null if there is none.
    ndk::SpAIBinder FindUnknown(uint64_t generation, std::string* name) EXCLUDES(mutex_);
    void NoteKnown(const std::string& name, uint64_t generation) EXCLUDES(mutex_);
    void Forget(const std::string& name) EXCLUDES(mutex_);

    // A forked child has no announcer, and may have been made while that held the mutex.
    const pid_t owner_;
    Connection connection_;

    // Held while one name is being published: what this process says about a name arrives in the
    // order in which it is remembered. The service manager calls nobody, so nothing comes back for
    // it.
    std::mutex order_ ACQUIRED_BEFORE(mutex_);

    std::mutex mutex_;
    std::condition_variable work_;
    std::map<std::string, Publication> published_ GUARDED_BY(mutex_);
    bool has_work_ GUARDED_BY(mutex_) = false;
    std::thread announcer_ GUARDED_BY(mutex_);  // started by the first publication
};

}  // namespace host
