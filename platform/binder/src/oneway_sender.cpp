#include "oneway_sender.h"

#include <chrono>
#include <cstring>

#include "endpoint.h"
#include "housekeeper.h"
#include "limits.h"
#include "objects.h"
#include "parcel.h"
#include "peer.h"
#include "sys.h"
#include "wake_up_rows.h"
#include "warning.h"

namespace host {
namespace {

constexpr int kRetryWhenRefusedMs = 50;

// Wake-ups of this process in a span of time, of which receivers are told.
class WakeUpMeter {
  public:
    using Clock = WakeUpRows::Clock;

    // Counts one; answers for the last span that is over.
    WakeUpLoad Count(Clock::time_point when) {
        const int64_t now = when.time_since_epoch().count();
        uint32_t counted = counted_.fetch_add(1, std::memory_order_relaxed) + 1;
        if (now - begin_.load(std::memory_order_relaxed) >= kSpan.count()) {
            begin_.store(now, std::memory_order_relaxed);
            counted_.store(0, std::memory_order_relaxed);
            load_.store(LoadOf(counted), std::memory_order_relaxed);
        }
        return load_.load(std::memory_order_relaxed);
    }

  private:
    static constexpr Clock::duration kSpan = std::chrono::milliseconds(4);
    static constexpr uint32_t kFanOut = 48;
    // So many are a good part of all that a process does.
    static constexpr uint32_t kCrowd = 80;

    static WakeUpLoad LoadOf(uint32_t counted) {
        if (counted >= kCrowd) return WakeUpLoad::kCrowd;
        return counted >= kFanOut ? WakeUpLoad::kFanOut : WakeUpLoad::kLight;
    }

    std::atomic<int64_t> begin_{0};
    std::atomic<uint32_t> counted_{0};
    std::atomic<WakeUpLoad> load_{WakeUpLoad::kLight};
};
WakeUpMeter g_wakeups;

class ConnectionEnd : public Watched {
  public:
    explicit ConnectionEnd(std::shared_ptr<Peer> peer) : peer_(std::move(peer)) {}
    void OnEvents(uint32_t) override { peer_->oneway.OnConnectionEnd(); }

