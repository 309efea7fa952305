#include "oneway_receiver.h"

#include <algorithm>
#include <utility>

#include "call_stack.h"
#include "limits.h"
#include "objects.h"
#include "parcel.h"
#include "peer.h"
#include "serve.h"
#include "sys.h"
#include "warning.h"

namespace host {
namespace {

// Calls that one turn takes before it sees to it that they run: a writer that never stops would
// otherwise fill its bound while its calls are only sorted.
constexpr size_t kCallsPerTurn = 128;

// When wake-ups follow one another this soon, the receiver looks by itself for a while, if more
// than one call was behind the last or the sender is waking very many at that time: calls come
// faster than they are worth a wake-up, or would, were it not for the wake-ups. It is tried, too,
// after some wake-ups that came closer than a lone call does: they may be what keeps the calls
// apart. A pause lasts as long as some calls take to gather; it is the last one when they come so
// slowly that wake-ups would not matter.
using std::chrono::microseconds;
constexpr microseconds kDenseGap{1000};
constexpr microseconds kCrowdedGap{8000};
constexpr microseconds kFirstPause{250};
constexpr microseconds kShortestPause{50};
constexpr microseconds kLongestPause{1000};
constexpr int64_t kCallsPerPause = 16;
constexpr microseconds kSlowestGap{250};
constexpr microseconds kNoPause{0};
constexpr uint32_t kCloseWakeUps = 8;  // in a row

// A pause that brings fewer calls was in vain: who calls may be waiting for an answer meanwhile.
// They are tried less and less then, but in the same moments by all receivers of the machine: what
// makes calls slow may be that so many receivers are woken for each, and none alone can change
// that.
constexpr int64_t kWorthAPause = 8;
constexpr OnewayReceiver::Clock::duration kTryFor = std::chrono::milliseconds(2);
constexpr uint32_t kMostVainPauses = 5;
// After a good one, so many in vain are put up with: a sender may be waiting for its slowest
// receiver.
constexpr uint32_t kLulls = 4;

// How long a thread waits at the ring for the next call when none comes.
constexpr std::chrono::milliseconds kStay{20};

// Wake-ups are bytes in a socket, which takes some 270 of them unread. Each is announced by itself,
// read or not, until it is full.
constexpr uint32_t kWakeUpsPerRead = 32;
constexpr int kReadsOfFullSocket = 64;

void RunLater(BinderRef target) {
    Pool::Get().Post([shared = std::shared_ptr<AIBinder>(std::move(target))] {
        RunOnewayCalls(AsLocal(shared.get()));
    });
}

}  // namespace

OnewayCall::~OnewayCall() {
    RecycleParcel(parcel);
    // Unlinked one by one: a long queue must not be destroyed by as deep a recursion.
    while (next != nullptr)
        next = std::move(next->next);
}

bool OnewayReceiver::Map(int file) {
    return memory_.Map(file);
}

bool OnewayReceiver::JoinPool() {
    if (!Pool::Get().Add(fd_.get(), EPOLLIN | EPOLLET, shared_from_this(), &key_)) return false;
    // The ring was filled before it got here.
    Pool::Get().Post([self = shared_from_this()] { self->OnReady(0); });
    return true;
}

void OnewayReceiver::TakeRest() {
    uint64_t key = key_.exchange(0);
    if (key != 0) Pool::Get().Remove(fd_.get(), key);
    {
        std::lock_guard lock(mutex_);
        ring_.Freeze();
    }
    // All of it: what is not entered when the peer's references are given up finds no object. It
    // ends, as nothing is added any more.
    bool more = true;
    size_t taken = 0;
    while (more) {
        auto dropped = std::make_shared<Dropped>();
        for (BinderRef& target : Drain(&more, &taken, dropped.get()))
            RunLater(std::move(target));
        if (!dropped->unanswerable.empty() || !dropped->refused.empty())
            Pool::Get().Post([dropped = std::move(dropped)] {});
    }
}

void OnewayReceiver::OnReady(uint32_t events) {
    auto gap = (events & EPOLLIN) != 0 ? SinceLastWakeUp() : Clock::duration::max();
    size_t taken = 0;
    bool good = unread_wakeups_.load() < kWakeUpsPerRead || ReadWakeUps();
    if (good) taken = TakeAndRun();
    // Nothing came with it: a wake-up too many, or a peer that plays with the socket.
    if (good && taken == 0) {
        good = ReadWakeUps();
        TakeAndRun();
    }
    if (!good) return peer_->Cut("a descriptor that nobody asked for");
    if (taken != 0) Attend(gap, taken);
}

microseconds OnewayReceiver::PauseAfter(Clock::duration gap, size_t taken) {
    auto pause = kNoPause;
    close_wakeups_ = gap < kLoneGap ? close_wakeups_ + 1 : 0;
    if (gap < kCrowdedGap && RingReader(&memory_).Load() == WakeUpLoad::kCrowd)
        pause = kLongestPause;
    else if ((gap < kDenseGap && taken > 1) || close_wakeups_ >= kCloseWakeUps)
        pause = kFirstPause;
    if (pause == kNoPause) return pause;
    const Clock::duration now(woken_at_.load());
    return now % (kTryFor * (1 << vain_pauses_)) < kTryFor ? pause : kNoPause;
}

microseconds OnewayReceiver::NextPause(microseconds pause, size_t taken) {
    auto calls = static_cast<int64_t>(taken);
    if (calls >= kWorthAPause) {
        vain_pauses_ = 0;
        lulls_left_ = kLulls;
    }
    if (calls * kSlowestGap >= pause)
        return std::clamp(pause * kCallsPerPause / calls, kShortestPause, kLongestPause);
    if (lulls_left_ != 0) {
        --lulls_left_;
        return pause;
    }
    vain_pauses_ = std::min(vain_pauses_ + 1, kMostVainPauses);
    return kNoPause;
}

OnewayReceiver::Clock::duration OnewayReceiver::SinceLastWakeUp() {
    auto now = Clock::now().time_since_epoch();
    return now - Clock::duration(woken_at_.exchange(now.count()));
}

bool OnewayReceiver::ReadWakeUps() {
    // Always ahead of a look into the ring: a byte that is read here may be the only sign of what
    // has just been written.
    unread_wakeups_.store(0);
    // The bytes say nothing but that something is there. What a socket can hold, if need be.
    uint8_t wakeups[4096];
    for (int i = 0; i < kReadsOfFullSocket; ++i) {
        iovec part{wakeups, sizeof(wakeups)};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        ssize_t got = sys::RecvMsg(fd_.get(), &message, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if ((message.msg_flags & MSG_CTRUNC) != 0) return false;
        if (got < static_cast<ssize_t>(sizeof(wakeups))) break;
    }
    return true;
}

size_t OnewayReceiver::TakeAndRun() {
    bool more = false;
    size_t taken = 0;
    Runnable runnable;
    {
        Dropped dropped;  // before anything runs, which may take long
        runnable = Drain(&more, &taken, &dropped);
    }
    if (more) Pool::Get().Post([self = shared_from_this()] { self->OnReady(0); });
    for (size_t i = 1; i < runnable.size(); ++i)
        RunLater(std::move(runnable[i]));
    if (!runnable.empty()) RunOnewayCalls(AsLocal(runnable[0].get()));
    return taken;
}

void OnewayReceiver::Attend(Clock::duration gap, size_t taken) {
    if (attended_.exchange(true)) return;
    auto pause = PauseAfter(gap, taken);
    while (taken != 0 || pause != kNoPause) {
        Pool::Linger linger;
        if (!linger.granted()) break;
        if (pause == kNoPause) {
            const bool alone = RingReader(&memory_).Load() == WakeUpLoad::kLight;
            // Woken best by the socket: its scheduler knows that the sender is about to sleep.
            if (alone && gap < kLoneGap) break;
            AwaitCall(alone);
            taken = TakeAndRun();
            gap = SinceLastWakeUp();
            pause = PauseAfter(gap, taken);
        } else {
            Pause(pause);
            taken = TakeAndRun();
            pause = NextPause(pause, taken);
            if (pause == kNoPause) break;
        }
    }
    attended_.store(false);
}

void OnewayReceiver::AwaitCall(bool where_sender_runs) {
    {
        std::lock_guard lock(mutex_);
        if (!ring_.Sleep(WakeUp::kFutex)) return;
    }
    const RingReader reader(&memory_);
    const WakeUpPlace::Hold hold(&place_, where_sender_runs ? reader.Processor() : 0);
    reader.Await(WakeUp::kFutex, kStay);
}

void OnewayReceiver::Pause(microseconds pause) {
    {
        std::lock_guard lock(mutex_);
        ring_.Sleep(WakeUp::kFutexWhenMuch);
    }
    RingReader(&memory_).Await(WakeUp::kFutexWhenMuch, pause);
}

void OnewayReceiver::Started(size_t record_size) {
    pending_.fetch_sub(record_size);
    RingReader(&memory_).Finish(record_size);
}

OnewayReceiver::Runnable OnewayReceiver::Drain(bool* more, size_t* taken, Dropped* dropped) {
    Runnable runnable;
    bool cut = false;
    uint64_t position;
    *more = false;
    {
        HeldWarnings after;
        std::lock_guard lock(mutex_);
        if (!broken_ && !TakeSome(&runnable, more, taken)) {
            broken_ = true;
            cut = true;
        }
        std::swap(*dropped, dropped_);
        position = ring_.position();
    }
    peer_->OnOnewayRead(position);
    if (cut) peer_->Cut("malformed oneway call");
    return runnable;
}

bool OnewayReceiver::TakeSome(Runnable* runnable, bool* more, size_t* taken) {
    ring_.Wake();
    for (*taken = 0; *taken < kCallsPerTurn;) {
        const uint8_t* body;
        size_t size;
        RingReader::Result result = ring_.Front(&body, &size);
        if (result == RingReader::Result::kBroken) return false;
        if (result == RingReader::Result::kEmpty) {
            // At most one byte for each time.
            unread_wakeups_.fetch_add(1);
            if (ring_.Sleep(WakeUp::kByte)) return true;
            ring_.Wake();
            continue;
        }
        std::unique_ptr<OnewayCall> call;
        if (!Take(body, size, &call)) return false;
        ring_.Pop();
        ++*taken;
        LocalBinder* target = AsLocal(call->target.get());
        if (target == nullptr) {
            Started(call->record_size);
            dropped_.unanswerable.push_back(std::move(call));
        } else {
            // The reference in the call stays until the call has run, and the object is busy until
            // then.
            if (target->QueueOneway(std::move(call))) runnable->push_back(NewRef(target));
        }
    }
    *more = true;
    return true;
}

bool OnewayReceiver::Take(const uint8_t* shared, size_t size, std::unique_ptr<OnewayCall>* taken) {
    if (size < sizeof(CallBody)) return false;
    auto body = CopyOut<CallBody>(shared);
    size_t message_size = sizeof(CallBody) + Padded(body.data_size) + size_t{body.objects_size};
    bool sound =
            body.flags == FLAG_ONEWAY && body.depth == 0 &&
            body.data_size <= kMaxTransactionBytes && body.objects_size <= kMaxTransactionBytes &&
            RingWriter::RecordSize(message_size) == RingWriter::RecordSize(size) &&
            message_size <= size && body.object_count <= body.objects_size / sizeof(WireObject);
    size_t record_size = RingWriter::RecordSize(size);
    if (!sound || pending_.load() + record_size > kMaxOnewayPendingBytes) return false;
    Buffer table;
    table.Append(shared + sizeof(CallBody) + Padded(body.data_size), body.objects_size);
    std::vector<AParcel::Object> objects;
    Message message{{}, Bytes(table.data(), table.size()), body.object_count};
    auto call = std::make_unique<OnewayCall>();
    call->parcel = ObtainParcel();
    bool good = DecodeObjects(peer_, message, &objects);
    // References of a message that is refused outlive the lock, under which none may be the last.
    std::vector<BinderRef> held;
    held.reserve(objects.size());
    for (const AParcel::Object& object : objects)
        held.push_back(NewRef(object.binder));
    if (!good) DropObjects(&objects);
    good = good &&
           call->parcel->Assign(shared + sizeof(CallBody), body.data_size, std::move(objects));
    if (!good) {
        dropped_.refused.swap(held);
        return false;
    }
    call->target = ExportTable::Get().Find(body.target);
    call->code = body.code;
    call->record_size = record_size;
    call->from = shared_from_this();
    pending_.fetch_add(record_size);
    *taken = std::move(call);
    return true;
}

void RunOnewayCalls(LocalBinder* target) {
    std::unique_ptr<OnewayCall> call;
    while (call != nullptr || (call = target->TakeOneways()) != nullptr) {
        Pool::StayIfExiting();
        call->from->Started(call->record_size);
        CallFrame frame;
        frame.peer = call->from->peer().get();
        {
            ServedCall served(&frame);
            AParcel* out = ObtainParcel();
            Dispatch(target, call->code, call->parcel, out);
            RecycleParcel(out);
        }
        call = std::move(call->next);
    }
}

}  // namespace host
