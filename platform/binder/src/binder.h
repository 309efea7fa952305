// The two kinds of AIBinder: an object of this process, and a stand-in for one of another process.
// Counting is lock-free from any thread. What happens when the last strong reference goes is said
// per class.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_ibinder.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "wire.h"

struct AIBinder_Class {
    std::string descriptor;
    AIBinder_Class_onCreate on_create = nullptr;
    AIBinder_Class_onDestroy on_destroy = nullptr;
    AIBinder_Class_onTransact on_transact = nullptr;
    AIBinder_onDump on_dump = nullptr;
    AIBinder_handleShellCommand on_shell_command = nullptr;
};

// Strong references keep the object at work, weak ones only its memory. The strong ones together
// hold one weak.
struct AIBinder {
  public:
    AIBinder(const AIBinder&) = delete;
    AIBinder& operator=(const AIBinder&) = delete;

    bool is_remote() const { return is_remote_; }
    void IncStrong() const { strong_.fetch_add(1, std::memory_order_relaxed); }
    // False when the last strong reference has gone: it never comes back.
    bool TryIncStrong() const;
    // May run the owner's code (onDestroy): no lock of the layer may be held.
    void DecStrong() const;
    void IncWeak() const { weak_.fetch_add(1, std::memory_order_relaxed); }
    void DecWeak() const;
    int32_t StrongCount() const { return strong_.load(std::memory_order_relaxed); }

    std::atomic<const AIBinder_Class*> clazz{nullptr};

  protected:
    explicit AIBinder(bool is_remote) : is_remote_(is_remote) {}
    virtual ~AIBinder() = default;
    // The last strong reference has gone; memory stays until the last weak one goes.
    virtual void OnLastStrong() = 0;

  private:
    mutable std::atomic<int32_t> strong_{1};
    mutable std::atomic<int32_t> weak_{1};

  public:
    std::atomic<bool> vintf_stable{false};

  private:
    const bool is_remote_;
};

struct AIBinder_Weak {
    AIBinder* binder;
};

namespace host {

class Peer;
class DeathLink;
struct OnewayCall;

struct DropStrong {
    void operator()(const AIBinder* binder) const { binder->DecStrong(); }
};
// Owns one strong reference. Dropping it may run the owner's code.
using BinderRef = std::unique_ptr<AIBinder, DropStrong>;

inline BinderRef NewRef(AIBinder* binder) {
    if (binder != nullptr) binder->IncStrong();
    return BinderRef(binder);
}

// An object of this process. Its oneway calls from other processes run one at a time, in order.
// Not aligned as a stand-in is: one is made for each token that the hub hands out, and aligned
// memory takes the allocator's slow way.
class LocalBinder final : public AIBinder {
  public:
    LocalBinder(const AIBinder_Class* of_class, void* data);

    // Queues a call that came in; true if the caller must now see to it that RunOnewayCalls runs.
    bool QueueOneway(std::unique_ptr<OnewayCall> call) EXCLUDES(oneway_mutex_);
    // The calls to run next, in order; null, and the object is idle, when there is none.
    std::unique_ptr<OnewayCall> TakeOneways() EXCLUDES(oneway_mutex_);

    // First what a call that brings it reads, 64 bytes with the base.
    // Its place in the export table. Guarded by the table, as the rest of its name is.
    uint32_t export_place = 0;
    void* const user_data;
    // While it is there: hand-overs without their releases, and the bits of the name under which
    // other processes hold it.
    size_t hand_overs = 0;
    RandomBits export_bits{};

  private:
    ~LocalBinder() override;
    void OnLastStrong() override;

    std::mutex oneway_mutex_;
    std::unique_ptr<OnewayCall> oneway_first_ GUARDED_BY(oneway_mutex_);
    OnewayCall* oneway_last_ GUARDED_BY(oneway_mutex_) = nullptr;
    bool oneway_busy_ GUARDED_BY(oneway_mutex_) = false;
};

// An object of another process, one per object while referenced. The last reference releases it at
// its owner. Of ten thousand objects each line of the caches costs: it begins one.
class alignas(64) ProxyBinder final : public AIBinder {
  public:
    ProxyBinder(std::shared_ptr<Peer> owner_peer, const RefId& ref_id, std::string_view interface);

    // Its process has died, or its owner does not know it any more.
    bool IsDead() const;

    // First what a oneway call reads, 64 bytes with the base.
    std::atomic<bool> gone{false};
    const RefId id;
    const std::shared_ptr<Peer> peer;  // null: never had an owner that answered for it
    // Requests to be entered with the owner that are not answered yet; 0 once one was granted.
    std::atomic<uint32_t> acquiring{0};

    const std::string descriptor;

    // Guarded by the peer's proxy table: those that the owner has counted.
    uint32_t arrivals = 0;

    // Guarded by the lock of the death links.
    std::list<std::shared_ptr<DeathLink>> links;

  private:
    ~ProxyBinder() override = default;
    void OnLastStrong() override;
};

inline LocalBinder* AsLocal(AIBinder* binder) {
    return binder == nullptr || binder->is_remote() ? nullptr : static_cast<LocalBinder*>(binder);
}
inline ProxyBinder* AsProxy(AIBinder* binder) {
    return binder == nullptr || !binder->is_remote() ? nullptr : static_cast<ProxyBinder*>(binder);
}

}  // namespace host
