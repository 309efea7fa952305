// What it costs a sender to hand one message to somebody who counts it in a Shared: alone, with the
// receiver asleep each time, and in a row.
#pragma once

#include "bench_support.h"

namespace bench {

inline constexpr int kLoneSamples = 1000;
// Long enough for a receiver that has handled a message to be asleep again.
inline constexpr std::chrono::microseconds kPause{40};
inline constexpr int kRows = 20;

// The time of a round is its median: a sender that is pushed off its processor says nothing about
// sending.
template <typename Send>
void SendLone(benchmark::State& state, const Shared* shared, Send send) {
    std::vector<double> samples(kLoneSamples);
    uint64_t handled = shared->handled.load();
    while (state.KeepRunningBatch(kLoneSamples)) {
        for (double& sample : samples) {
            SpinFor(kPause);
            auto begin = Clock::now();
            send();
            sample = Nanoseconds(Clock::now() - begin);
            WaitHandled(*shared, ++handled);
        }
        state.SetIterationTime(Quantile(&samples, 0.5) * kLoneSamples / 1e9);
    }
}

// The time of the calls only; each row ends when all of it has been handled.
template <typename Send>
void SendRow(benchmark::State& state, const Shared* shared, int64_t length, Send send) {
    uint64_t handled = shared->handled.load();
    while (state.KeepRunningBatch(length)) {
        auto begin = Clock::now();
        for (int64_t i = 0; i < length; ++i)
            send();
        state.SetIterationTime(Nanoseconds(Clock::now() - begin) / 1e9);
        handled += static_cast<uint64_t>(length);
        WaitHandled(*shared, handled);
        SpinFor(kPause);
    }
}

// PREFIX_loneSUFFIX, and PREFIX_rowSUFFIX with rows of `length`.
template <typename Send>
void RegisterSending(const std::string& prefix, const std::string& suffix, const Shared* shared,
                     int64_t length, Send send) {
    auto lone = [shared, send](benchmark::State& state) { SendLone(state, shared, send); };
    auto row = [shared, length, send](benchmark::State& state) {
        SendRow(state, shared, length, send);
    };
    benchmark::RegisterBenchmark((prefix + "_lone" + suffix).c_str(), lone)
            ->UseManualTime()
            ->Iterations(kLoneSamples);
    benchmark::RegisterBenchmark((prefix + "_row" + suffix).c_str(), row)
            ->UseManualTime()
            ->Iterations(kRows * length);
}

}  // namespace bench
