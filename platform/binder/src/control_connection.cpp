#include "control_connection.h"

#include "endpoint.h"
#include "peer.h"
#include "pool.h"
#include "sys.h"

namespace host {
namespace {

constexpr size_t kReadBytes = 4096;
// One turn reads so much at most: a peer that never stops writing does not keep the thread from the
// others.
constexpr int kReadsPerTurn = 16;

bool HandleAcquire(Peer* peer, const AcquireBody& body) {
    bool known = ExportTable::Get().HandOver(body.id);
    Holdings::Result result = known ? peer->holdings.Add(body.id) : Holdings::Result::kUnknown;
    if (known && result != Holdings::Result::kOk)
        DropOnPool(ExportTable::Get().TakeBack(body.id, 1));
    if (result == Holdings::Result::kFull) peer->TellOfHoldings();
    peer->SendAcquired(body.id, result == Holdings::Result::kOk);
    return true;
}

bool HandleSettled(Peer* peer, const SettledBody& body) {
    const std::string_view owner = DecodeName(body.owner);
    std::vector<BinderRef> released;
    if (owner.empty() || !peer->keeps.Settle(owner, body.id, &released)) return false;
    // All of them stand-ins: no object's own code runs as they go.
    return true;
}

}  // namespace

bool ControlConnection::StartWatching() {
    uint64_t key = Housekeeper::Get().Watch(fd_.get(), EPOLLIN, shared_from_this());
    key_.store(key);
    return key != 0;
}

void ControlConnection::StopWatching() {
    uint64_t key = key_.exchange(0);
    if (key != 0) Housekeeper::Get().Forget(fd_.get(), key);
}

void ControlConnection::WatchForRoom(bool wanted) {
    uint64_t key = key_.load();
    if (key != 0) Housekeeper::Get().Change(fd_.get(), key, wanted ? EPOLLIN | EPOLLOUT : EPOLLIN);
}

void ControlConnection::ShutDown() {
    shutdown(fd_.get(), SHUT_RDWR);
}

void ControlConnection::OnEvents(uint32_t events) {
    auto self = shared_from_this();
    if ((events & EPOLLOUT) != 0) peer_->OnControlWritable();
    if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) == 0) return;
    bool open = Read();
    const char* reason = nullptr;
    if (!HandleFrames(&reason)) {
        peer_->Cut(reason);
        open = false;
    }
    if (open) return;
    StopWatching();
    // What the peer sent before it died counts: connections that it opened may still be in the
    // queue, or their hello unread.
    Endpoint::Get().AcceptAll();
    Endpoint::Get().ReadHellos(peer_->pid());
    peer_->OnControlEnd(this);
}

bool ControlConnection::Read() {
    for (int turn = 0; turn < kReadsPerTurn; ++turn) {
        in_.Reserve(in_.size() + kReadBytes);
        iovec part{in_.data() + in_.size(), kReadBytes};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        ssize_t got = sys::RecvMsg(fd_.get(), &message, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno == EAGAIN;
        if (got == 0) return false;
        if ((message.msg_flags & MSG_CTRUNC) != 0) {
            peer_->Cut("a descriptor that nobody asked for");
            return false;
        }
        in_.Advance(static_cast<size_t>(got));
        if (static_cast<size_t>(got) < kReadBytes) return true;
    }
    return true;
}

bool ControlConnection::HandleFrames(const char** reason) {
    size_t done = 0;
    bool good = true;
    while (good && in_.size() - done >= sizeof(FrameHeader)) {
        Bytes rest(in_.data() + done, in_.size() - done);
        auto header = DecodeHeader(rest);
        good = header.has_value();
        if (!good || rest.size() < sizeof(FrameHeader) + header->body_size) break;
        good = HandleFrame(static_cast<FrameType>(header->type),
                           rest.subspan(sizeof(FrameHeader), header->body_size));
        done += sizeof(FrameHeader) + header->body_size;
    }
    in_.Consume(done);
    *reason = "malformed control message";
    return good;
}

bool ControlConnection::HandleFrame(FrameType type, Bytes body) {
    switch (type) {
        case FrameType::kWelcome:
            peer_->OnWelcome(this);
            return true;
        case FrameType::kYield:
            return peer_->OnYield(this);
        case FrameType::kAcquire:
            return HandleAcquire(peer_.get(), CopyOut<AcquireBody>(body.data()));
        case FrameType::kAcquired: {
            auto answer = CopyOut<AcquireBody>(body.data());
            return peer_->OnAcquired(answer.id, answer.granted != 0);
        }
        case FrameType::kRelease:
            return peer_->OnRelease(CopyOut<ReleaseBody>(body.data()));
        case FrameType::kSettled:
            return HandleSettled(peer_.get(), CopyOut<SettledBody>(body.data()));
        default:
            return false;
    }
}

}  // namespace host
