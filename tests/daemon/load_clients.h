// The daemon's clients under load: consumers that check what they get and producers that push at a
// pace, each a helper process, and the memory in which they keep the score.
//
// "LoadConsumer" takes the board's path, its slot, "steady" or "victim", and the indices of its
// signals. "LoadProducer" takes the board's path, its slot and the index of its signal; "pace"
// pushes until the next command, "flat N" pushes N events as fast as it may. Both write their pid
// into their slot once the hub knows them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>

namespace velmora_test {

constexpr size_t kConsumers = 64;
constexpr size_t kProducers = 4;
constexpr int32_t kFirstSignal = 1'000;  // of the producer with index 0
// Events of one signal that its slowest steady consumer has not seen. Those of all producers
// together stay below the bound of the hub's queue, with room for 20 notices of comings and goings.
constexpr int64_t kWindow = 20;
constexpr std::chrono::milliseconds kPeriod{5};  // of one producer that keeps its pace

// Times in microseconds, of a window four times over. Any thread of any process.
class Samples {
  public:
    void Add(int64_t microseconds) {
        times_[count_++ % std::size(times_)] = static_cast<uint32_t>(microseconds);
    }
    // The time that `rank` of the samples do not exceed, and none of them is left. 0 without any.
    double Take(double rank);

  private:
    std::atomic<uint32_t> times_[1 << 18];
    std::atomic<size_t> count_;
};

// Zero at first. Any thread of any process.
struct Board {
    std::atomic<int64_t> sent[kProducers];  // the last sequence number of each signal
    // What each steady consumer has got of it; kNobody where there is none.
    static constexpr int64_t kNobody = INT64_MAX;
    std::atomic<int64_t> received[kConsumers][kProducers];
    std::atomic<pid_t> ready[kConsumers + kProducers];
    Samples latency;  // of the steady consumers
    std::atomic<int64_t> deliveries, refused, held_back, faults;

    int64_t Behind(size_t signal) const;
};

// Made by the test, found by its helpers under the path; lives as long as the process.
class SharedBoard {
  public:
    SharedBoard();
    explicit SharedBoard(const std::string& path);

    const std::string& path() const { return path_; }
    Board* operator->() const { return board_; }

  private:
    void Map(int file);

    std::string path_;
    Board* board_ = nullptr;
};

}  // namespace velmora_test
