#include "ring.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "limits.h"
#include "sys.h"

namespace host {
namespace {

// A record is this header and its body. A pad fills the rest of the ring up to its end.
struct RecordHeader {
    uint32_t size;  // with this header, a multiple of kRecordAlign
    uint32_t is_pad;
};
static_assert(sizeof(RecordHeader) == kRecordAlign);

// An empty ring is used from its start again once this much has been used, so that light traffic
// touches a few pages only. Pages far behind are given back when a burst had used them.
constexpr size_t kRestartBytes = 8 * 1024;
constexpr size_t kGiveBackBytes = 32 * 1024;
constexpr size_t kKeepBytes = 16 * 1024;

// What a reader that lets calls gather wants to hear of: some forty calls, long before the bound
// refuses any, and before a sender that waits for its slowest receiver has to.
constexpr uint64_t kMuchPendingBytes = kMaxOnewayPendingBytes / 32;

// Twice the bound on pending bytes: however records and one pad fall, the next record that the
// bound admits finds contiguous room.
static_assert(RingMemory::kDataBytes >= 2 * kMaxOnewayPendingBytes);

}  // namespace

size_t RingWriter::RecordSize(size_t body_size) {
    return (sizeof(RecordHeader) + body_size + kRecordAlign - 1) & ~(kRecordAlign - 1);
}

std::optional<size_t> RingWriter::Pending() {
    uint64_t finished = memory_->control().finished.load(std::memory_order_acquire);
    if (finished < seen_finished_ || finished > accepted_) return std::nullopt;
    seen_finished_ = finished;
    return static_cast<size_t>(accepted_ - finished);
}

uint8_t* RingWriter::Begin(size_t body_size) {
    uint64_t consumed = memory_->control().consumed.load(std::memory_order_acquire);
    if (consumed < seen_consumed_ || consumed > position_) return nullptr;
    seen_consumed_ = consumed;
    next_size_ = RecordSize(body_size);
    if (consumed == position_ && Offset(position_) >= kRestartBytes) Restart();
    if (RingMemory::kDataBytes - Offset(position_) < next_size_ && !PadToEnd()) return nullptr;
    if (!HasRoom(next_size_)) return nullptr;
    uint8_t* record = memory_->data() + Offset(position_);
    RecordHeader header{static_cast<uint32_t>(next_size_), 0};
    memcpy(record, &header, sizeof(header));
    return record + sizeof(header);
}

bool RingWriter::HasRoom(size_t size) const {
    // What lies before the last restart is neither written nor read any more.
    return position_ + size - std::max(seen_consumed_, restarted_at_) <= RingMemory::kDataBytes;
}

void RingWriter::Restart() {
    if (high_water_ >= kGiveBackBytes) GivePagesBack();
    // Told beside the records: a pad of most of the ring would stand in the way until it was read.
    memory_->control().restart_from.store(position_, std::memory_order_release);
    position_ += RingMemory::kDataBytes - Offset(position_);
    restarted_at_ = position_;
}

bool RingWriter::PadToEnd() {
    size_t to_end = RingMemory::kDataBytes - Offset(position_);
    if (!HasRoom(to_end)) return false;
    RecordHeader pad{static_cast<uint32_t>(to_end), 1};
    memcpy(memory_->data() + Offset(position_), &pad, sizeof(pad));
    position_ += to_end;
    return true;
}

void RingWriter::GivePagesBack() {
    // Best effort: without it the pages only stay resident. The reader has read everything behind
    // here.
    fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
              RingMemory::kControlBytes + kKeepBytes,
              static_cast<off_t>(RingMemory::kDataBytes - kKeepBytes));
    high_water_ = 0;
}

