// Who holds what, as plain tables without IPC in them. Each has a leaf lock of its own, under which
// nothing is called or destroyed: what a table gives up it returns, and the caller drops it without
// any lock. All functions: any thread.
#pragma once

#include <android-base/thread_annotations.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "binder.h"
#include "wire.h"

namespace host {

// The objects of this process that others hold. An object is in it while its hand-overs exceed the
// releases, and the table keeps a strong reference to it for so long. A name is never used again:
// it is 128 random bits, with the object's place in the table beside them, so that a call finds its
// object however many there are. The object has the bits, and all of them are compared: a place is
// eight bytes, and a call that brings an object needs the object next anyway.
class ExportTable {
  public:
    static ExportTable& Get();

    // One more hand-over of `binder`; its name. False if no random bits can be had.
    bool HandOver(LocalBinder* binder, RefId* id) EXCLUDES(mutex_);
    // The same by name; false if it is not known.
    bool HandOver(const RefId& id) EXCLUDES(mutex_);
    // Takes back `count` hand-overs. What it returns is dropped by the caller.
    [[nodiscard]] BinderRef TakeBack(const RefId& id, size_t count) EXCLUDES(mutex_);
    BinderRef Find(const RefId& id) EXCLUDES(mutex_);
    // Enters `binder` under the name that everybody knows, for good.
    void EnterContextObject(LocalBinder* binder) EXCLUDES(mutex_);
    size_t size() EXCLUDES(mutex_);

  private:
    bool DrawBits(RandomBits* bits) REQUIRES(mutex_);
    // A free one, or a new one.
    uint32_t TakePlace() REQUIRES(mutex_);
    // Null if no object has the name.
    LocalBinder* Seek(const RefId& id) REQUIRES(mutex_);

    std::mutex mutex_;
    // As many places as there have been objects at once, null where one is free; the first is the
    // context object's.
    std::vector<BinderRef> places_ GUARDED_BY(mutex_) = std::vector<BinderRef>(1);
    // The one used last is used next: the caches still have it.
    std::vector<uint32_t> free_ GUARDED_BY(mutex_);
    // Drawn ahead, so that few calls ask the kernel.
    std::vector<RandomBits> drawn_ GUARDED_BY(mutex_);
};

// What one peer holds of this process: hand-overs that it has not released, by object.
class Holdings {
  public:
    enum class Result { kOk, kClosed, kFull, kUnknown };

    // kClosed: the peer is dead. kFull: it holds as many objects as one may.
    Result Add(const RefId& id) EXCLUDES(mutex_);
    // kUnknown: the peer does not hold so many.
    Result Remove(const RefId& id, uint32_t count) EXCLUDES(mutex_);
    bool Contains(const RefId& id) EXCLUDES(mutex_);
    // Everything, and nothing can be added any more.
    std::vector<std::pair<RefId, uint32_t>> Close() EXCLUDES(mutex_);

  private:
    std::mutex mutex_;
    bool closed_ GUARDED_BY(mutex_) = false;
    std::unordered_map<RefId, uint32_t, RefIdHash> counts_ GUARDED_BY(mutex_);
};

// References that this process passed on to one peer and keeps until the peer says that it holds
// its own.
class Keeps {
  public:
    enum class Result { kOk, kClosed, kFull };

    // kClosed: the peer is dead. kFull: too much is outstanding. Then nothing is kept. `owner` is
    // the name of the object's process: a process can give its objects the names of another's.
    Result Add(AIBinder* binder, std::string_view owner, const RefId& id) EXCLUDES(mutex_);
    // One of them is settled. False if none was outstanding. `*released` is dropped by the caller.
    bool Settle(std::string_view owner, const RefId& id, std::vector<BinderRef>* released)
            EXCLUDES(mutex_);
    std::vector<BinderRef> Close() EXCLUDES(mutex_);

  private:
    struct Key {
        std::string owner;
        RefId id;

        friend bool operator==(const Key& a, const Key& b) = default;
    };
    struct KeyHash {
        size_t operator()(const Key& key) const { return RefIdHash()(key.id); }
    };
    struct Kept {
        // One, as long as nobody lies about the object's interface.
        std::vector<BinderRef> binders;
        uint32_t count = 0;
    };
    std::mutex mutex_;
    bool closed_ GUARDED_BY(mutex_) = false;
    size_t binders_ GUARDED_BY(mutex_) = 0;
    std::unordered_map<Key, Kept, KeyHash> kept_ GUARDED_BY(mutex_);
};

// Releases of one peer that have overtaken oneway calls which the peer made before: the objects
// stay until those calls have found them.
class DelayedReleases {
  public:
    struct Release {
        RefId id;
        uint32_t arrivals;
        uint64_t after;  // position in the oneway ring
    };
    enum class Result { kNow, kDelayed, kFull };

    // kNow: nothing stands before it. kFull: too many wait already.
    Result Add(const Release& release) EXCLUDES(mutex_);
    // The ring has been read up to there. Those that waited for no more than that.
    [[nodiscard]] std::vector<Release> Reach(uint64_t position) EXCLUDES(mutex_);
    // All that wait; none will wait any more.
    [[nodiscard]] std::vector<Release> Close() EXCLUDES(mutex_);

  private:
    std::mutex mutex_;
    uint64_t position_ GUARDED_BY(mutex_) = 0;
    std::deque<Release> waiting_ GUARDED_BY(mutex_);
};

// An object of another process, and the interface that it came with. Whoever passes an object on
// can say what it likes of it: what it says falsely must not stick to the object as others pass it.
struct ProxyKey {
    RefId id;
    std::string_view descriptor;

    friend bool operator==(const ProxyKey& a, const ProxyKey& b) = default;
};
struct ProxyKeyHash {
    size_t operator()(const ProxyKey& key) const;
};

// The stand-ins for one peer's objects: at most one per object, as long as nobody lies about its
// interface.
class ProxyTable {
  public:
    // Makes one with the descriptor that it arrives with.
    using Maker = std::function<ProxyBinder*()>;

    // The stand-in, made if there is none, with one more arrival counted. Null if the peer is dead.
    BinderRef Arrive(const ProxyKey& key, const Maker& make) EXCLUDES(mutex_);
    // The same, but the owner does not know of the arrival: none is counted before it does.
    // `*entered`: it has counted another one, and does not forget this process meanwhile.
    BinderRef ArriveUncounted(const ProxyKey& key, const Maker& make, bool* entered)
            EXCLUDES(mutex_);
    void Count(ProxyBinder* proxy) EXCLUDES(mutex_);
    bool IsCounted(const ProxyBinder* proxy) EXCLUDES(mutex_);
    // `proxy` has lost its last reference; the arrivals that its release settles.
    uint32_t Leave(ProxyBinder* proxy) EXCLUDES(mutex_);
    // All that are still referenced; none can arrive any more.
    std::vector<BinderRef> Close() EXCLUDES(mutex_);

  private:
    ProxyBinder* FindOrMake(const ProxyKey& key, const Maker& make) REQUIRES(mutex_);

    std::mutex mutex_;
    bool closed_ GUARDED_BY(mutex_) = false;
    // The descriptor of each key is that of its stand-in, which leaves before it goes.
    std::unordered_map<ProxyKey, ProxyBinder*, ProxyKeyHash> proxies_ GUARDED_BY(mutex_);
};

}  // namespace host
