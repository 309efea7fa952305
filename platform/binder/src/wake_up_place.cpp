#include "wake_up_place.h"

#include <atomic>

namespace host {
namespace {

// A running thread is moved within some 40 us: as much as two to four wake-ups from afar cost. Two
// processes that wait for each other would change places for ever if both were as quick to move.
constexpr uint32_t kTimesToMoveDown = 8;
constexpr uint32_t kTimesToMoveUp = 24;

// Where this process has served a call last, if that came alone.
std::atomic<ProcessorNote> g_served_on{0};

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

WakeUpPlace::Hold::Hold(WakeUpPlace* place, ProcessorNote told) {
    if (told == 0 || told > CPU_SETSIZE) return;
    const ProcessorNote here = NoteProcessor();
    if (told != here && !place->IsWorthMoving(told, here)) return;
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

void NoteServedCall(bool alone) {
    g_served_on.store(alone ? NoteProcessor() : 0, std::memory_order_relaxed);
}

void GoWhereCallsAreServed() {
    static thread_local WakeUpPlace place;
    place.MoveTo(g_served_on.load(std::memory_order_relaxed));
}

}  // namespace host
