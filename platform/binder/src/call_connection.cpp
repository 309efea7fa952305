#include "call_connection.h"

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "descriptors.h"
#include "limits.h"
#include "objects.h"
#include "parcel.h"
#include "peer.h"
#include "serve.h"
#include "sys.h"

namespace host {
namespace {

constexpr size_t kFirstReadBytes = 4096;

// How long it looks into the mailbox, awake, before it waits at the socket.
constexpr std::chrono::microseconds kLookOut{50};

// So many frames are served, or knocks taken, in a row while all threads of the pool are busy: a
// caller that sends on and on would otherwise keep a thread from everybody else, as one that knocks
// does without waiting for any answer.
constexpr uint32_t kFramesPerTurn = 64;

constexpr int kMaxParts = 5;

// A message as pieces for one system call.
struct Pieces {
    iovec parts[kMaxParts];
    int count = 0;
    size_t total = 0;

    void Add(const void* data, size_t size) {
        if (size == 0) return;
        parts[count++] = {const_cast<void*>(data), size};
        total += size;
    }
};

constexpr uint8_t kZeros[sizeof(uint32_t)] = {};

void Gather(const CallConnection::Parts& message, FrameHeader* header, Pieces* pieces) {
    size_t padding = Padded(message.data.size()) - message.data.size();
    size_t body = message.fixed_size + message.data.size() + padding + message.objects.size();
    *header = {static_cast<uint32_t>(body), kFrameMagic, static_cast<uint16_t>(message.type)};
    pieces->Add(header, sizeof(*header));
    pieces->Add(message.fixed, message.fixed_size);
    pieces->Add(message.data.data(), message.data.size());
    pieces->Add(kZeros, padding);
    pieces->Add(message.objects.data(), message.objects.size());
}

void SkipSent(Pieces* pieces, size_t sent) {
    for (iovec& part : pieces->parts) {
        size_t here = std::min(sent, part.iov_len);
        part.iov_base = static_cast<uint8_t*>(part.iov_base) + here;
        part.iov_len -= here;
        sent -= here;
        if (sent == 0) return;
    }
}

}  // namespace

CallConnection::Result CallConnection::Read(Wait wait, FrameType* type, Bytes* body,
                                            UniqueFd* received) {
    in_.Consume(frame_size_);
    frame_size_ = 0;
    if (in_.empty()) in_.Clear();
    for (;;) {
        if (in_.empty() && lookout_.IsLooking()) {
            const bool dozes = lookout_.IsDozing();
            if (!LookIntoMailbox(wait)) return Result::kMalformed;
            if (dozes && wait == Wait::kBriefly) wait = Wait::kNot;
        }
        Bytes there(in_.data(), in_.size());
        if (there.size() >= sizeof(FrameHeader)) {
            auto header = DecodeHeader(there);
            if (!header) return Result::kMalformed;
            size_t size = sizeof(FrameHeader) + header->body_size;
            if (header->type == static_cast<uint16_t>(FrameType::kKnock)) {
                if (!OnKnock()) return Result::kMalformed;
                if (wait != Wait::kUntilThere && IsTurnOver()) return Result::kTurnIsOver;
                continue;
            }
            if (there.size() >= size) {
                frame_size_ = size;
                *type = static_cast<FrameType>(header->type);
                *body = there.subspan(sizeof(FrameHeader), header->body_size);
                return Result::kFrame;
            }
            // Room grows with what has come, not with what was announced.
            in_.Reserve(std::min(size, std::max(2 * in_.size(), kFirstReadBytes)));
        }
        if (!there.empty() && wait == Wait::kBriefly) wait = Wait::kNot;
        Result failure;
        if (!Receive(wait, received, &failure)) return failure;
    }
}

bool CallConnection::Receive(Wait wait, UniqueFd* received, Result* failure) {
    in_.Reserve(kFirstReadBytes);
    if (in_.capacity() == in_.size()) in_.Reserve(2 * in_.size());
    iovec part{in_.data() + in_.size(), in_.capacity() - in_.size()};
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (received != nullptr) space.Attach(&message);
    // Not in recvmsg itself: it would also be woken when the peer takes what was sent.
    pollfd readable{fd_.get(), POLLIN, 0};
    if (wait == Wait::kUntilThere) sys::Poll(&readable, -1);
    const bool in_vain = wait == Wait::kBriefly &&
                         sys::Poll(&readable, kBriefWait / std::chrono::milliseconds(1)) == 0;
    // Once there is a mailbox nothing is received but bytes: frequent callers take no lock.
    std::shared_lock until_owned(ForkMutex(), std::defer_lock);
    if (received != nullptr) until_owned.lock();
    ssize_t got = in_vain ? -1 : sys::RecvMsg(fd_.get(), &message, MSG_DONTWAIT);
    if (!in_vain && got < 0 && errno == EINTR) return true;
    const bool nothing_yet = in_vain || (got < 0 && errno == EAGAIN);
    if (nothing_yet && wait == Wait::kUntilThere) return true;
    *failure = nothing_yet ? Result::kIncomplete : Result::kClosed;
    if (got <= 0) return false;
    in_.Advance(static_cast<size_t>(got));
    *failure = Result::kMalformed;
    const bool lost = received != nullptr && space.IsLost(message);
    if (lost) lost_descriptor_ = true;
    if (received != nullptr) return lost || space.Take(message, received);
    return (message.msg_flags & MSG_CTRUNC) == 0;
}

bool CallConnection::LookIntoMailbox(Wait wait) {
    const auto limit = wait == Wait::kNot    ? std::chrono::microseconds(0)
                       : lookout_.IsDozing() ? kBriefWait
                                             : kLookOut;
    return lookout_.Await(&in_, limit) != Mailbox::Taken::kBroken;
}

bool CallConnection::OnKnock() {
    if (!mailbox_.ok()) return false;
    in_.Consume(sizeof(FrameHeader));
    // Late: what it told of was taken in passing, or nothing would have followed.
    return !in_.empty() || mailbox_.Take(&in_) != Mailbox::Taken::kBroken;
}

bool CallConnection::BeginCall(bool nested) {
    if (!ours_) return true;
    // Who waits for an answer here takes no offer.
    if (!nested) lookout_.NoteCall();
    if (!nested && !mailbox_was_offered_ && lookout_.IsMailboxWorthIt() && !OfferMailbox())
        return false;
    if (!lookout_.CallsAreDense())
        lookout_.BeginDozing();
    else if (nested)
        lookout_.Begin();
    else
        lookout_.BeginAsOfNote();
    return true;
}

bool CallConnection::OfferMailbox() {
    mailbox_was_offered_ = true;
    UniqueFd file;
    // Without one every call goes through the socket.
    if (!mailbox_.Create(&file)) return true;
    return SendToSocket({FrameType::kMailbox, nullptr, 0, {}, {}, file.get()}, /*wait=*/true);
}

bool CallConnection::TakeMailbox() {
    const UniqueFd file = std::move(offered_);
    if (!file.ok()) return HasLostDescriptor();
    return mailbox_.Map(file.get()) || errno == ENOMEM;
}

void CallConnection::LookForNextCall() {
    if (calls_are_lone_)
        lookout_.BeginDozing();
    else
        lookout_.Begin();
}

bool CallConnection::Send(const Parts& parts, bool wait) {
    // What is sent may be answered at once: the other side must not take this one to look still.
    if (!lookout_.IsLooking() && mailbox_.ok()) mailbox_.LookAway();
    const bool is_awaited = mailbox_.ok() && kept_.empty() && mailbox_.OtherLooks();
    return is_awaited ? SendToMailbox(parts, wait) : SendToSocket(parts, wait);
}

bool CallConnection::SendToMailbox(const Parts& parts, bool wait) {
    FrameHeader header;
    Pieces pieces;
    Gather(parts, &header, &pieces);
    if (parts.descriptor >= 0 || pieces.total > Mailbox::kMaxFrame) {
        const bool sent = SendToSocket(parts, wait);
        mailbox_.PointToSocket();
        return sent;
    }
    uint8_t* place = mailbox_.place();
    for (int i = 0; i < pieces.count; ++i) {
        memcpy(place, pieces.parts[i].iov_base, pieces.parts[i].iov_len);
        place += pieces.parts[i].iov_len;
    }
    return mailbox_.Put(pieces.total) ||
           SendToSocket({FrameType::kKnock, nullptr, 0, {}, {}}, wait);
}

bool CallConnection::SendToSocket(const Parts& parts, bool wait) {
    FrameHeader header;
    Pieces pieces;
    Gather(parts, &header, &pieces);
    DescriptorSpace space;
    msghdr message{};
    message.msg_iov = pieces.parts;
    message.msg_iovlen = static_cast<size_t>(pieces.count);
    if (parts.descriptor >= 0) space.AttachOne(&message, parts.descriptor);
    size_t sent = 0;
    while (sent < pieces.total) {
        ssize_t taken = sys::SendMsg(fd_.get(), &message, wait ? 0 : MSG_DONTWAIT);
        if (taken < 0 && errno == EINTR) continue;
        if (taken < 0 && errno == EAGAIN && !wait) return KeepRest(parts, sent);
        if (taken < 0) return false;
        sent += static_cast<size_t>(taken);
        SkipSent(&pieces, static_cast<size_t>(taken));
        message.msg_control = nullptr;
        message.msg_controllen = 0;
    }
    return true;
}

bool CallConnection::KeepRest(const Parts& parts, size_t sent) {
    // Nothing of it taken and a descriptor to go with it: a dump's answer, for which the asker
    // finds no room.
    if (parts.descriptor >= 0 && sent == 0) return false;
    FrameHeader header;
    Pieces pieces;
    Gather(parts, &header, &pieces);
    SkipSent(&pieces, sent);
    for (int i = 0; i < pieces.count; ++i)
        kept_.Append(pieces.parts[i].iov_base, pieces.parts[i].iov_len);
    return true;
}

bool CallConnection::SendKept() {
    size_t sent = 0;
    while (sent < kept_.size()) {
        ssize_t taken =
                sys::Send(fd_.get(), kept_.data() + sent, kept_.size() - sent, MSG_DONTWAIT);
        if (taken < 0 && errno == EINTR) continue;
        if (taken < 0 && errno != EAGAIN) return false;
        if (taken < 0) break;
        sent += static_cast<size_t>(taken);
    }
    kept_.Consume(sent);
    if (kept_.empty()) kept_.Clear(0);
    return true;
}

bool CallConnection::SendReply(int32_t status, const AParcel* reply, bool wait) {
    ReplyBody body{};
    Buffer objects;
    Bytes data;
    ObjectEncoder encoder(peer_.get(), Direction::kReply);
    body.status = status;
    if (reply != nullptr && status == STATUS_OK) {
        binder_status_t encoded = encoder.Encode(*reply, &objects);
        if (encoded == STATUS_OK) {
            data = Bytes(reply->data(), reply->size());
            body.object_count = static_cast<uint32_t>(reply->objects().size());
        } else {
            body.status = encoded;
            objects.Clear();
        }
    }
    body.data_size = static_cast<uint32_t>(data.size());
    body.objects_size = static_cast<uint32_t>(objects.size());
    bool sent = Send(
            {FrameType::kReply, &body, sizeof(body), data, Bytes(objects.data(), objects.size())},
            wait);
    if (!sent) encoder.Undo();
    return sent;
}

bool CallConnection::JoinPool() {
    handed_over_.store(true, std::memory_order_release);
    // Armed at once: a descriptor that is to be armed later has the end of the connection for an
    // event all the same, and would then have two threads.
    return Pool::Get().Add(fd_.get(), EPOLLIN | EPOLLONESHOT, shared_from_this(), &key_);
}

void CallConnection::LeavePool() {
    uint64_t key = key_.exchange(0);
    if (key != 0) Pool::Get().Remove(fd_.get(), key);
}

void CallConnection::Rearm() {
    // Nothing is put meanwhile: the caller has no answer yet.
    if (lookout_.IsLooking()) lookout_.End();
    uint64_t key = key_.load();
    uint32_t events = kept_.empty() ? EPOLLIN : EPOLLOUT;
    int fd = fd_.get();
    handed_over_.store(true, std::memory_order_release);
    if (key != 0) Pool::Get().Rearm(fd, key, events);
}

void CallConnection::ShutDown() {
    shutdown(fd_.get(), SHUT_RDWR);
}

bool CallConnection::IsOpen() const {
    pollfd state{fd_.get(), POLLRDHUP, 0};
    return poll(&state, 1, 0) == 0;
}

void CallConnection::OnReady(uint32_t) {
    auto self = shared_from_this();
    handed_over_.exchange(false, std::memory_order_acq_rel);
    if (!kept_.empty() && !SendKept()) return peer_->DropAccepted(self);
    if (!kept_.empty()) return Rearm();
    if (!ServeFrames()) peer_->DropAccepted(self);
}

bool CallConnection::ServeFrames() {
    frames_left_ = kFramesPerTurn;
    FrameType type;
    Bytes body;
    Result result = ReadCall(Wait::kNot, &type, &body);
    while (result != Result::kIncomplete) {
        if (result == Result::kClosed) return false;
        if (result == Result::kTurnIsOver) {
            // Not armed meanwhile, so that no second thread comes.
            Pool::Get().Post([self = shared_from_this()] { self->OnReady(0); });
            return true;
        }
        const Served served =
                result == Result::kFrame ? ServeFrame(type, body) : Served::kMalformed;
        if (served == Served::kDeferred) return true;
        if (served == Served::kClosed) return false;
        if (served == Served::kMalformed) {
            peer_->Cut("malformed call");
            return false;
        }
        if (!kept_.empty()) break;
        result = ReadNext(&type, &body);
    }
    if (!in_.empty() && in_.size() == frame_size_) {
        in_.Clear();
        frame_size_ = 0;
    }
    Rearm();
    return true;
}

Served CallConnection::ServeFrame(FrameType type, Bytes body) {
    Pool::StayIfExiting();
    if (type == FrameType::kMailbox) return TakeMailbox() ? Served::kAnswered : Served::kMalformed;
    if (type != FrameType::kCall || offered_.ok() || lost_descriptor_) return Served::kMalformed;
    mailbox_.Prepare();
    return ServeCall(this, body, /*nested=*/false);
}

CallConnection::Result CallConnection::ReadCall(Wait wait, FrameType* type, Bytes* body) {
    const Result result = Read(wait, type, body, mailbox_.ok() ? nullptr : &offered_);
    // The offer of a mailbox is too short to come in parts.
    const bool in_part = result == Result::kIncomplete && (offered_.ok() || lost_descriptor_);
    return in_part ? Result::kMalformed : result;
}

bool CallConnection::IsTurnOver() {
    if (--frames_left_ != 0) return false;
    frames_left_ = kFramesPerTurn;
    return !Pool::Get().HasIdleThread();
}

CallConnection::Result CallConnection::ReadNext(FrameType* type, Bytes* body) {
    if (IsTurnOver()) return Result::kTurnIsOver;
    if (in_.size() > frame_size_) return ReadCall(Wait::kNot, type, body);
    // Who has just called often calls again: the thread that stays here saves both sides the way
    // through the pool.
    Pool::Linger linger;
    if (!linger.granted())
        return lookout_.IsLooking() ? ReadCall(Wait::kNot, type, body) : Result::kIncomplete;
    const bool looks = lookout_.IsLooking() && !lookout_.IsDozing();
    const auto begin = looks ? lookout_.begun() : std::chrono::steady_clock::now();
    const Result result = ReadWhereCallerRuns(type, body);
    bool at_once = looks && lookout_.CameAtOnce();
    if (!at_once) {
        const auto waited = std::chrono::steady_clock::now() - begin;
        calls_are_lone_ = waited > kLoneGap;
        at_once = looks && waited < kLookOut;
    }
    if (result == Result::kFrame)
        NoteServedCall(calls_are_lone_ ? CallCame::kAlone
                       : at_once       ? CallCame::kAtOnce
                                       : CallCame::kOften);
    // Each side then has a processor of its own, and neither has to give way to the other.
    if (result == Result::kFrame && at_once) away_from_caller_.MoveFrom(mailbox_.OtherRunsOn());
    return result;
}

CallConnection::Result CallConnection::ReadWhereCallerRuns(FrameType* type, Bytes* body) {
    if (!calls_are_lone_) return ReadCall(Wait::kBriefly, type, body);
    const WakeUpPlace::Hold hold(&place_, caller_runs_on_);
    return ReadCall(Wait::kBriefly, type, body);
}

}  // namespace host
