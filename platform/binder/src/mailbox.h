// One place for a frame in each direction, in memory that both sides of a call connection have
// mapped. While calls follow each other at once, each side looks there for what comes next, and no
// call needs the kernel. While they come one by one, a side that waits sleeps at a futex in the
// memory, which takes less of the kernel than a socket. Who does neither is sent to through that.
//
// Nothing in the shared memory is trusted: a frame is copied out once before it is read, and a side
// that writes what none of ours writes is cut off. The memory is a sealed file that cannot shrink.
// Since frames go back and forth in turns, a place is free whenever there is something to put
// there.
//
// Each side is used by one thread at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "buffer.h"
#include "fd.h"
#include "shared_memory.h"
#include "wake_up_place.h"

namespace host {

class Mailbox {
  public:
    static constexpr size_t kMaxFrame = 4096 - 80;

    // A new one, and the file to be sent to the other side; false with errno.
    bool Create(UniqueFd* file);
    // The one that the other side has created; false unless the file is one of a mailbox, and with
    // errno ENOMEM if it is.
    bool Map(int file);
    bool ok() const { return memory_.ok(); }
    // The other side has it, too: it may have had no room for it.
    bool IsShared();

    // How a side waits for what the other one puts: not here; here and awake; here and asleep, so
    // that it is to be woken.
    enum class Watch : uint32_t { kAway, kAwake, kDozing };

    // Whether what is put is found without more ado.
    bool OtherLooks() const;
    // Where the other side ran when it put something last; a hint.
    ProcessorNote OtherRunsOn() const;

    // Some time ahead of Put, while the other side does not look: what will be written is fetched
    // from its processor meanwhile.
    void Prepare() const;
    // Where a frame of up to kMaxFrame bytes is written before Put.
    uint8_t* place() { return mine_->frame; }
    // Wakes the other side if it dozes. False: it has looked away meanwhile, and has to be told.
    bool Put(size_t size);
    // Instead of a frame: one is in the socket.
    void PointToSocket() { Put(0); }

    // From now on, and until LookAway, what the other side puts is found. Does nothing if it is so
    // already, and so leaves a word alone that the other side reads each time.
    void Look(Watch how);
    void LookAway() { Look(Watch::kAway); }
    enum class Taken { kNothing, kFrame, kSocket, kBroken };
    // Appends the frame that was put.
    Taken Take(Buffer* frame);
    // After Look(kDozing): sleeps until there is something to take, for `limit` at most, or less
    // for no reason.
    void Doze(std::chrono::microseconds limit);

  private:
    // Written by one side only. A short frame comes with the word that tells of it.
    struct Side {
        alignas(64) std::atomic<uint64_t> put;  // frames put, ever, and the size of the last
        std::atomic<ProcessorNote> processor;
        alignas(16) uint8_t frame[kMaxFrame];
        alignas(64) std::atomic<Watch> watch;  // for what the other side puts
        std::atomic<uint32_t> is_mapped;       // by the side that writes here
    };
    static_assert(sizeof(Side) == 4096);  // a page each
    static constexpr size_t kTotalBytes = 2 * sizeof(Side);

    void SetSides(bool creator);

    SharedMemory memory_;
    Side* mine_ = nullptr;
    Side* other_ = nullptr;
    bool is_shared_ = false;
    Watch watch_ = Watch::kAway;
    size_t last_size_ = 0;  // of the frame that was put
    uint64_t frames_put_ = 0;
    uint64_t taken_ = 0;  // the other side's word when it was taken last
};

}  // namespace host
