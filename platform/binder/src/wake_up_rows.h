// Wake-ups that one thread gives in a row, as for an event with many receivers. Lone calls are best
// run where they are made (wake_up_place), but receivers that all run there do so one after the
// other, and each holds up those behind it. So the first half of a row may go to another processor,
// where it is run while the thread wakes the rest. That pays if the way there costs the thread less
// time than the receivers that it gets out of its way would, which differs from machine to machine:
// both are measured, and tried again after ever longer times if it did not pay.
#pragma once

#include <chrono>
#include <cstdint>

#include "wake_up_place.h"

namespace host {

// One thread.
class WakeUpRows {
  public:
    using Clock = std::chrono::steady_clock;

    // A wake-up begins. Whether its receiver is to be on another processor from now on.
    bool Begin(Clock::time_point now);
    // It has been given.
    void End(Clock::time_point now);

  private:
    // What is measured at a time: rows that stay here, those that are moving, those that have.
    enum class Phase { kHere, kParting, kApart };
    static constexpr uint32_t kFirstPenalty = 16;
    struct Round {
        uint32_t rows = 0;
        uint32_t short_rows = 0;
        uint32_t wake_ups = 0;
        Clock::duration all{0};
        Clock::duration first{0};  // of each row
    };

    void EndRow();
    void EndRound(const Round& round);
    void StayHere(uint32_t rounds);

    Phase phase_ = Phase::kHere;
    uint32_t rounds_to_stay_ = 1;
    uint32_t next_penalty_ = kFirstPenalty;  // in rounds
    uint32_t usual_length_ = 0;              // while not kHere
    Clock::duration each_here_{0};
    Round round_;
    uint32_t length_ = 0;  // of the row so far
    Clock::time_point begun_;
    Clock::time_point ended_;
};

// Another processor on which the calling thread may run, always the same for `here`; `here` if
// there is none.
ProcessorNote OtherProcessor(ProcessorNote here);

}  // namespace host
