// Another process, as this one knows it: one object per process from the first contact to its
// death. Any thread may call everything here except where said. No lock of it is held around
// anything that calls back, destroys an object of a user, or waits.
#pragma once

#include <android-base/thread_annotations.h>
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "buffer.h"
#include "endpoint.h"
#include "frame.h"
#include "limits.h"
#include "oneway_sender.h"
#include "references.h"

namespace host {

class CallConnection;
class ControlConnection;
class OnewayReceiver;

// Drops the reference where the owner's code may run. Null is accepted.
void DropOnPool(BinderRef ref);

class Peer : public std::enable_shared_from_this<Peer> {
  public:
    explicit Peer(std::string endpoint_name);
    ~Peer();

    const std::string name;
    // What the kernel says of the process; 0 until there is a connection.
    pid_t pid() const { return pid_.load(); }
    uid_t uid() const { return uid_.load(); }
    bool IsDead() const { return dead_.load(std::memory_order_acquire); }
    // It is about to die here: no connection of it is taken in any more.
    bool IsCut() const { return cut_.load(); }
    // What the kernel sees now: false also for a death that has not been noticed yet. True while
    // the peer's own attempt is awaited.
    bool IsConnectionOpen() EXCLUDES(control_mutex_);

    Holdings holdings;
    DelayedReleases delayed_releases;
    Keeps keeps;
    ProxyTable proxies;
    OnewaySender oneway;

    // Begins to connect. Does not wait: what is said meanwhile is kept. False if the name is
    // refused, and with it the peer dead: its process has another one, or too many peers are
    // awaited.
    bool Connect() EXCLUDES(control_mutex_, mutex_);
    // Housekeeper: the peer's own control connection has come in.
    void Adopt(std::shared_ptr<ControlConnection> control, pid_t pid, uid_t uid)
            EXCLUDES(control_mutex_);
    // Housekeeper: the peer has answered our attempt.
    void OnWelcome(ControlConnection* control) EXCLUDES(control_mutex_);
    // False if the peer's own attempt is not the one that stays.
    bool OnYield(ControlConnection* control) EXCLUDES(control_mutex_);
    // Housekeeper: `control` can take bytes again.
    void OnControlWritable() EXCLUDES(control_mutex_);
    // Housekeeper: `control` has ended. Nothing happens if it is not the one that counts.
    void OnControlEnd(ControlConnection* control) EXCLUDES(control_mutex_);

    // Asks the owner, which this peer is, to enter this process as a holder of what `from` has
    // passed on. If `from` has done so before, and the owner has not answered yet, what it keeps
    // for that is enough. An owner that has more to answer than it could grant is not asked: the
    // stand-in is dead, unless somebody else has asked for it.
    void SendAcquire(ProxyBinder* proxy, const std::shared_ptr<Peer>& from)
            EXCLUDES(control_mutex_);
    // Waits until the peer has entered this process as a holder of what another process passed on.
    // A call that waits for an answer waits for this, too: once it has succeeded, the death of who
    // passed the reference on takes nothing away.
    void AwaitAcquired(const ProxyBinder& proxy) EXCLUDES(mutex_);
    void SendRelease(const RefId& id, uint32_t arrivals) {
        SendControl(FrameType::kRelease, ReleaseBody{id, arrivals, oneway.position()});
    }
    void SendSettled(const std::string& owner, const RefId& id);
    void SendAcquired(const RefId& id, bool granted) {
        SendControl(FrameType::kAcquired, AcquireBody{id, granted ? 1U : 0U});
    }
    // Housekeeper: the owner's answer to the oldest request. Null and false if there was none.
    bool OnAcquired(const RefId& id, bool granted) EXCLUDES(control_mutex_);

    // A connection for a two-way call of the calling thread. Waits until one is free.
    // STATUS_DEAD_OBJECT if the peer is dead or nobody listens there, STATUS_NO_MEMORY if this
    // process has no descriptor left.
    binder_status_t TakeConnection(std::shared_ptr<CallConnection>* taken) EXCLUDES(mutex_);
    void GiveBackConnection(std::shared_ptr<CallConnection> connection, bool reusable)
            EXCLUDES(mutex_);

    // Connections that the peer opened. False if it has as many as it may, or is cut off.
    bool AddAccepted(const std::shared_ptr<CallConnection>& connection) EXCLUDES(mutex_);
    void DropAccepted(const std::shared_ptr<CallConnection>& connection) EXCLUDES(mutex_);
    bool SetReceiver(std::shared_ptr<OnewayReceiver> receiver) EXCLUDES(mutex_);
    void DropReceiver() EXCLUDES(mutex_);

    // Ends every connection to a peer that does not keep to the rules. One WARN line, whoever comes
    // first.
    void Cut(const char* reason) EXCLUDES(mutex_, control_mutex_);
    // Housekeeper, once: the process is gone, or as good as gone.
    void Die() EXCLUDES(mutex_, control_mutex_);

