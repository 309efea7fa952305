#define LOG_TAG "servicemanager"

#include "connection.h"

#include <android-base/logging.h>
#include <poll.h>

#include <chrono>
#include <memory>
#include <utility>

#include "fd.h"
#include "folder_watch.h"
#include "host.h"

namespace host {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Also how much longer a death takes whose notice comes behind the end of a call.
constexpr int kTryAgainMs = 50;

struct Connection::DeathCookie {
    Connection* connection;
    uint64_t generation;
};

// Says once that a call waits, after a second.
class Connection::Patience {
  public:
    explicit Patience(std::string purpose) : purpose_(std::move(purpose)) {}

    void Begin() { warn_at_ = steady_clock::now() + milliseconds(1000); }

    // How long the call may go on before it is to look here again.
    milliseconds Check(const std::string& folder) {
        constexpr milliseconds kLong{60'000};
        if (purpose_.empty()) return kLong;
        const auto left = std::chrono::ceil<milliseconds>(warn_at_ - steady_clock::now());
        if (left.count() > 0) return left;
        LOG(WARNING) << purpose_ << " waits: no service manager serves " << folder;
        purpose_.clear();
        return kLong;
    }

  private:
    std::string purpose_;  // empty: there is nothing (more) to say
    steady_clock::time_point warn_at_;
};

Connection::Connection(std::function<void()> on_loss)
        : on_loss_(std::move(on_loss)), recipient_(AIBinder_DeathRecipient_new([](void* cookie) {
              const auto* death = static_cast<DeathCookie*>(cookie);
              death->connection->Lose(death->generation);
          })) {
    AIBinder_DeathRecipient_setOnUnlinked(
            recipient_, [](void* cookie) { delete static_cast<DeathCookie*>(cookie); });
}

binder_status_t Connection::WaitForManager(const std::string& purpose, Manager* manager,
                                           std::string* error) {
    Patience patience(purpose);
    return WaitForManager(&patience, manager, error);
}

binder_status_t Connection::WaitForManager(Patience* patience, Manager* manager,
                                           std::string* error) {
    binder_status_t status = Find(manager, error);
    if (status != STATUS_NAME_NOT_FOUND) return status;
    patience->Begin();
    std::string folder;
    status = RuntimeFolder(&folder, error);
    if (status != STATUS_OK) return status;
    FolderWatch watch(folder);
    while ((status = Find(manager, error)) == STATUS_NAME_NOT_FOUND) {
        watch.Wait(patience->Check(folder));
        // The folder itself may have become unusable, which no waiting mends.
        status = RuntimeFolder(&folder, error);
        if (status != STATUS_OK) return status;
    }
    return status;
}

binder_status_t Connection::Find(Manager* manager, std::string* error) {
    {
        std::lock_guard lock(mutex_);
        *manager = manager_;
    }
    if (manager->binder != nullptr) return STATUS_OK;
    ndk::SpAIBinder binder;
    const binder_status_t status = GetContextObject(binder.getR(), error);
    if (status != STATUS_OK) return status;
    return Adopt(std::move(binder), manager) ? STATUS_OK : STATUS_NAME_NOT_FOUND;
}

bool Connection::Adopt(ndk::SpAIBinder binder, Manager* manager) {
    if (!AIBinder_associateClass(binder.get(), ServiceManagerClass())) return false;
    {
        std::lock_guard lock(mutex_);
        const bool first = manager_.binder == nullptr;
        if (first) manager_ = {std::move(binder), manager_.generation + 1};
        *manager = manager_;
        if (!first) return true;  // whoever was faster has linked it
    }
    auto cookie = std::make_unique<DeathCookie>(DeathCookie{this, manager->generation});
    const binder_status_t linked =
            AIBinder_linkToDeath(manager->binder.get(), recipient_, cookie.get());
    if (linked == STATUS_OK) (void)cookie.release();  // the unlink callback's
    // The service manager's own process has no death to wait for.
    if (linked == STATUS_OK || linked == STATUS_INVALID_OPERATION) return true;
    Lose(manager->generation);
    return false;
}

void Connection::Lose(uint64_t generation) {
    ndk::SpAIBinder dead;
    {
        std::lock_guard lock(mutex_);
        if (manager_.generation != generation || manager_.binder == nullptr) return;
        std::swap(dead, manager_.binder);
    }
    on_loss_();
}

binder_status_t Connection::Transact(const Manager& manager, transaction_code_t code,
                                     const Write& write, const Read& read) {
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    binder_status_t status = AIBinder_prepareTransaction(manager.binder.get(), in.getR());
    if (status == STATUS_OK) status = write(in.get());
    if (status == STATUS_OK) {
        AParcel* request = in.release();
        status = AIBinder_transact(manager.binder.get(), code, &request, out.getR(), 0);
    }
    if (status == STATUS_OK) return read(out.get());
    if (status != STATUS_DEAD_OBJECT) return status;
    // Its connections end before its death is known: a moment later it is. A forked child has none.
    if (AIBinder_isAlive(manager.binder.get()) && !IsForkedChild()) return STATUS_WOULD_BLOCK;
    Lose(manager.generation);
    return status;
}

bool Connection::ShallTryAgain(binder_status_t status) {
    if (status == STATUS_WOULD_BLOCK) poll(nullptr, 0, kTryAgainMs);
    return status == STATUS_WOULD_BLOCK || status == STATUS_DEAD_OBJECT;
}

binder_status_t Connection::Call(const std::string& purpose, transaction_code_t code,
                                 const Write& write, const Read& read, std::string* error) {
    Patience patience(purpose);
    for (;;) {
        Manager manager;
        binder_status_t status = WaitForManager(&patience, &manager, error);
        if (status == STATUS_OK) {
            status = Transact(manager, code, write, read);
            if (ShallTryAgain(status)) continue;
            *error = "the service manager's answer was status " + std::to_string(status);
        }
        if (status != STATUS_OK) LOG(ERROR) << purpose << " fails: " << *error;
        return status;
    }
}

}  // namespace host
