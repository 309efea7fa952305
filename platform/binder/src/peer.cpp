#include "peer.h"

#include <poll.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "call_connection.h"
#include "control_connection.h"
#include "death_links.h"
#include "endpoint.h"
#include "limits.h"
#include "oneway_receiver.h"
#include "pool.h"
#include "sys.h"
#include "warning.h"

namespace host {
namespace {

// Connections that this process opens towards the peer beside those for calls: control and oneway.
constexpr size_t kOtherConnections = 2;
// A peer that yields has said hello before: this is long for taking that in.
constexpr int kAdoptWithinMs = 1000;

std::atomic<size_t> g_awaited{0};

}  // namespace

void DropOnPool(BinderRef ref) {
    if (ref == nullptr) return;
    Pool::Get().Post([shared = std::shared_ptr<AIBinder>(std::move(ref))] {});
}

Peer::Peer(std::string endpoint_name) : name(std::move(endpoint_name)), oneway(this) {}

Peer::~Peer() = default;

bool Peer::Connect() {
    bool in_bounds = !Endpoint::Get().HasAnotherName(name);
    Connected connected;
    if (in_bounds) {
        // The lock is held from the look at control_ to the hello, so that a connection which the
        // peer opens at the same moment is weighed against this one by both sides alike.
        std::lock_guard lock(control_mutex_);
        if (IsDead() || control_ != nullptr || yielded_) return true;
        connected = TryConnect();
    }
    switch (connected.result) {
        case ConnectResult::kConnected:
            BecomeReachable();
            return true;
        case ConnectResult::kRefused:
            GiveUp();
            return in_bounds;
        case ConnectResult::kBusy:
        case ConnectResult::kShort:
            in_bounds = BeAwaited();
            in_bounds ? ConnectLater(NextPauseMs()) : GiveUp();
            return in_bounds;
    }
    return true;
}

Connected Peer::TryConnect() {
    Connected connected = Endpoint::Get().ConnectTo(name);
    if (connected.result != ConnectResult::kConnected) return connected;
    auto control = std::make_shared<ControlConnection>(std::move(connected.fd), shared_from_this());
    if (!control->StartWatching()) {
        connected.result = ConnectResult::kShort;
    } else if (!SendHello(control->fd(), ConnectionKind::kControl, Endpoint::Get().name())) {
        control->StopWatching();
        connected.result = ConnectResult::kShort;
    } else {
        // Before the peer's own attempt can be weighed against this one, and calls come after it.
        pid_.store(connected.pid);
        uid_.store(connected.uid);
        control_ = std::move(control);
        control_ours_ = true;
    }
    return connected;
}

void Peer::ConnectLater(int delay_ms) {
    Housekeeper::Get().RunLater(delay_ms, [self = shared_from_this()] { self->Connect(); });
}

int Peer::NextPauseMs() {
    return std::exchange(pause_ms_, std::min(2 * pause_ms_, kMaxConnectRetryMs));
}

bool Peer::BeAwaited() {
    std::lock_guard lock(mutex_);
    if (awaited_ || IsDead()) return true;
    awaited_ = g_awaited.fetch_add(1) < kMaxPeersAwaited;
    if (!awaited_) g_awaited.fetch_sub(1);
    return awaited_;
}

void Peer::BeAwaitedNoMore() {
    if (std::exchange(awaited_, false)) g_awaited.fetch_sub(1);
}

void Peer::GiveUp() {
    dead_.store(true, std::memory_order_release);
    {
        std::lock_guard lock(mutex_);
        changed_.notify_all();
    }
    Housekeeper::Get().RunSoon([self = shared_from_this()] { self->Die(); });
}

void Peer::BecomeReachable() {
    {
        std::lock_guard lock(mutex_);
        reachable_ = true;
        BeAwaitedNoMore();
        changed_.notify_all();
    }
    oneway.OnReachable();
}

// Two processes that meet at the same moment have each connected to the other. The attempt of the
// one whose name is the smaller stays; nothing has been sent on either but the hello, so nothing is
// lost with the other.
void Peer::Adopt(std::shared_ptr<ControlConnection> control, pid_t pid, uid_t uid) {
    std::shared_ptr<ControlConnection> replaced;
    bool adopted = false;
    bool second = false;
    bool yielded = false;
    {
        std::lock_guard lock(control_mutex_);
        // Given up a moment ago: an attempt that is left unanswered is made again, and then meets a
        // new peer.
        if (IsDead()) return;
        bool ours_stays = control_ != nullptr && control_ours_ && Endpoint::Get().name() < name;
        second = control_open_ && !ours_stays;
        yielded = ours_stays;
        if (ours_stays) {
            SendFrameNow(control->fd(), FrameType::kYield);
        } else if (!second && control->StartWatching()) {
            // A peer that is gone by now takes no welcome. It is adopted all the same: what it had
            // sent comes in first, then the end is noticed in its turn.
            if (!SendFrameNow(control->fd(), FrameType::kWelcome)) control->ShutDown();
            replaced = std::exchange(control_, control);
            pid_.store(pid);
            uid_.store(uid);
            control_ours_ = false;
            control_open_ = true;
            adopted = true;
            FlushControl();
        }
    }
    if (replaced != nullptr) replaced->StopWatching();
    if (second) {
        Warn("Connection refused, pid %d uid %d: it has a control connection already.", pid, uid);
    }
    if (adopted) return BecomeReachable();
    // Its connection could not be taken in: as good as gone, and a new one when it comes again.
    if (!second && !yielded) Die();
}

void Peer::OnWelcome(ControlConnection* control) {
    std::lock_guard lock(control_mutex_);
    if (control_.get() != control || control_open_) return;
    control_open_ = true;
    FlushControl();
}

bool Peer::OnYield(ControlConnection* control) {
    std::shared_ptr<ControlConnection> ended;
    {
        std::lock_guard lock(control_mutex_);
        if (control_.get() != control || control_open_) return true;
        if (Endpoint::Get().name() < name) return false;
        ended = std::move(control_);
        control_ = nullptr;
        // The peer's own attempt is in our queue of new connections: nothing to connect any more.
        yielded_ = true;
    }
    ended->StopWatching();
    Housekeeper::Get().RunLater(kAdoptWithinMs,
                                [self = shared_from_this()] { self->ConnectUnlessAdopted(); });
    return true;
}

// Without a connection that ends nobody would hear of the death of a peer which died on the way, or
// never meant to come.
void Peer::ConnectUnlessAdopted() {
    {
        std::lock_guard lock(control_mutex_);
        if (control_ != nullptr) return;
        yielded_ = false;
    }
    Connect();
}

void Peer::OnControlWritable() {
    std::lock_guard lock(control_mutex_);
    if (control_open_) FlushControl();
}

void Peer::OnControlEnd(ControlConnection* control) {
    bool unanswered;
    {
        std::lock_guard lock(control_mutex_);
        if (control_.get() != control) return;
        unanswered = !control_open_ && !IsCut();
        if (unanswered) control_ = nullptr;
    }
    if (!unanswered) return Die();
    // An attempt that nobody answered may have met a process without a descriptor left; nothing has
    // been sent on it. If the process has gone, the next attempt is refused.
    const int pause_ms = std::exchange(tried_, true) ? NextPauseMs() : 0;
    if (pause_ms == kMaxConnectRetryMs && IsFirst(Trouble::kNoAnswer)) {
        Warn("No control connection is taken by pid %d uid %d. It is tried again "
             "until one is, or the process is gone.",
             pid(), uid());
    }
    ConnectLater(pause_ms);
}

void Peer::TellOfHoldings() {
    if (!IsFirst(Trouble::kHeld)) return;
    Warn("No further object is handed to pid %d uid %d: it holds %zu, as many as one may.", pid(),
         uid(), kMaxReferencesPerPeer);
}

bool Peer::IsConnectionOpen() {
    std::lock_guard lock(control_mutex_);
    if (IsDead()) return false;
    if (control_ == nullptr) return yielded_;
    pollfd state{control_->fd(), POLLRDHUP, 0};
    return poll(&state, 1, 0) == 0;
}

bool Peer::QueueControl(FrameType type, const void* body, size_t size) {
    FrameHeader header{static_cast<uint32_t>(size), kFrameMagic, static_cast<uint16_t>(type)};
    outbox_.Append(&header, sizeof(header));
    outbox_.Append(body, size);
    if (control_open_) FlushControl();
    // What others have passed on is not the peer's to answer for, and is bounded for each of them.
    constexpr size_t kAcquireBytes = sizeof(FrameHeader) + sizeof(AcquireBody);
    return outbox_.size() <= kMaxControlBacklogBytes + acquires_.size() * kAcquireBytes;
}

void Peer::SendControlBytes(FrameType type, const void* body, size_t size) {
    if (IsDead() || IsForkedChild()) return;
    bool in_bounds;
    {
        std::lock_guard lock(control_mutex_);
        // Asked once more: the end may have come, and with it the connection has gone.
        in_bounds = IsDead() || QueueControl(type, body, size);
    }
    if (!in_bounds) Cut("control messages pile up unread");
}

void Peer::FlushControl() {
    size_t sent = 0;
    while (sent < outbox_.size()) {
        ssize_t taken = sys::Send(control_->fd(), outbox_.data() + sent, outbox_.size() - sent,
                                  MSG_DONTWAIT);
        if (taken < 0 && errno == EINTR) continue;
        if (taken < 0) break;
        sent += static_cast<size_t>(taken);
    }
    if (sent != 0) outbox_.Consume(sent);
    // A connection that fails for another reason than lack of room also reports its end.
    if (!outbox_.empty()) {
        control_->WatchForRoom(true);
    } else if (sent != 0) {
        if (outbox_.capacity() > kMaxOnewayPendingBytes) outbox_.Clear();
        control_->WatchForRoom(false);
    }
}

void Peer::SendAcquire(ProxyBinder* proxy, const std::shared_ptr<Peer>& from) {
    Asked asked;
    {
        std::lock_guard lock(control_mutex_);
        asked = QueueAcquire(proxy, from);
    }
    switch (asked) {
        case Asked::kYes:
            return;
        case Asked::kNotNeeded:
            return from->SendSettled(name, proxy->id);
        case Asked::kTooMuchPassedOn:
            return from->Cut("it passes on too much for which no owner has answered");
        case Asked::kTooMuchUnread:
            return Cut("control messages pile up unread");
        case Asked::kTooMuchUnanswered:
            break;
    }
    // Who else has asked for it gets an answer. In this order: what is granted is counted first.
    if (proxy->acquiring.load() == 0 && !proxies.IsCounted(proxy)) proxy->gone.store(true);
    from->SendSettled(name, proxy->id);
    if (!from->IsFirst(Trouble::kSilentOwner)) return;
    Warn("References from pid %d uid %d arrive as dead ones: their owner, pid %d, "
         "has %zu to answer for.",
         from->pid(), from->uid(), pid(), kMaxReferencesPerPeer);
}

Peer::Asked Peer::QueueAcquire(ProxyBinder* proxy, const std::shared_ptr<Peer>& from) {
    // Of a dead one it is a reference to nothing.
    if (IsDead() || acquiring_.count({proxy, from.get()}) != 0) return Asked::kNotNeeded;
    if (acquires_.size() >= kMaxReferencesPerPeer) return Asked::kTooMuchUnanswered;
    if (from->passed_on_.fetch_add(1) >= kMaxPassedOn) {
        from->passed_on_.fetch_sub(1);
        return Asked::kTooMuchPassedOn;
    }
    AcquireBody body{proxy->id, 0};
    proxy->acquiring.fetch_add(1);
    acquires_.push_back({proxy->id, from, NewRef(proxy)});
    acquiring_.emplace(proxy, from.get());
    return QueueControl(FrameType::kAcquire, &body, sizeof(body)) ? Asked::kYes
                                                                  : Asked::kTooMuchUnread;
}

void Peer::SendSettled(const std::string& owner, const RefId& id) {
    SettledBody body{};
    memcpy(body.owner, owner.data(), owner.size());
    body.id = id;
    SendControl(FrameType::kSettled, body);
}

bool Peer::OnAcquired(const RefId& id, bool granted) {
    PendingAcquire answered;
    {
        std::lock_guard lock(control_mutex_);
        if (acquires_.empty() || !(acquires_.front().id == id)) return false;
        answered = std::move(acquires_.front());
        acquires_.pop_front();
        acquiring_.erase({AsProxy(answered.proxy.get()), answered.from.get()});
    }
    answered.from->passed_on_.fetch_sub(1);
    answered.from->SendSettled(name, id);
    // Not granted: who passed it on had died, and the owner let go of it: a stand-in for nothing.
    ProxyBinder* proxy = AsProxy(answered.proxy.get());
    if (granted) proxies.Count(proxy);
    if (!granted) proxy->gone.store(true);
    // Entered once it is entered, whatever becomes of further requests.
    if (granted) proxy->acquiring.store(0);
    if (proxy->acquiring.load() != 0) proxy->acquiring.fetch_sub(1);
    {
        std::lock_guard lock(mutex_);
        changed_.notify_all();
    }
    if (granted) return true;
    std::vector<BinderRef> one;
    one.push_back(std::move(answered.proxy));
    PostDeathNotices(std::move(one));
    return true;
}

// Exempt: waits on a condition variable.
void Peer::AwaitAcquired(const ProxyBinder& proxy) NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex_);
    while (proxy.acquiring.load() != 0 && !IsDead())
        changed_.wait(lock);
}

