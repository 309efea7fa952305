// What event_path_probe runs through and event_path_counts reads.

#pragma once

namespace bench {

// Events of a phase: fewer than the hub's queue of 100 takes, and as many as a block of the deque
// that is the queue has room for, so that each phase takes one block.
inline constexpr int kEvents = 64;
inline constexpr int kConsumers[] = {1, 8, 64};
inline constexpr int kPayloadBytes = 256;

}  // namespace bench