    // Housekeeper: the peer drops what it holds. False if it does not hold so much, or too many of
    // its releases wait for oneway calls that never come.
    bool OnRelease(const ReleaseBody& body);
    // The peer's oneway ring has been read up to there, and the objects called are referenced.
    void OnOnewayRead(uint64_t position);

    // What a line in the log says once of each peer. True for the first who asks.
    enum class Trouble : uint32_t {
        kBadOwners = 1,
        kNoAnswer = 2,
        kHeld = 4,
        kKept = 8,
        kSilentOwner = 16,
    };
    bool IsFirst(Trouble trouble) {
        const auto bit = static_cast<uint32_t>(trouble);
        return (troubles_.fetch_or(bit) & bit) == 0;
    }

    // It holds as many objects as one may, and is refused a further one.
    void TellOfHoldings();

    // Whether call and oneway connections may follow the control connection by now.
    bool IsReachable() EXCLUDES(mutex_);

  private:
    struct PendingAcquire {
        RefId id;
        std::shared_ptr<Peer> from;
        BinderRef proxy;
    };

    template <typename Body>
    void SendControl(FrameType type, const Body& body) {
        SendControlBytes(type, &body, sizeof(body));
    }
    void SendControlBytes(FrameType type, const void* body, size_t size) EXCLUDES(control_mutex_);
    enum class Asked { kYes, kNotNeeded, kTooMuchPassedOn, kTooMuchUnanswered, kTooMuchUnread };
    Asked QueueAcquire(ProxyBinder* proxy, const std::shared_ptr<Peer>& from)
            REQUIRES(control_mutex_);
    bool QueueControl(FrameType type, const void* body, size_t size) REQUIRES(control_mutex_);
    void FlushControl() REQUIRES(control_mutex_);
    Connected TryConnect() REQUIRES(control_mutex_);
    void ConnectLater(int delay_ms);
    int NextPauseMs();
    // False if too many are awaited already.
    bool BeAwaited() EXCLUDES(mutex_);
    void BeAwaitedNoMore() REQUIRES(mutex_);
    // The peer has yielded: if its own attempt has not come in, it is asked again.
    void ConnectUnlessAdopted() EXCLUDES(mutex_, control_mutex_);
    void BecomeReachable() EXCLUDES(mutex_, control_mutex_);
    void GiveUp() EXCLUDES(mutex_);
    bool MayTakeConnection() const REQUIRES(mutex_);
    // An idle connection, or null and a place among those that may be opened; dead counts as a
    // place.
    std::shared_ptr<CallConnection> TakeIdleOrPlace() EXCLUDES(mutex_);
    void ShutDownConnections() EXCLUDES(mutex_, control_mutex_);
    void ReleaseEverything();

    std::atomic<pid_t> pid_{0};
    std::atomic<uid_t> uid_{0};
    std::atomic<bool> dead_{false};
    std::atomic<bool> cut_{false};
    std::atomic<uint32_t> troubles_{0};
    std::atomic<size_t> passed_on_{0};  // references for which no owner has answered yet
    int pause_ms_ = kConnectRetryMs;    // of the one who tries to connect
    bool tried_ = false;                // housekeeper only: an attempt was left unanswered
    bool died_ = false;                 // housekeeper only

    std::mutex mutex_;
    std::condition_variable changed_;
    bool reachable_ GUARDED_BY(mutex_) = false;
    bool awaited_ GUARDED_BY(mutex_) = false;  // counted among those that are tried again
    size_t outgoing_ GUARDED_BY(mutex_) = 0;
    std::vector<std::shared_ptr<CallConnection>> idle_ GUARDED_BY(mutex_);
    std::unordered_set<std::shared_ptr<CallConnection>> in_use_ GUARDED_BY(mutex_);
    std::unordered_set<std::shared_ptr<CallConnection>> accepted_ GUARDED_BY(mutex_);
    std::shared_ptr<OnewayReceiver> receiver_ GUARDED_BY(mutex_);

    std::mutex control_mutex_;
    std::shared_ptr<ControlConnection> control_ GUARDED_BY(control_mutex_);
    bool control_open_ GUARDED_BY(control_mutex_) = false;
    bool control_ours_ GUARDED_BY(control_mutex_) = false;  // this side opened control_
    bool yielded_ GUARDED_BY(control_mutex_) = false;       // the peer's attempt was preferred
    Buffer outbox_ GUARDED_BY(control_mutex_);
    std::deque<PendingAcquire> acquires_ GUARDED_BY(control_mutex_);
    // The same, to be found.
    std::set<std::pair<const ProxyBinder*, const Peer*>> acquiring_ GUARDED_BY(control_mutex_);
};

}  // namespace host
