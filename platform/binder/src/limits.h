// Every bound that the layer sets to its peers and to itself. Values only; the table in
// docs/limits.md explains each. Sizes are bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host {

// One transaction: the parcel's data and its table of references together. A larger one fails at
// the sender.
inline constexpr size_t kMaxTransactionBytes = 1024 * 1024;

// What one process has pending towards another: oneway calls that were accepted and have not
// started to run, counted with their headers.
inline constexpr size_t kMaxOnewayPendingBytes = 512 * 1024;

// Connections that one process may have open towards this one, its control connection included.
inline constexpr size_t kMaxConnectionsPerPeer = 64;

// Connections that have not said whose they are. The oldest goes when one more comes.
inline constexpr size_t kMaxNewcomers = 64;

// Distinct objects of this process that one other process may hold.
inline constexpr size_t kMaxReferencesPerPeer = 262'144;

// References of third processes that one process has passed on to another, distinct ones whose
// owner has not answered for them yet: what the sender keeps, and what the receiver waits for.
inline constexpr size_t kMaxPassedOn = 65'536;

// Two-way calls nested in one another, across all processes involved.
inline constexpr uint32_t kMaxNestingDepth = 64;

// Threads that serve calls, beside those that join the pool.
inline constexpr uint32_t kDefaultPoolThreads = 15;

// An interface descriptor that travels with a reference.
inline constexpr size_t kMaxDescriptorBytes = 512;

// Control messages that a peer has not taken yet. A peer that lets more pile up is cut off.
inline constexpr size_t kMaxControlBacklogBytes = 32 * 1024 * 1024;

// Idle call connections that are kept for the next call towards one process.
inline constexpr size_t kMaxIdleConnections = 16;

// A dump whose reader takes nothing for so long is given up. Milliseconds.
inline constexpr int kDumpStallMs = 5000;

// When a connection is tried again while the other side's queue of new connections is full. The
// pause of a control connection doubles up to the second one. Milliseconds.
inline constexpr int kConnectRetryMs = 5;
inline constexpr int kMaxConnectRetryMs = 640;

// Peers that are tried again so, or for want of a descriptor. One more is taken to be dead.
inline constexpr size_t kMaxPeersAwaited = 256;

}  // namespace host