bool Peer::OnRelease(const ReleaseBody& body) {
    if (body.arrivals == 0) return false;
    // Not held: an arrival of which the owner was never told, because it knew the object no more.
    if (!holdings.Contains(body.id)) return true;
    if (holdings.Remove(body.id, body.arrivals) != Holdings::Result::kOk) return false;
    switch (delayed_releases.Add({body.id, body.arrivals, body.after})) {
        case DelayedReleases::Result::kNow:
            DropOnPool(ExportTable::Get().TakeBack(body.id, body.arrivals));
            return true;
        case DelayedReleases::Result::kDelayed:
            return true;
        case DelayedReleases::Result::kFull:
            DropOnPool(ExportTable::Get().TakeBack(body.id, body.arrivals));
            return false;
    }
    return false;
}

void Peer::OnOnewayRead(uint64_t position) {
    for (const DelayedReleases::Release& release : delayed_releases.Reach(position))
        DropOnPool(ExportTable::Get().TakeBack(release.id, release.arrivals));
}

bool Peer::IsReachable() {
    std::lock_guard lock(mutex_);
    return reachable_ && !IsDead();
}

bool Peer::MayTakeConnection() const {
    return reachable_ && (!idle_.empty() || outgoing_ < kMaxConnectionsPerPeer - kOtherConnections);
}

