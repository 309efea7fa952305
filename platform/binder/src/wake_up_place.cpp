#include "wake_up_place.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

namespace host {
namespace {

// A running thread is moved within some 40 us: as much as two to four wake-ups from afar cost. Two
// processes that wait for each other would change places for ever if both were as quick to move.
constexpr uint32_t kTimesToMoveDown = 8;
constexpr uint32_t kTimesToMoveUp = 24;

// Binding costs 2 us each time. Where the scheduler leaves the thread alone, as between busy
// processors, it can be saved; to learn that a thread strays costs 40 us.
constexpr uint32_t kMostTimesToBind = 8192;

// Where calls are dense, a move is made in vain if the scheduler takes the thread back.
constexpr uint32_t kTimesToMoveAway = 64;

// The call that this process has served last.
struct alignas(uint32_t) LastCall {
    CallCame how;
    ProcessorNote on;
};
std::atomic<LastCall> g_served{LastCall{CallCame::kOften, 0}};
static_assert(std::atomic<LastCall>::is_always_lock_free);
// Calls served that came at once, ever.
std::atomic<uint32_t> g_served_at_once{0};

// Who sends less than so often for each call that is served can do it on the same processor, where
// what it sends is at hand.
constexpr uint32_t kSendsWorthAProcessor = 4;
constexpr uint32_t kSendsToDecide = 128;

// Moves the calling thread to one of `there`, out of those where it may run, and leaves it free.
void MoveWithin(const cpu_set_t& there) {
    cpu_set_t before;
    if (sched_getaffinity(0, sizeof(before), &before) != 0) return;
    cpu_set_t both;
    CPU_AND(&both, &before, &there);
    // The scheduler leaves a thread where it was moved to.
    if (CPU_COUNT(&both) != 0 && sched_setaffinity(0, sizeof(both), &both) == 0)
        sched_setaffinity(0, sizeof(before), &before);
}

void MoveOnto(ProcessorNote processor) {
    if (processor == NoteProcessor()) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor - 1, &one);
    MoveWithin(one);
}

void MoveOff(ProcessorNote processor) {
    if (processor != NoteProcessor()) return;
    cpu_set_t others;
    memset(&others, 0xff, sizeof(others));
    CPU_CLR(processor - 1, &others);
    MoveWithin(others);
}

// Of a thread that sends while calls are served that come at once.
class DenseSender {
  public:
    void NoteSend(ProcessorNote served_on) {
        if (++sends_ < kSendsToDecide) return;
        const uint32_t served = g_served_at_once.load(std::memory_order_relaxed);
        if (sends_ < (served - served_before_) * kSendsWorthAProcessor)
            MoveOnto(served_on);
        else
            MoveOff(served_on);
        served_before_ = served;
        sends_ = 0;
    }

  private:
    uint32_t sends_ = 0;
    uint32_t served_before_ = 0;
};

}  // namespace

ProcessorNote NoteProcessor() {
    const int processor = sched_getcpu();
    return processor < 0 || processor >= CPU_SETSIZE ? 0
                                                     : static_cast<ProcessorNote>(processor + 1);
}

bool WakeUpPlace::IsWorthMoving(ProcessorNote told, ProcessorNote here) {
    if (told != last_told_) times_ = 0;
    last_told_ = told;
    return ++times_ >= (told < here ? kTimesToMoveDown : kTimesToMoveUp);
}

bool WakeUpPlace::NeedsBinding(ProcessorNote told, ProcessorNote here) {
    const bool was_free = std::exchange(left_free_, false);
    if (told != here) {
        if (!was_free || told != last_told_) return IsWorthMoving(told, here);
        // It strays if it is not bound.
        times_to_bind_ = next_times_to_bind_;
        next_times_to_bind_ = std::min(next_times_to_bind_ * 2, kMostTimesToBind);
        return true;
    }
    last_told_ = told;
    times_ = 0;
    if (times_to_bind_ != 0) {
        --times_to_bind_;
        return true;
    }
    left_free_ = true;
    return false;
}

WakeUpPlace::Hold::Hold(WakeUpPlace* place, ProcessorNote told) {
    if (told == 0 || told > CPU_SETSIZE) {
        place->left_free_ = false;
        return;
    }
    const ProcessorNote here = NoteProcessor();
    if (!place->NeedsBinding(told, here)) return;
    place->times_ = 0;
    // Read each time: it may be changed from outside.
    if (sched_getaffinity(0, sizeof(before_), &before_) != 0) return;
    if (CPU_COUNT(&before_) < 2 || !CPU_ISSET(told - 1, &before_)) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(told - 1, &one);
    held_ = sched_setaffinity(0, sizeof(one), &one) == 0;
}

WakeUpPlace::Hold::~Hold() {
    if (held_) sched_setaffinity(0, sizeof(before_), &before_);
}

void WakeUpPlace::MoveTo(ProcessorNote told) {
    if (told == 0 || told == NoteProcessor()) {
        times_ = 0;
        return;
    }
    // Bound for no longer than the move takes; the scheduler leaves a thread where it last slept.
    const Hold move(this, told);
}

void WakeUpPlace::MoveFrom(ProcessorNote told) {
    const bool there = told != 0 && told == NoteProcessor();
    if (there && ++times_ < kTimesToMoveAway) return;
    times_ = 0;
    if (there) MoveOff(told);
}

void NoteServedCall(CallCame how) {
    if (how == CallCame::kAtOnce) g_served_at_once.fetch_add(1, std::memory_order_relaxed);
    g_served.store({how, NoteProcessor()}, std::memory_order_relaxed);
}

void ChooseSendingPlace(bool woke_one) {
    static thread_local WakeUpPlace where_alone;
    static thread_local DenseSender dense;
    const LastCall served = g_served.load(std::memory_order_relaxed);
    if (served.on == 0 || served.how == CallCame::kOften) return;
    if (served.how == CallCame::kAtOnce) return dense.NoteSend(served.on);
    if (woke_one) where_alone.MoveTo(served.on);
}

}  // namespace host
