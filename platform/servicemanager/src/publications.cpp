#define LOG_TAG "servicemanager"

#include "publications.h"

#include <android-base/logging.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <utility>

namespace host {

Publications& Publications::Get() {
    static auto* publications = new Publications();
    return *publications;
}

Publications::Publications() : owner_(getpid()), connection_([this] { Wake(); }) {}

binder_exception_t Publications::Publish(const std::string& name, const ndk::SpAIBinder& service) {
    const std::string purpose = "addService(" + name + ")";
    AddReply reply;
    binder_status_t status;
    do {
        Connection::Manager manager;
        std::string error;
        status = connection_.WaitForManager(purpose, &manager, &error);
        if (status != STATUS_OK) {
            LOG(ERROR) << purpose << " fails: " << error;
            return EX_ILLEGAL_STATE;
        }
        std::lock_guard lock(order_);
        status = Send(manager, name, service, &reply);
        if (status == STATUS_OK && reply.exception == EX_NONE) {
            Remember(name, service, manager.generation);
        }
    } while (Connection::ShallTryAgain(status));
    if (status != STATUS_OK) {
        LOG(ERROR) << purpose << " fails: the service manager's answer was status " << status;
        return EX_TRANSACTION_FAILED;
    }
    if (reply.exception != EX_NONE) LOG(ERROR) << purpose << " is refused: " << reply.reason;
    return reply.exception;
}

binder_status_t Publications::Send(const Connection::Manager& manager, const std::string& name,
                                   const ndk::SpAIBinder& service, AddReply* reply) {
    const AddRequest request{name, service};
    return connection_.Transact(
            manager, kAddService,
            [&request](AParcel* parcel) { return WriteAddRequest(request, parcel); },
            [reply](const AParcel* parcel) { return ReadAddReply(parcel, reply); });
}

void Publications::Remember(const std::string& name, const ndk::SpAIBinder& service,
                            uint64_t generation) {
    Publication publication{service, generation};
    {
        std::lock_guard lock(mutex_);
        std::swap(published_[name], publication);  // the former one is released after the lock
        if (!announcer_.joinable()) announcer_ = std::thread([this] { RunAnnouncer(); });
    }
    // The service manager may have been lost, and been replaced, since it answered.
    Wake();
}

void Publications::Wake() {
    if (getpid() != owner_) return;
    {
        std::lock_guard lock(mutex_);
        has_work_ = true;
    }
    work_.notify_one();
}

void Publications::RunAnnouncer() {
    pthread_setname_np(pthread_self(), "announcer");
    for (bool failed = false;;) {
        WaitForWork(failed);
        std::string error;
        const bool done = AnnounceAll(&error);
        if (!done && !failed) LOG(ERROR) << "services stay unpublished: " << error;
        failed = !done;
    }
}

// Waits on a condition variable, which the lock analysis does not follow.
void Publications::WaitForWork(bool failed) NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex_);
    const auto has_work = [this]() NO_THREAD_SAFETY_ANALYSIS { return has_work_; };
    if (failed) {
        work_.wait_for(lock, std::chrono::seconds(1), has_work);
    } else {
        work_.wait(lock, has_work);
    }
    has_work_ = false;
}

bool Publications::AnnounceAll(std::string* error) {
    Connection::Manager manager;
    if (connection_.WaitForManager("", &manager, error) != STATUS_OK) return false;
    binder_status_t status = STATUS_OK;
    for (bool more = true; more && status == STATUS_OK;)
        status = AnnounceNext(manager, &more);
    // A service manager that dies meanwhile leaves new work behind.
    if (status == STATUS_OK || status == STATUS_DEAD_OBJECT) return true;
    *error = "the service manager's answer was status " + std::to_string(status);
    return false;
}

binder_status_t Publications::AnnounceNext(const Connection::Manager& manager, bool* more) {
    std::lock_guard order(order_);
    std::string name;
    const ndk::SpAIBinder service = FindUnknown(manager.generation, &name);
    *more = service != nullptr;
    if (!*more) return STATUS_OK;
    AddReply reply;
    const binder_status_t status = Send(manager, name, service, &reply);
    if (status != STATUS_OK) return status;
    if (reply.exception == EX_NONE) {
        NoteKnown(name, manager.generation);
    } else {
        LOG(WARNING) << name << " is not published again: " << reply.reason;
        Forget(name);
    }
    return STATUS_OK;
}

ndk::SpAIBinder Publications::FindUnknown(uint64_t generation, std::string* name) {
    std::lock_guard lock(mutex_);
    for (const auto& [key, publication] : published_) {
        if (publication.generation == generation) continue;
        *name = key;
        return publication.service;
    }
    return {};
}

void Publications::NoteKnown(const std::string& name, uint64_t generation) {
    std::lock_guard lock(mutex_);
    const auto found = published_.find(name);
    if (found != published_.end()) found->second.generation = generation;
}

void Publications::Forget(const std::string& name) {
    Publication gone;  // released after the lock
    std::lock_guard lock(mutex_);
    const auto found = published_.find(name);
    if (found == published_.end()) return;
    gone = std::move(found->second);
    published_.erase(found);
}

}  // namespace host
