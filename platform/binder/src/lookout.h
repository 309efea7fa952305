// How a thread that waits for the next frame of a call connection watches the mailbox. While calls
// follow one another at once, it stays awake for it. That pays only then: it keeps a processor from
// others, and one that gives way to a busy thread may not be back for milliseconds. Otherwise it
// dozes: it sleeps where the frame is put. Only for a while, since the death of the other side
// shows at the socket alone.
//
// Awake, it looks in two ways. While the other side runs on another processor, its part takes about
// a microsecond, less than giving way does: this thread spins, for a few microseconds at most and
// not for long without giving way to what else there is to do. Otherwise it gives way between its
// looks, since what it waits for may have to come from its own processor.
//
// One thread at a time.
#pragma once

#include <chrono>
#include <cstdint>

#include "buffer.h"
#include "mailbox.h"

namespace host {

// How long a thread that has answered a call stays for the next one, and how long one that waits
// for an answer dozes before it waits at the socket, which tells of a death.
inline constexpr std::chrono::microseconds kBriefWait{10'000};

class Lookout {
  public:
    using Clock = std::chrono::steady_clock;

    // Used with `mailbox`, which outlives this and need not be there yet.
    explicit Lookout(Mailbox* mailbox) : mailbox_(mailbox) {}
    ~Lookout();
    Lookout(const Lookout&) = delete;
    Lookout& operator=(const Lookout&) = delete;

    // Who calls says so ahead of each call that is not made from within another.
    void NoteCall();
    bool CallsAreDense() const { return dense_calls_ >= kFew; }
    bool IsMailboxWorthIt() const { return dense_calls_ >= kMany || close_calls_ >= kVeryMany; }

    // Ahead of sending what the awaited frame answers: from now on the other side may put that into
    // the mailbox, and Await or End must follow. Does nothing without a mailbox that both sides
    // have, while as many threads look as may, or for some time after others had the processor for
    // long.
    void Begin();
    // The same, straight after NoteCall.
    void BeginAsOfNote();
    // The same for a frame that may come later: Await sleeps.
    void BeginDozing();
    bool IsLooking() const { return looking_; }
    bool IsDozing() const { return dozing_; }
    // When the last Begin or NoteCall was.
    Clock::time_point begun() const { return begun_; }
    // Appends the frame as soon as it is there; waits for `limit` at most. No longer looking then,
    // but the other side is told only if no frame came: what is sent next tells it.
    Mailbox::Taken Await(Buffer* frame, std::chrono::microseconds limit);
    // Awake: the frame was there, or came within microseconds.
    bool CameAtOnce() const { return came_at_once_; }
    // What has been put is left there.
    void End();

  private:
    // End, without telling the other side.
    void Stop();

    static constexpr uint32_t kFew = 2;
    static constexpr uint32_t kMany = 16;
    static constexpr uint32_t kVeryMany = 64;

    Mailbox::Taken Look(Buffer* frame, std::chrono::microseconds limit);
    bool MaySpin() const;
    Mailbox::Taken Spin(Buffer* frame);
    Mailbox::Taken GiveWay(Buffer* frame, std::chrono::microseconds limit);
    Mailbox::Taken Doze(Buffer* frame, std::chrono::microseconds limit);

    Mailbox* const mailbox_;
    bool looking_ = false;
    bool dozing_ = false;  // if it looks
    bool came_at_once_ = false;
    uint32_t dense_calls_ = 0;  // in a row
    uint32_t close_calls_ = 0;  // in a row
    uint32_t vain_spins_ = 0;   // in a row
    Clock::time_point begun_{};
    Clock::time_point gave_way_{};
    Clock::time_point spins_from_{};
    Clock::time_point rests_until_{};
};

}  // namespace host
