// The receiving end of one peer's oneway channel. A pool thread that is woken takes what is in the
// ring, sorts it to the objects called, asks for the next wake-up and then runs what it found;
// other threads take over what comes meanwhile. If calls come one by one, or the sender wakes many
// receivers, and while another thread is idle, it then stays with the ring for some milliseconds
// and is woken at a futex there. When wake-ups follow one another closely, it looks into the ring
// by itself, some hundred microseconds apart, and is not woken at all.
#pragma once

#include <android-base/thread_annotations.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "binder.h"
#include "fd.h"
#include "pool.h"
#include "ring.h"

struct AParcel;

namespace host {

class OnewayReceiver;
class Peer;

// A call that waits for its object.
struct OnewayCall {
    BinderRef target;
    AParcel* parcel = nullptr;  // owned
    uint32_t code = 0;
    size_t record_size = 0;
    std::shared_ptr<OnewayReceiver> from;
    std::unique_ptr<OnewayCall> next;

    OnewayCall() = default;
    OnewayCall(const OnewayCall&) = delete;
    OnewayCall& operator=(const OnewayCall&) = delete;
    ~OnewayCall();
};

class OnewayReceiver : public PoolSource, public std::enable_shared_from_this<OnewayReceiver> {
  public:
    using Clock = std::chrono::steady_clock;

    OnewayReceiver(std::shared_ptr<Peer> peer, UniqueFd fd)
            : peer_(std::move(peer)), fd_(std::move(fd)) {}

    // False unless `file` is a ring.
    bool Map(int file);
    // False if it cannot be watched; then nothing has been read.
    bool JoinPool();
    // Housekeeper, after the peer's death: what it had sent is run by the pool.
    void TakeRest() EXCLUDES(mutex_);

    void OnReady(uint32_t events) override;
    // A call is about to run: no longer pending.
    void Started(size_t record_size);
    const std::shared_ptr<Peer>& peer() const { return peer_; }

  private:
    // Notes a wake-up.
    Clock::duration SinceLastWakeUp();
    // False if a descriptor came along.
    bool ReadWakeUps();
    // Takes what is there and runs it; answers the number of calls that were there.
    size_t TakeAndRun() EXCLUDES(mutex_);
    // Stays with the ring as long as calls come, one thread at a time: waits for each, or lets some
    // gather for a pause. `gap` and `taken`: how long after the last the wake-up came that brought
    // the thread here, and the calls that it brought.
    void Attend(Clock::duration gap, size_t taken) EXCLUDES(mutex_);
    void AwaitCall(bool where_sender_runs) EXCLUDES(mutex_);
    void Pause(std::chrono::microseconds pause) EXCLUDES(mutex_);
    // Only while attending. The pause that is due, none if that is zero.
    std::chrono::microseconds PauseAfter(Clock::duration gap, size_t taken);
    std::chrono::microseconds NextPause(std::chrono::microseconds pause, size_t taken);

    using Runnable = std::vector<BinderRef>;
    // What is dropped unlocked, where the objects' own code may run.
    struct Dropped {
        std::vector<std::unique_ptr<OnewayCall>> unanswerable;  // for objects that are gone
        std::vector<BinderRef> refused;                         // out of a malformed call
    };

    // Takes what is in the ring, as much as one turn may; `*more` if that was not all. The result
    // is the objects that someone must run now.
    Runnable Drain(bool* more, size_t* taken, Dropped* dropped) EXCLUDES(mutex_);
    // Null and true: the object called is not there any more. False: malformed.
    bool Take(const uint8_t* body, size_t size, std::unique_ptr<OnewayCall>* call) REQUIRES(mutex_);
    // `*more`: the turn ended before the ring was empty.
    bool TakeSome(Runnable* runnable, bool* more, size_t* taken) REQUIRES(mutex_);

    const std::shared_ptr<Peer> peer_;
    UniqueFd fd_;
    RingMemory memory_;
    std::atomic<uint64_t> key_{0};
    std::atomic<size_t> pending_{0};
    std::atomic<Clock::rep> woken_at_{0};
    std::atomic<uint32_t> unread_wakeups_{0};  // at most so many lie in the socket
    std::atomic<bool> attended_{false};
    // Of the thread that attends.
    uint32_t close_wakeups_ = 0;
    uint32_t vain_pauses_ = 0;
    uint32_t lulls_left_ = 0;
    WakeUpPlace place_;

    std::mutex mutex_;
    RingReader ring_ GUARDED_BY(mutex_){&memory_};
    Dropped dropped_ GUARDED_BY(mutex_);
    bool broken_ GUARDED_BY(mutex_) = false;
};

// Runs the calls that wait for `target`, one after another, until there is none.
void RunOnewayCalls(LocalBinder* target);

}  // namespace host