// Exempt: waits on a condition variable.
std::shared_ptr<CallConnection> Peer::TakeIdleOrPlace() NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex_);
    while (!IsDead() && !MayTakeConnection())
        changed_.wait(lock);
    if (idle_.empty()) {
        ++outgoing_;
        return nullptr;
    }
    auto connection = std::move(idle_.back());
    idle_.pop_back();
    return connection;
}

binder_status_t Peer::TakeConnection(std::shared_ptr<CallConnection>* taken) {
    *taken = TakeIdleOrPlace();
    if (*taken != nullptr) return STATUS_OK;
    Connected connected = Endpoint::Get().ConnectForCall(*this);
    std::shared_ptr<CallConnection> connection;
    if (connected.result == ConnectResult::kConnected) {
        connection =
                std::make_shared<CallConnection>(shared_from_this(), std::move(connected.fd), true);
    }
    std::lock_guard lock(mutex_);
    if (connection != nullptr && !IsDead()) {
        in_use_.insert(connection);
        *taken = std::move(connection);
        return STATUS_OK;
    }
    --outgoing_;
    changed_.notify_one();
    return connected.result == ConnectResult::kShort && !IsDead() ? STATUS_NO_MEMORY
                                                                  : STATUS_DEAD_OBJECT;
}

void Peer::GiveBackConnection(std::shared_ptr<CallConnection> connection, bool reusable) {
    std::lock_guard lock(mutex_);
    if (reusable && !IsDead() && idle_.size() < kMaxIdleConnections) {
        idle_.push_back(std::move(connection));
    } else {
        in_use_.erase(connection);
        --outgoing_;
    }
    changed_.notify_one();
}

