#include "wake_up_rows.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

// Long enough for each receiver to move, which it does after 24 wake-ups at the latest.
constexpr uint32_t kRowsPerRound = 32;

// Half of a shorter row is not worth the way.
constexpr uint32_t kShortestRow = 4;
// One of so many rows may be shorter: a row is torn where its thread was held up. More, and the
// receivers differ from row to row; one that is often woken alone must stay where the thread is.
constexpr uint32_t kRowsPerShortRow = 8;

// A wake-up that took longer had something else in its way.
constexpr std::chrono::microseconds kLongestWakeUp{64};

constexpr uint32_t kPenaltyGrowth = 4;
constexpr uint32_t kMostPenalty = 1024;

}  // namespace

bool WakeUpRows::Begin(Clock::time_point now) {
    if (now - ended_ >= kLoneGap) EndRow();
    begun_ = now;
    return phase_ != Phase::kHere && length_ < usual_length_ / 2;
}

void WakeUpRows::End(Clock::time_point now) {
    const Clock::duration took = std::min<Clock::duration>(now - begun_, kLongestWakeUp);
    if (length_++ == 0) round_.first += took;
    round_.all += took;
    ended_ = now;
}

void WakeUpRows::EndRow() {
    if (length_ == 0) return;
    ++round_.rows;
    round_.wake_ups += length_;
    if (length_ < kShortestRow) ++round_.short_rows;
    length_ = 0;
    if (round_.rows == kRowsPerRound) EndRound(std::exchange(round_, {}));
}

void WakeUpRows::StayHere(uint32_t rounds) {
    phase_ = Phase::kHere;
    rounds_to_stay_ = rounds;
}

void WakeUpRows::EndRound(const Round& round) {
    const bool regular = round.short_rows * kRowsPerShortRow <= kRowsPerRound;
    const uint32_t length = round.wake_ups / kRowsPerRound;
    if (phase_ == Phase::kHere) {
        if (rounds_to_stay_ != 0) --rounds_to_stay_;
        if (rounds_to_stay_ != 0 || !regular) return;
        each_here_ = round.all / round.wake_ups;
        usual_length_ = length;
        phase_ = Phase::kParting;
        return;
    }
    const uint32_t change = std::max(length, usual_length_) - std::min(length, usual_length_);
    if (!regular || change > usual_length_ / 4) return StayHere(1);
    if (std::exchange(phase_, Phase::kApart) == Phase::kParting) return;
    // The middle one of a row comes a quarter of the row sooner, and later by the way.
    if (round.first / kRowsPerRound * 4 <= each_here_ * usual_length_) {
        next_penalty_ = kFirstPenalty;
        return;
    }
    StayHere(next_penalty_);
    next_penalty_ = std::min(next_penalty_ * kPenaltyGrowth, kMostPenalty);
}

ProcessorNote OtherProcessor(ProcessorNote here) {
    // Asked for when the thread has moved: whoever is told the name of a processor that it may not
    // use takes no harm.
    static thread_local ProcessorNote asked_for = 0;
    static thread_local ProcessorNote answer = 0;
    if (here == 0 || here == asked_for) return here == 0 ? here : answer;
    asked_for = answer = here;
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) return answer;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        const int next = (here + i) % CPU_SETSIZE;
        if (!CPU_ISSET(next, &allowed)) continue;
        answer = static_cast<ProcessorNote>(next + 1);
        break;
    }
    return answer;
}

}  // namespace host
