// The one ordered channel of oneway calls from this process to one peer. A call is in the shared
// ring when Send returns; a sleeping receiver is woken by one byte. Nothing here waits for the
// peer: neither for a connection, nor for it to read. Any thread.
#pragma once

#include <android-base/thread_annotations.h>
#include <android/binder_status.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "fd.h"
#include "ring.h"
#include "wire.h"

struct AParcel;

namespace host {

class Peer;

class OnewaySender {
  public:
    explicit OnewaySender(Peer* peer) : peer_(peer) {}

    // STATUS_OK: it will be run, in order, if the peer lives. STATUS_FAILED_TRANSACTION: too much
    // is pending, or the call is too large. STATUS_DEAD_OBJECT, STATUS_NO_MEMORY: as they say.
    binder_status_t Send(const RefId& target, uint32_t code, const AParcel& parcel)
            EXCLUDES(mutex_);

    // Where the ring ends for now: everything sent before the call stands before it.
    uint64_t position() const { return position_.load(std::memory_order_acquire); }

    // The peer can be connected to.
    void OnReachable() EXCLUDES(mutex_);
    // Housekeeper: the connection has ended, which it does not while the peer lives and has the
    // ring.
    void OnConnectionEnd() EXCLUDES(mutex_);
    // The peer is dead; nothing is accepted any more.
    void Close() EXCLUDES(mutex_);

    // Housekeeper: a wake-up could not be sent.
    void WakeAgain() EXCLUDES(mutex_);

  private:
    struct Report {
        const char* broken = nullptr;
        bool first_refusal = false;
        size_t refused_before = 0;
        bool woke_one = false;  // and is not waking a crowd
    };

    binder_status_t SendLocked(const RefId& target, uint32_t code, const AParcel& parcel,
                               Report* report) REQUIRES(mutex_);
    binder_status_t WriteRecord(const RefId& target, uint32_t code, const AParcel& parcel,
                                Report* report) REQUIRES(mutex_);
    WakeUpLoad GiveWakeUp(WakeUp wake) REQUIRES(mutex_);
    bool OpenRing() REQUIRES(mutex_);
    void TryConnect() REQUIRES(mutex_);
    void Disconnect() REQUIRES(mutex_);
    void ConnectLater(int delay_ms);
    void SendWakeUp() REQUIRES(mutex_);

    Peer* const peer_;
    std::atomic<uint64_t> position_{0};

    std::mutex mutex_;
    bool closed_ GUARDED_BY(mutex_) = false;
    RingMemory memory_ GUARDED_BY(mutex_);
    std::optional<RingWriter> ring_ GUARDED_BY(mutex_);
    UniqueFd ring_file_ GUARDED_BY(mutex_);
    UniqueFd connection_ GUARDED_BY(mutex_);
    uint64_t connection_key_ GUARDED_BY(mutex_) = 0;
    size_t refused_ GUARDED_BY(mutex_) = 0;
};

}  // namespace host