bool Peer::AddAccepted(const std::shared_ptr<CallConnection>& connection) {
    std::vector<std::shared_ptr<CallConnection>> closed;
    bool added = false;
    {
        std::lock_guard lock(mutex_);
        // Those that the peer has closed do not count, although no thread has come by to drop them.
        bool full = accepted_.size() + kOtherConnections >= kMaxConnectionsPerPeer;
        for (auto one = accepted_.begin(); full && one != accepted_.end();) {
            auto here = one++;
            if ((*here)->IsOpen()) continue;
            closed.push_back(*here);
            accepted_.erase(here);
        }
        added = !IsDead() && !IsCut() &&
                accepted_.size() + kOtherConnections < kMaxConnectionsPerPeer;
        if (added) accepted_.insert(connection);
    }
    for (auto& one : closed)
        one->LeavePool();
    return added;
}

void Peer::DropAccepted(const std::shared_ptr<CallConnection>& connection) {
    connection->LeavePool();
    std::lock_guard lock(mutex_);
    accepted_.erase(connection);
}

bool Peer::SetReceiver(std::shared_ptr<OnewayReceiver> receiver) {
    std::lock_guard lock(mutex_);
    if (IsDead() || IsCut() || receiver_ != nullptr) return false;
    receiver_ = std::move(receiver);
    return true;
}