  private:
    const std::shared_ptr<Peer> peer_;
};

}  // namespace

binder_status_t OnewaySender::Send(const RefId& target, uint32_t code, const AParcel& parcel) {
    if (IsForkedChild()) return STATUS_DEAD_OBJECT;
    Report report;
    binder_status_t status;
    {
        HeldWarnings after;
        std::lock_guard lock(mutex_);
        status = SendLocked(target, code, parcel, &report);
    }
    ChooseSendingPlace(report.woke_one);
    if (report.broken != nullptr) peer_->Cut(report.broken);
    if (report.first_refusal) {
        Warn("Oneway calls to pid %d uid %d are refused: %zu bytes have not been run yet.",
             peer_->pid(), peer_->uid(), kMaxOnewayPendingBytes);
    }
    if (report.refused_before != 0) {
        Warn("Oneway calls to pid %d uid %d are accepted again; %zu were refused.", peer_->pid(),
             peer_->uid(), report.refused_before);
    }
    return status;
}

binder_status_t OnewaySender::SendLocked(const RefId& target, uint32_t code, const AParcel& parcel,
                                         Report* report) {
    if (closed_ || peer_->IsDead()) return STATUS_DEAD_OBJECT;
    if (!ring_ && !OpenRing()) return STATUS_NO_MEMORY;
    binder_status_t status = WriteRecord(target, code, parcel, report);
    if (status == STATUS_OK) {
        report->refused_before = std::exchange(refused_, 0);
        const WakeUp wake = ring_->Publish();
        position_.store(ring_->position(), std::memory_order_release);
        if (wake != WakeUp::kNone) report->woke_one = GiveWakeUp(wake) != WakeUpLoad::kCrowd;
    }
    return status;
}

WakeUpLoad OnewaySender::GiveWakeUp(WakeUp wake) {
    static thread_local WakeUpRows rows;
    const auto now = WakeUpRows::Clock::now();
    const WakeUpLoad load = g_wakeups.Count(now);
    const ProcessorNote here = NoteProcessor();
    if (wake == WakeUp::kByte) {
        ring_->Tell(load, here);
        SendWakeUp();
    } else if (load != WakeUpLoad::kLight) {
        ring_->Tell(load, here);
        ring_->WakeAtFutex();
    } else {
        ring_->Tell(load, rows.Begin(now) ? OtherProcessor(here) : here);
        ring_->WakeAtFutex();
        rows.End(WakeUpRows::Clock::now());
    }
    return load;
}

binder_status_t OnewaySender::WriteRecord(const RefId& target, uint32_t code, const AParcel& parcel,
                                          Report* report) {
    ObjectEncoder encoder(peer_, Direction::kOneway);
    Buffer objects;
    binder_status_t status = encoder.Encode(parcel, &objects);
    if (status != STATUS_OK) return status;
    size_t padded = Padded(parcel.size());
    size_t size = sizeof(CallBody) + padded + objects.size();
    auto pending = ring_->Pending();
    bool fits = pending && *pending + RingWriter::RecordSize(size) <= kMaxOnewayPendingBytes;
    uint8_t* place = fits ? ring_->Begin(size) : nullptr;
    if (place == nullptr) {
        encoder.Undo();
        if (!pending || fits) {
            report->broken = "impossible positions in its oneway ring";
            return STATUS_DEAD_OBJECT;
        }
        report->first_refusal = refused_++ == 0;
        return STATUS_FAILED_TRANSACTION;
    }
    CallBody call{target,
                  code,
                  FLAG_ONEWAY,
                  0,
                  0,
                  static_cast<uint32_t>(parcel.size()),
                  static_cast<uint32_t>(parcel.objects().size()),
                  static_cast<uint32_t>(objects.size())};
    memcpy(place, &call, sizeof(call));
    if (parcel.size() != 0) memcpy(place + sizeof(call), parcel.data(), parcel.size());
    if (!objects.empty()) memcpy(place + sizeof(call) + padded, objects.data(), objects.size());
    return STATUS_OK;
}

bool OnewaySender::OpenRing() {
    if (!memory_.Create(&ring_file_)) return false;
    ring_.emplace(&memory_, ring_file_.get());
    TryConnect();
    return true;
}

void OnewaySender::TryConnect() {
    if (closed_ || !ring_ || connection_.ok() || !peer_->IsReachable()) return;
    Connected connected = Endpoint::Get().ConnectTo(peer_->name);
    if (connected.result == ConnectResult::kConnected &&
        SendHello(connected.fd.get(), ConnectionKind::kOneway, Endpoint::Get().name(),
                  ring_file_.get())) {
        connection_ = std::move(connected.fd);
        connection_key_ = Housekeeper::Get().Watch(
                connection_.get(), EPOLLRDHUP,
                std::make_shared<ConnectionEnd>(peer_->shared_from_this()));
        return;
    }
    // A refusal is a death, of which the control connection tells, or something that passes: what
    // has been accepted is not given up before the death is known.
    const bool refused = connected.result == ConnectResult::kRefused;
    ConnectLater(refused ? kRetryWhenRefusedMs : kConnectRetryMs);
}

void OnewaySender::ConnectLater(int delay_ms) {
    Housekeeper::Get().RunLater(delay_ms,
                                [peer = peer_->shared_from_this()] { peer->oneway.OnReachable(); });
}

void OnewaySender::Disconnect() {
    if (connection_key_ != 0)
        Housekeeper::Get().Forget(connection_.get(), std::exchange(connection_key_, 0));
    connection_.Reset();
}

void OnewaySender::OnConnectionEnd() {
    std::lock_guard lock(mutex_);
    // The peer had no descriptor left for the ring: it gets it again, with what was written
    // meanwhile.
    Disconnect();
    if (!closed_ && !peer_->IsDead()) ConnectLater(kConnectRetryMs);
}

void OnewaySender::OnReachable() {
    std::lock_guard lock(mutex_);
    TryConnect();
}

void OnewaySender::SendWakeUp() {
    uint8_t byte = 0;
    // A full socket holds enough wake-ups already; a closed one is a death that is noticed
    // elsewhere.
    if (!connection_.ok()) return;
    ssize_t sent = -1;
    do {
        sent = sys::Send(connection_.get(), &byte, sizeof(byte), MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0 || errno == EAGAIN || errno == EPIPE || errno == ECONNRESET) return;
    // The kernel is short of memory: the call is in the ring, and its wake-up comes later.
    Housekeeper::Get().RunLater(kConnectRetryMs,
                                [peer = peer_->shared_from_this()] { peer->oneway.WakeAgain(); });
}

void OnewaySender::WakeAgain() {
    std::lock_guard lock(mutex_);
    SendWakeUp();
}

void OnewaySender::Close() {
    size_t refused = 0;
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
        refused = std::exchange(refused_, 0);
        Disconnect();
        ring_file_.Reset();
        ring_.reset();
        memory_ = RingMemory();
    }
    if (refused == 0) return;
    Warn("Oneway calls to pid %d uid %d are over; %zu were refused.", peer_->pid(), peer_->uid(),
         refused);
}

}  // namespace host
