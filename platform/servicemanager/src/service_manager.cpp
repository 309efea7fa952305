#define LOG_TAG "servicemanager"

#include "service_manager.h"

#include <android-base/logging.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "process_state.h"
#include "service_name.h"

namespace host {
namespace {

AddReply Refusal(binder_exception_t exception, std::string reason) {
    return {exception, std::move(reason)};
}

bool IsServed(uid_t uid) {
    return uid == geteuid() || uid == 0;
}

}  // namespace

ServiceManager::ServiceManager(Manifest manifest, std::chrono::milliseconds get_limit)
        : manifest_(std::move(manifest)),
          get_limit_(get_limit),
          recipient_(AIBinder_DeathRecipient_new([](void* cookie) {
              auto* link = static_cast<Link*>(cookie);
              link->manager->Withdraw(link->name, link->id);
          })) {
    AIBinder_DeathRecipient_setOnUnlinked(recipient_.get(),
                                          [](void* cookie) { delete static_cast<Link*>(cookie); });
    expiry_ = std::thread([this] { RunExpiry(); });
}

ServiceManager::~ServiceManager() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    expiry_changed_.notify_all();
    expiry_.join();
}

ndk::SpAIBinder ServiceManager::NewBinder() {
    return ndk::SpAIBinder(
            AIBinder_new(ServiceManagerClass(), static_cast<ServiceManagerStub*>(this)));
}

