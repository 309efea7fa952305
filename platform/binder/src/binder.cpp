#include "binder.h"

#include "oneway_receiver.h"
#include "peer.h"

bool AIBinder::TryIncStrong() const {
    int32_t count = strong_.load(std::memory_order_relaxed);
    while (count != 0) {
        if (strong_.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) return true;
    }
    return false;
}

void AIBinder::DecStrong() const {
    if (strong_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    const_cast<AIBinder*>(this)->OnLastStrong();
    DecWeak();
}

void AIBinder::DecWeak() const {
    if (weak_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

namespace host {

LocalBinder::LocalBinder(const AIBinder_Class* of_class, void* data)
        : AIBinder(false), user_data(data) {
    clazz.store(of_class, std::memory_order_relaxed);
}

LocalBinder::~LocalBinder() = default;

void LocalBinder::OnLastStrong() {
    clazz.load(std::memory_order_relaxed)->on_destroy(user_data);
}

bool LocalBinder::QueueOneway(std::unique_ptr<OnewayCall> call) {
    std::lock_guard lock(oneway_mutex_);
    OnewayCall* last = call.get();
    if (oneway_first_ == nullptr) {
        oneway_first_ = std::move(call);
    } else {
        oneway_last_->next = std::move(call);
    }
    oneway_last_ = last;
    return !std::exchange(oneway_busy_, true);
}

std::unique_ptr<OnewayCall> LocalBinder::TakeOneways() {
    std::lock_guard lock(oneway_mutex_);
    if (oneway_first_ == nullptr) oneway_busy_ = false;
    return std::move(oneway_first_);
}

ProxyBinder::ProxyBinder(std::shared_ptr<Peer> owner_peer, const RefId& ref_id,
                         std::string_view interface)
        : AIBinder(true), id(ref_id), peer(std::move(owner_peer)), descriptor(interface) {}

bool ProxyBinder::IsDead() const {
    return gone.load(std::memory_order_acquire) || peer == nullptr || peer->IsDead();
}

void ProxyBinder::OnLastStrong() {
    // A forked child has copies of locks that nobody in it will ever release.
    if (peer == nullptr || IsForkedChild()) return;
    uint32_t settled = peer->proxies.Leave(this);
    if (settled != 0) peer->SendRelease(id, settled);
}

}  // namespace host
