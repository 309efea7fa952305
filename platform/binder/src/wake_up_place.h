// Where a thread is woken that waits for one other process again and again. A wake-up on another
// processor costs several times one on the waker's own, on a virtual machine 10 to 35 us against 1
// to 2, and the scheduler likes idle processors all the same. So each process tells where it runs
// when it calls, and who waits for it sleeps bound to that processor.
//
// A thread is bound while it sleeps and never else: what it starts, thread or process, would be
// bound for ever.
#pragma once

#include <sched.h>

#include <chrono>
#include <cstdint>

namespace host {

// Calls that follow one another closer are not worth the system calls of a Hold.
inline constexpr std::chrono::microseconds kLoneGap{100};

// A processor as processes tell it to each other: its number and one; 0 is none.
using ProcessorNote = uint16_t;

// Where the calling thread runs.
ProcessorNote NoteProcessor();

// One thread at a time.
class WakeUpPlace {
  public:
    // Binds the calling thread until its end: to what the other process told last, if this thread
    // runs there already or the other has called from there for some time; but not where the thread
    // stays by itself, which is tried now and then. What was told is a hint: one that names no
    // processor of this thread binds to nothing.
    class Hold {
      public:
        Hold(WakeUpPlace* place, ProcessorNote told);
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

      private:
        bool held_ = false;
        cpu_set_t before_;
    };

    // Moves the calling thread there, likewise only after some time, and leaves it free.
    void MoveTo(ProcessorNote told);
    // Moves it elsewhere after a longer time there.
    void MoveFrom(ProcessorNote told);

  private:
    // Whether it is time to go where the other process is.
    bool IsWorthMoving(ProcessorNote told, ProcessorNote here);

    // Whether the scheduler would wake the thread elsewhere.
    bool NeedsBinding(ProcessorNote told, ProcessorNote here);

    static constexpr uint32_t kFirstTimesToBind = 32;

    ProcessorNote last_told_ = 0;
    uint32_t times_ = 0;      // in a row, while this thread ran elsewhere
    bool left_free_ = false;  // though it is to stay where it was
    uint32_t times_to_bind_ = kFirstTimesToBind;
    uint32_t next_times_to_bind_ = kFirstTimesToBind;
};

// How the call has come that the calling thread is about to serve.
enum class CallCame : uint16_t {
    kAlone,
    kOften,   // one of many, which belong nowhere
    kAtOnce,  // this thread had stayed awake for it
};
void NoteServedCall(CallCame how);

// The calling thread has sent to who was waiting (`woke_one`) or was not: it moves to where the
// process has served lone calls for some time. Where calls follow one another at once, it moves
// there too if it sends little for each, since what it is to send has just been written there, and
// away if it sends so much that serving and sending are enough for a processor each. It stays free
// to leave.
void ChooseSendingPlace(bool woke_one);

}  // namespace host