binder_status_t ServiceManager::OnTransact(transaction_code_t code, const AParcel* in,
                                           AParcel* out) {
    switch (code) {
        case kAddService:
            return Add(in, out);
        case kCheckService:
        case kGetService:
        case kWaitForService:
            return Find(code, in, out);
        case kIsDeclared: {
            std::string name;
            if (const binder_status_t status = ReadName(in, &name); status != STATUS_OK) {
                return status;
            }
            return WriteFlag(manifest_.IsDeclared(name), out);
        }
        case kListServices:
            return List(in, out);
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

bool ServiceManager::IsLive(const Table::Entry& entry) {
    return AIBinder_isAlive(entry.object.binder.get()) && IsHostAlive(entry.object.binder.get()) &&
           !IsProcessDead(entry.pid);
}

binder_status_t ServiceManager::Add(const AParcel* in, AParcel* out) {
    AddRequest request;
    if (const binder_status_t status = ReadAddRequest(in, &request); status != STATUS_OK) {
        return status;
    }
    const AddReply reply = Publish(request);
    if (reply.exception != EX_NONE) {
        LOG(WARNING) << "pid " << AIBinder_getCallingPid() << " of user "
                     << AIBinder_getCallingUid() << " may not publish " << request.name << ": "
                     << reply.reason;
    }
    return WriteAddReply(reply, out);
}

AddReply ServiceManager::Check(const AddRequest& request, pid_t caller) const {
    if (request.service == nullptr) return Refusal(EX_ILLEGAL_ARGUMENT, "there is no object");
    if (!IsValidServiceName(request.name)) {
        return Refusal(EX_ILLEGAL_ARGUMENT, "the name is not valid");
    }
    if (!IsServed(AIBinder_getCallingUid())) {
        return Refusal(EX_SECURITY,
                       "user " + std::to_string(AIBinder_getCallingUid()) + " is not permitted to");
    }
    const pid_t remote = HostPid(request.service.get());
    if (const pid_t owner = remote == 0 ? getpid() : remote; owner != caller) {
        return Refusal(EX_SECURITY, "the object belongs to pid " + std::to_string(owner));
    }
    if (IsVintfStable(request.service.get()) && !manifest_.IsDeclared(request.name)) {
        return Refusal(EX_ILLEGAL_ARGUMENT,
                       "the object is VINTF-stable and no manifest declares it");
    }
    return {};
}

AddReply ServiceManager::Publish(const AddRequest& request) {
    const pid_t caller = AIBinder_getCallingPid();
    AddReply reply = Check(request, caller);
    if (reply.exception != EX_NONE) return reply;

    const uint64_t id = ++last_id_;
    auto link = std::make_unique<Link>(Link{this, request.name, id});
    const binder_status_t linked =
            AIBinder_linkToDeath(request.service.get(), recipient_.get(), link.get());
    if (linked == STATUS_INVALID_OPERATION) {  // an object of this process
        return Enter(request.name, {request.service, nullptr, id}, caller);
    }
    if (linked != STATUS_OK) return Refusal(EX_ILLEGAL_STATE, "its process has died");
    // From here on the unlink callback deletes it; it may have done so already.
    reply = Enter(request.name, {request.service, link.release(), id}, caller);
    // A death before the entry was made had nothing to withdraw.
    if (!AIBinder_isAlive(request.service.get())) Withdraw(request.name, id);
    return reply;
}

AddReply ServiceManager::Enter(const std::string& name, const Service& service, pid_t pid) {
    Table::PutResult put;
    std::vector<Reply> waiters;
    {
        std::lock_guard lock(mutex_);
        put = table_.Put(name, service, pid, IsLive);
        if (put.outcome == Table::Outcome::kPublished) waiters = waiters_.TakeAll(name);
    }
    if (put.outcome != Table::Outcome::kPublished) Forget(service);
    if (put.displaced) Forget(put.displaced->object);
    Answer(std::move(waiters), service.binder);
    switch (put.outcome) {
        case Table::Outcome::kPublished:
            break;
        case Table::Outcome::kHeldByAnother:
            return Refusal(EX_ILLEGAL_ARGUMENT,
                           "the name is held by pid " + std::to_string(put.holder));
        case Table::Outcome::kTooMany:
            return Refusal(EX_ILLEGAL_STATE, "too many names are published");
    }
    LOG(INFO) << "pid " << pid << " publishes " << name;
    return {};
}

void ServiceManager::Forget(const Service& service) {
    if (service.link == nullptr) return;
    // If the death came first, the callback that ends the cookie has run or is under way.
    (void)AIBinder_unlinkToDeath(service.binder.get(), recipient_.get(), service.link);
}

void ServiceManager::Withdraw(const std::string& name, uint64_t id) {
    std::optional<Table::Entry> gone;  // released after the lock
    std::lock_guard lock(mutex_);
    gone = table_.Withdraw(name, [id](const Service& service) { return service.id == id; });
}

void ServiceManager::Answer(std::vector<Reply> waiters, const ndk::SpAIBinder& service) {
    for (Reply& waiter : waiters) {
        ndk::ScopedAParcel parcel(AParcel_create());
        const binder_status_t status = WriteService(service, parcel.get());
        waiter->Send(status, parcel.get());
    }
}

binder_status_t ServiceManager::Find(transaction_code_t code, const AParcel* in, AParcel* out) {
    std::string name;
    if (const binder_status_t status = ReadName(in, &name); status != STATUS_OK) return status;
    if (!IsValidServiceName(name)) return STATUS_BAD_VALUE;

    using Waiters = WaiterList<Reply>;
    const auto now = std::chrono::steady_clock::now();
    Waiters::Time deadline = now;
    if (code == kWaitForService) deadline = Waiters::kForever;
    if (code == kGetService && manifest_.IsDeclared(name)) deadline = now + get_limit_;

    ndk::SpAIBinder service;
    bool waits = deadline != now;
    const binder_status_t status = FindOrWait(name, deadline, &service, &waits);
    return status != STATUS_OK || waits ? status : WriteService(service, out);
}

binder_status_t ServiceManager::FindOrWait(const std::string& name,
                                           WaiterList<Reply>::Time deadline,
                                           ndk::SpAIBinder* service, bool* waits) {
    // Those who died waiting are let go when the next one comes: there are never more of them than
    // there were connections.
    std::vector<Reply> gone;
    std::lock_guard lock(mutex_);
    if (const Table::Entry* entry = table_.Find(name, IsLive)) {
        *service = entry->object.binder;
        *waits = false;
    }
    if (!*waits) return STATUS_OK;
    Reply reply = DeferReply();
    if (reply == nullptr) return STATUS_INVALID_OPERATION;
    gone = waiters_.TakeGone([](const Reply& waiter) { return !waiter->CallerIsAlive(); });
    waiters_.Add(name, std::move(reply), deadline);
    if (deadline != WaiterList<Reply>::kForever) expiry_changed_.notify_all();
    return STATUS_OK;
}

binder_status_t ServiceManager::List(const AParcel* in, AParcel* out) {
    std::string after;
    if (const binder_status_t status = ReadName(in, &after); status != STATUS_OK) return status;

    std::map<std::string, ServiceInfo> found;
    const auto& declared = manifest_.instances();
    auto next = declared.upper_bound(after);
    for (; next != declared.end() && found.size() < kPageEntries; ++next) {
        found[next->first] = {next->first, true, false, 0};
    }
    {
        std::lock_guard lock(mutex_);
        const auto& entries = table_.entries();
        size_t count = 0;
        for (auto at = entries.upper_bound(after); at != entries.end() && count < kPageEntries;
             ++at) {
            if (!IsLive(at->second)) continue;
            ServiceInfo& info = found[at->first];
            info = {at->first, manifest_.IsDeclared(at->first), true, at->second.pid};
            ++count;
        }
    }
    // Of the first 256 of each kind, the first 256 of both together are complete.
    std::vector<ServiceInfo> page;
    for (auto& [name, info] : found) {
        if (page.size() < kPageEntries) page.push_back(std::move(info));
    }
    return WritePage(page, out);
}

void ServiceManager::RunExpiry() {
    for (;;) {
        std::vector<Reply> expired = NextExpired();
        if (expired.empty()) return;
        Answer(std::move(expired), nullptr);
    }
}

// Waits on a condition variable, which the lock analysis does not follow.
std::vector<ServiceManager::Reply> ServiceManager::NextExpired() NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        std::vector<Reply> expired = waiters_.TakeExpired(std::chrono::steady_clock::now());
        if (!expired.empty()) return expired;
        const auto next = waiters_.NextDeadline();
        if (next == WaiterList<Reply>::kForever) {
            expiry_changed_.wait(lock);
        } else {
            expiry_changed_.wait_until(lock, next);
        }
    }
    return {};
}

}  // namespace host
