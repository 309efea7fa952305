// When a thread that waits for the next frame of a call connection stays awake for it and looks
// into the mailbox. That pays while calls follow one another at once, and only then: it keeps a
// processor from others, and one that gives way to a busy thread may not be back for milliseconds.
//
// One thread at a time.
#pragma once

#include <chrono>
#include <cstdint>

#include "buffer.h"
#include "mailbox.h"

namespace host {

class Lookout {
  public:
    // Used with `mailbox`, which outlives this and need not be there yet.
    explicit Lookout(Mailbox* mailbox) : mailbox_(mailbox) {}
    ~Lookout();
    Lookout(const Lookout&) = delete;
    Lookout& operator=(const Lookout&) = delete;

    // Who calls says so: ahead of the call, and once it is answered.
    void NoteCall();
    void NoteAnswer() { last_answer_ = Clock::now(); }
    bool CallsAreDense() const { return dense_calls_ >= kFew; }
    bool IsMailboxWorthIt() const { return dense_calls_ >= kMany; }

    // Ahead of sending what the awaited frame answers: from now on the other side may put that into
    // the mailbox, and Await or End must follow. Does nothing without a mailbox, while as many
    // threads look as may, or for some time after others had the processor for long.
    void Begin();
    bool IsLooking() const { return looking_; }
    // Appends the frame as soon as it is there; looks for `limit` at most. No longer looking then.
    Mailbox::Taken Await(Buffer* frame, std::chrono::microseconds limit);
    // What has been put is left there.
    void End();

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr uint32_t kFew = 2;
    static constexpr uint32_t kMany = 16;

    Mailbox::Taken Look(Buffer* frame, std::chrono::microseconds limit);

    Mailbox* const mailbox_;
    bool looking_ = false;
    uint32_t dense_calls_ = 0;  // in a row
    Clock::time_point last_answer_{};
    Clock::time_point rests_until_{};
};

}  // namespace host
