// A bounded byte ring in memory that two processes share: one writes records, the other reads them.
// It needs no system call while the reader is awake, which is what lets many oneway calls leave for
// one wake-up.
//
// Nothing in the shared memory is trusted. Each side keeps its own position and only compares the
// other's against it; a record is copied out before it is read. The memory is a sealed file that
// cannot shrink.
//
// The writer is used by one thread at a time, and so is the reader; the two run in parallel.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "fd.h"
#include "frame.h"
#include "shared_memory.h"
#include "sys.h"
#include "wake_up_place.h"

namespace host {

// How a reader is to be told of the next record: not at all, by a byte in a socket, by a futex on
// the word that says so, where a thread of it waits, or by the futex once much is pending.
enum class WakeUp : uint32_t { kNone, kByte, kFutex, kFutexWhenMuch };

// How many wake-ups a writer's process gives to all its receivers together.
enum class WakeUpLoad : uint16_t { kLight, kFanOut, kCrowd };

// What the two sides share, ahead of the records. One cache line for each writer.
struct RingControl {
    alignas(64) std::atomic<uint64_t> produced;  // writer: position behind the last record
    // Writer: position, with nothing unread before it, from which it went on at the ring's start.
    std::atomic<uint64_t> restart_from;
    std::atomic<uint16_t> load;                  // writer: the WakeUpLoad of its process
    std::atomic<ProcessorNote> processor;        // writer: where it ran at the last wake-up
    alignas(64) std::atomic<uint64_t> consumed;  // reader: bytes of records read, ever
    std::atomic<uint64_t> finished;  // reader: bytes of calls that have begun to run, ever
    // Reader: the WakeUp that it wants for the next record. Whoever takes it back gives it.
    alignas(64) std::atomic<uint32_t> sleeping;
};
static_assert(sizeof(RingControl) <= 4096 && std::atomic<uint64_t>::is_always_lock_free);

// The memory of one ring.
class RingMemory {
  public:
    static constexpr size_t kControlBytes = 4096;
    static constexpr size_t kDataBytes = 1024 * 1024;
    static constexpr size_t kTotalBytes = kControlBytes + kDataBytes;

    // A new ring and the file behind it; false with errno. The reader has not looked yet: it reads
    // everything when it gets the ring.
    bool Create(UniqueFd* file) { return memory_.Create("binder-oneway", kTotalBytes, file); }
    // Maps a file that a peer sent; false unless it is one of a ring.
    bool Map(int file) { return memory_.Map(file, kTotalBytes); }

    bool ok() const { return memory_.ok(); }
    RingControl& control() const { return *reinterpret_cast<RingControl*>(memory_.data()); }
    uint8_t* data() const { return memory_.data() + kControlBytes; }

  private:
    SharedMemory memory_;
};

// Record sizes are multiples of this.
inline constexpr size_t kRecordAlign = 8;

class RingWriter {
  public:
    // The ring behind `memory`, which outlives this. The file is only needed to give pages back.
    RingWriter(RingMemory* memory, int file) : memory_(memory), file_(file) {}

    // Bytes of calls accepted and not yet run, as far as the reader tells; nullopt if what it tells
    // is impossible.
    std::optional<size_t> Pending();

    // A place for a record of `body_size` bytes of body, to be filled before Publish. Null if the
    // reader has moved its position to where it cannot be. There is always room for what the limit
    // on pending bytes admits.
    uint8_t* Begin(size_t body_size);
    // Makes the record visible; the wake-up that the caller must give.
    WakeUp Publish();
    // Gives WakeUp::kFutex.
    void WakeAtFutex() { sys::FutexWake(&memory_->control().sleeping); }

    // With a wake-up: tells the reader how many others it is among, and where it comes from.
    void Tell(WakeUpLoad load, ProcessorNote processor);

    // Behind the last record.
    uint64_t position() const { return position_; }

    // What a body of this size counts.
    static size_t RecordSize(size_t body_size);

  private:
    size_t Offset(uint64_t position) const { return position % RingMemory::kDataBytes; }
    bool HasRoom(size_t size) const;
    void Restart();
    bool PadToEnd();
    void GivePagesBack();

    RingMemory* memory_;
    int file_;
    uint64_t position_ = 0;       // bytes written, pads included
    uint64_t accepted_ = 0;       // bytes of calls written, pads excluded
    uint64_t seen_finished_ = 0;  // the reader's figure last seen
    uint64_t seen_consumed_ = 0;
    uint64_t restarted_at_ = 0;
    size_t next_size_ = 0;
    size_t high_water_ = 0;  // furthest offset used since pages were given back
};

class RingReader {
  public:
    explicit RingReader(RingMemory* memory) : memory_(memory) {}

    enum class Result { kRecord, kEmpty, kBroken };

    // The next record's body, still in shared memory: what is read from it must be copied out
    // first, once. Valid until Pop. kBroken: the writer has written what no writer of ours writes.
    Result Front(const uint8_t** body, size_t* body_size);
    void Pop();

    // Behind the last record that was read; the writer counts alike.
    uint64_t position() const { return position_; }

    // What is written from now on is not read any more.
    void Freeze();

    // Asks for a wake-up and answers true, unless a record has come in meanwhile.
    bool Sleep(WakeUp how);
    // After Sleep(how), by a futex: waits for the wake-up, `limit` at most, or less for no reason.
    // Any thread, also while another one reads.
    void Await(WakeUp how, std::chrono::microseconds limit) const;
    // A wake-up is not needed for now.
    void Wake();

    // What the writer told last. Hints: nothing but a delay may hang on them.
    WakeUpLoad Load() const;
    ProcessorNote Processor() const;

    // Counts `record_size` bytes as run. Any thread.
    void Finish(size_t record_size);

  private:
    uint64_t Produced() const;
    void FollowRestart();

    RingMemory* memory_;
    uint64_t position_ = 0;
    size_t front_size_ = 0;
    std::optional<uint64_t> end_;  // once frozen
};

}  // namespace host