void Peer::DropReceiver() {
    std::shared_ptr<OnewayReceiver> dropped;  // after unlocking
    std::lock_guard lock(mutex_);
    dropped = std::move(receiver_);
}

void Peer::ShutDownConnections() {
    {
        std::lock_guard lock(mutex_);
        for (auto& connection : in_use_)
            connection->ShutDown();
        for (auto& connection : accepted_)
            connection->ShutDown();
        changed_.notify_all();
    }
    std::lock_guard lock(control_mutex_);
    if (control_ != nullptr) control_->ShutDown();
}

void Peer::Cut(const char* reason) {
    if (IsDead() || cut_.exchange(true)) return;
    Warn("Cutting off pid %d uid %d: %s.", pid(), uid(), reason);
    ShutDownConnections();
    // Also where there is no control connection whose end would tell.
    Housekeeper::Get().RunSoon([self = shared_from_this()] { self->Die(); });
}

void Peer::Die() {
    dead_.store(true, std::memory_order_release);
    if (std::exchange(died_, true)) return;
    // Waiting calls first: they fail whatever becomes of the rest.
    ShutDownConnections();
    Endpoint::Get().Forget(this);
    std::unordered_set<std::shared_ptr<CallConnection>> accepted;
    std::vector<std::shared_ptr<CallConnection>> idle;
    std::shared_ptr<OnewayReceiver> receiver;
    {
        std::lock_guard lock(mutex_);
        accepted.swap(accepted_);
        idle.swap(idle_);
        for (auto& connection : idle)
            in_use_.erase(connection);
        receiver = std::move(receiver_);
        BeAwaitedNoMore();
    }
    for (auto& connection : accepted)
        connection->LeavePool();
    oneway.Close();
    // What was sent before the death is run, ahead of the notices of the death.
    if (receiver != nullptr) receiver->TakeRest();
    ReleaseEverything();
    std::shared_ptr<ControlConnection> control;
    {
        std::lock_guard lock(control_mutex_);
        control = std::move(control_);
        control_open_ = false;
        outbox_.Clear(0);
    }
    if (control != nullptr) control->StopWatching();
}

void Peer::ReleaseEverything() {
    auto dropped = std::make_shared<std::vector<BinderRef>>();
    for (auto& [id, count] : holdings.Close())
        dropped->push_back(ExportTable::Get().TakeBack(id, count));
    for (const DelayedReleases::Release& release : delayed_releases.Close())
        dropped->push_back(ExportTable::Get().TakeBack(release.id, release.arrivals));
    for (BinderRef& kept : keeps.Close())
        dropped->push_back(std::move(kept));
    std::deque<PendingAcquire> unanswered;
    {
        std::lock_guard lock(control_mutex_);
        unanswered.swap(acquires_);
        acquiring_.clear();
    }
    for (const PendingAcquire& one : unanswered) {
        one.from->passed_on_.fetch_sub(1);
        one.from->SendSettled(name, one.id);
    }
    // Moved: a copy left here would be the last one if the pool is quick.
    if (!dropped->empty()) Pool::Get().Post([dropped = std::move(dropped)] {});
    PostDeathNotices(proxies.Close());
}

}  // namespace host