WakeUp RingWriter::Publish() {
    position_ += next_size_;
    accepted_ += next_size_;
    if (Offset(position_) > high_water_) high_water_ = Offset(position_);
    RingControl& control = memory_->control();
    // Both sides write their own word and then read the other's: with a fence between, or a wake-up
    // is lost. Sequentially consistent accesses would do, but emulators of 64-bit Arm let the read
    // overtake the write.
    control.produced.store(position_, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const auto seen = static_cast<WakeUp>(control.sleeping.load(std::memory_order_relaxed));
    if (seen == WakeUp::kNone) return seen;
    const bool much = accepted_ - seen_finished_ >= kMuchPendingBytes;
    if (seen == WakeUp::kFutexWhenMuch && !much) return WakeUp::kNone;
    const auto wanted =
            static_cast<WakeUp>(control.sleeping.exchange(0, std::memory_order_relaxed));
    // Whatever else a reader writes there is as good as a byte.
    if (wanted == WakeUp::kFutexWhenMuch) return WakeUp::kFutex;
    return wanted == WakeUp::kNone || wanted == WakeUp::kFutex ? wanted : WakeUp::kByte;
}

void RingWriter::Tell(WakeUpLoad load, ProcessorNote processor) {
    memory_->control().load.store(static_cast<uint16_t>(load), std::memory_order_relaxed);
    memory_->control().processor.store(processor, std::memory_order_relaxed);
}

RingReader::Result RingReader::Front(const uint8_t** body, size_t* body_size) {
    // A record follows a pad at once: the writer pads only to place one.
    for (int pads = 0; pads <= 1; ++pads) {
        uint64_t produced = Produced();
        if (produced != position_) FollowRestart();
        uint64_t available = produced - position_;
        if (available == 0) return Result::kEmpty;
        if (available > RingMemory::kDataBytes || available < sizeof(RecordHeader))
            return Result::kBroken;
        size_t offset = position_ % RingMemory::kDataBytes;
        // Once, whatever the writer does to it meanwhile.
        const auto header = std::bit_cast<RecordHeader>(__atomic_load_n(
                reinterpret_cast<const uint64_t*>(memory_->data() + offset), __ATOMIC_RELAXED));
        bool fits = header.size >= sizeof(header) && header.size % kRecordAlign == 0 &&
                    header.size <= available && header.size <= RingMemory::kDataBytes - offset;
        if (!fits) return Result::kBroken;
        front_size_ = header.size;
        if (header.is_pad == 0) {
            *body = memory_->data() + offset + sizeof(header);
            *body_size = header.size - sizeof(header);
            return Result::kRecord;
        }
        Pop();
    }
    return Result::kBroken;
}

void RingReader::FollowRestart() {
    uint64_t from = memory_->control().restart_from.load(std::memory_order_acquire);
    size_t offset = position_ % RingMemory::kDataBytes;
    if (from == position_ && offset != 0) position_ += RingMemory::kDataBytes - offset;
}

void RingReader::Pop() {
    position_ += front_size_;
    memory_->control().consumed.store(position_, std::memory_order_release);
}

uint64_t RingReader::Produced() const {
    return end_ ? *end_ : memory_->control().produced.load(std::memory_order_acquire);
}

void RingReader::Freeze() {
    end_ = Produced();
}

bool RingReader::Sleep(WakeUp how) {
    memory_->control().sleeping.store(static_cast<uint32_t>(how), std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return Produced() == position_;
}

void RingReader::Await(WakeUp how, std::chrono::microseconds limit) const {
    sys::FutexWait(&memory_->control().sleeping, static_cast<uint32_t>(how), limit);
}

void RingReader::Wake() {
    memory_->control().sleeping.store(0, std::memory_order_relaxed);
}

ProcessorNote RingReader::Processor() const {
    return memory_->control().processor.load(std::memory_order_relaxed);
}

WakeUpLoad RingReader::Load() const {
    const uint16_t told = memory_->control().load.load(std::memory_order_relaxed);
    constexpr auto kMost = WakeUpLoad::kCrowd;
    return told <= static_cast<uint16_t>(kMost) ? static_cast<WakeUpLoad>(told) : kMost;
}

void RingReader::Finish(size_t record_size) {
    memory_->control().finished.fetch_add(record_size, std::memory_order_release);
}

}  // namespace host
