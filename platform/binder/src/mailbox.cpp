#include "mailbox.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "processor_hints.h"
#include "sys.h"

namespace host {
namespace {

// Of the word `put`: the size is below, the number of frames above.
constexpr int kSizeBits = 16;
constexpr uint64_t kSizeMask = (uint64_t{1} << kSizeBits) - 1;
static_assert(Mailbox::kMaxFrame <= kSizeMask);

constexpr size_t kPrepared = 1024;

}  // namespace

bool Mailbox::Create(UniqueFd* file) {
    if (!memory_.Create("binder-calls", kTotalBytes, file)) return false;
    SetSides(/*creator=*/true);
    return true;
}

bool Mailbox::Map(int file) {
    if (!memory_.Map(file, kTotalBytes)) return false;
    SetSides(/*creator=*/false);
    mine_->is_mapped.store(1, std::memory_order_relaxed);
    is_shared_ = true;
    return true;
}

bool Mailbox::IsShared() {
    if (!is_shared_ && ok()) is_shared_ = other_->is_mapped.load(std::memory_order_relaxed) != 0;
    return is_shared_;
}

void Mailbox::SetSides(bool creator) {
    auto* sides = reinterpret_cast<Side*>(memory_.data());
    mine_ = &sides[creator ? 0 : 1];
    other_ = &sides[creator ? 1 : 0];
}

bool Mailbox::OtherLooks() const {
    return other_->watch.load(std::memory_order_relaxed) != Watch::kAway;
}

ProcessorNote Mailbox::OtherRunsOn() const {
    return other_->processor.load(std::memory_order_relaxed);
}

void Mailbox::Prepare() const {
    if (!ok()) return;
    constexpr size_t kLine = 64;
    const auto* begin = reinterpret_cast<const uint8_t*>(mine_);
    // Frames of one caller are much alike, and long ones are not worth it.
    const size_t size = offsetof(Side, frame) + std::min(last_size_, kPrepared);
    for (size_t at = 0; at < size; at += kLine)
        FetchToWrite(begin + at);
}

bool Mailbox::Put(size_t size) {
    last_size_ = size;
    mine_->processor.store(NoteProcessor(), std::memory_order_relaxed);
    // Both sides write their own word and then read the other's: with a fence between, or a frame
    // is missed. Sequentially consistent accesses would do, but emulators of 64-bit Arm let the
    // read overtake the write.
    mine_->put.store(++frames_put_ << kSizeBits | size, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const Watch watch = other_->watch.load(std::memory_order_relaxed);
    if (watch == Watch::kDozing) sys::FutexWake(&mine_->put);
    return watch != Watch::kAway;
}

void Mailbox::Look(Watch how) {
    if (std::exchange(watch_, how) == how) return;
    mine_->watch.store(how, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

void Mailbox::Doze(std::chrono::microseconds limit) {
    // Of a word of 64 bits the lower half, which changes with every put. Who puts changes it before
    // it wakes: nothing is missed.
    static_assert(std::endian::native == std::endian::little);
    sys::FutexWait(&other_->put, static_cast<uint32_t>(taken_), limit);
}

Mailbox::Taken Mailbox::Take(Buffer* frame) {
    const uint64_t put = other_->put.load(std::memory_order_acquire);
    if (put == taken_) return Taken::kNothing;
    taken_ = put;
    const size_t size = put & kSizeMask;
    if (size == 0) return Taken::kSocket;
    if (size > kMaxFrame) return Taken::kBroken;
    frame->Append(other_->frame, size);
    return Taken::kFrame;
}

}  // namespace host
