// An event on its way to several consumers, and the one who waits for the last of them.
#pragma once

#include <aidl/vendor/quorin/velmora_hub/BnVelmoraHubConsumer.h>
#include <semaphore.h>

#include "bench_support.h"

namespace bench {

namespace hub = ::aidl::vendor::quorin::velmora_hub;

// May lie in memory that processes share. Arrive: any thread; Time: one at a time.
class Arrivals {
  public:
    Arrivals() { sem_init(&all_, 1, 0); }

    // A consumer has been reached.
    void Arrive() {
        if (missing_.fetch_sub(1) != 1) return;
        last_.store(Clock::now().time_since_epoch().count());
        sem_post(&all_);
    }

    // Nanoseconds from `push` to the last of `count` arrivals. Sleeps: awake it would hold a
    // processor that the others need.
    template <typename Push>
    double Time(int count, Push push) {
        missing_.store(count);
        const Clock::duration begin = Clock::now().time_since_epoch();
        push();
        while (sem_wait(&all_) != 0) {
        }
        return Nanoseconds(Clock::duration(last_.load()) - begin);
    }

  private:
    std::atomic<int> missing_{0};
    std::atomic<Clock::rep> last_{0};
    sem_t all_;
};

class ArrivingConsumer : public hub::BnVelmoraHubConsumer {
  public:
    explicit ArrivingConsumer(Arrivals* arrivals) : arrivals_(arrivals) {}

    ndk::ScopedAStatus onSignalAvailable(int32_t) override { return ndk::ScopedAStatus::ok(); }
    ndk::ScopedAStatus onSignalUpdate(const hub::VelmoraEvent&) override {
        arrivals_->Arrive();
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSignalUnavailable(int32_t, SignalError) override {
        return ndk::ScopedAStatus::ok();
    }

  private:
    Arrivals* const arrivals_;
};

}  // namespace bench
