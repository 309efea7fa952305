// What sending one oneway call costs the caller, against a bare send of the same bytes: alone, with
// the receiver asleep each time, and in a row.

#include <algorithm>

#include "bench_support.h"

namespace {

using bench::BarePeer;
using bench::Clock;
using bench::HostedPayload;
using bench::IPayload;
using bench::Payload;
using bench::Require;
using bench::Shared;

constexpr double kLoneLimit = 1.3;
constexpr int kLoneSamples = 1000;
// Long enough for a receiver that has handled a message to be asleep again.
constexpr std::chrono::microseconds kPause{40};
// A row fits what may be pending, so that nothing is refused however slow the receiver is.
constexpr size_t kRowBytes = 256 * 1024;
constexpr int kRows = 20;

void Count(int fd, size_t size, Shared* shared) {
    Payload bytes(size);
    while (bench::ReceiveAll(fd, bytes.data(), size))
        shared->handled.fetch_add(1, std::memory_order_release);
}

double Nanoseconds(Clock::duration time) {
    return std::chrono::duration<double, std::nano>(time).count();
}

// The time of a round is its median: a sender that is pushed off its processor says nothing about
// sending.
template <typename Send>
void Lone(benchmark::State& state, const Shared* shared, Send send) {
    std::vector<double> samples(kLoneSamples);
    uint64_t handled = shared->handled.load();
    while (state.KeepRunningBatch(kLoneSamples)) {
        for (double& sample : samples) {
            bench::SpinFor(kPause);
            auto begin = Clock::now();
            send();
            sample = Nanoseconds(Clock::now() - begin);
            bench::WaitHandled(*shared, ++handled);
        }
        std::nth_element(samples.begin(), samples.begin() + kLoneSamples / 2, samples.end());
        state.SetIterationTime(samples[kLoneSamples / 2] * kLoneSamples / 1e9);
    }
}

// The time of the calls only; each row ends when all of it has been handled.
template <typename Send>
void Row(benchmark::State& state, const Shared* shared, int64_t length, Send send) {
    uint64_t handled = shared->handled.load();
    while (state.KeepRunningBatch(length)) {
        auto begin = Clock::now();
        for (int64_t i = 0; i < length; ++i)
            send();
        state.SetIterationTime(Nanoseconds(Clock::now() - begin) / 1e9);
        handled += static_cast<uint64_t>(length);
        bench::WaitHandled(*shared, handled);
        bench::SpinFor(kPause);
    }
}

// Lone and in a row, under `suffix`.
template <typename Send>
void Register(const std::string& size_name, const std::string& suffix, const Shared* shared,
              size_t size, Send send) {
    auto length = static_cast<int64_t>(kRowBytes / (size + 256));
    auto lone = [shared, send](benchmark::State& state) { Lone(state, shared, send); };
    auto row = [shared, length, send](benchmark::State& state) {
        Row(state, shared, length, send);
    };
    benchmark::RegisterBenchmark(("oneway_lone_" + size_name + suffix).c_str(), lone)
            ->UseManualTime()
            ->Iterations(kLoneSamples);
    benchmark::RegisterBenchmark(("oneway_row_" + size_name + suffix).c_str(), row)
            ->UseManualTime()
            ->Iterations(kRows * length);
}

void RegisterSize(IPayload* payload, const Shared* hosted, int fd, const Shared* bare,
                  size_t size) {
    auto bytes = std::make_shared<Payload>(size);
    std::string name = std::to_string(size);
    Register(name, "_call", hosted, size,
             [payload, bytes] { Require(payload->take(*bytes).isOk(), "take"); });
    Register(name, "_bare", bare, size,
             [fd, bytes] { bench::SendAll(fd, bytes->data(), bytes->size()); });
}

}  // namespace

int main(int argc, char** argv) {
    if (Shared* shared = bench::SharedOfService(argc, argv)) return bench::Serve(shared);
    HostedPayload hosted;
    Shared* small_shared = bench::MapShared();
    Shared* large_shared = bench::MapShared();
    BarePeer small([&](int fd) { Count(fd, bench::kSmall, small_shared); });
    BarePeer large([&](int fd) { Count(fd, bench::kLarge, large_shared); });
    auto payload = hosted.Find();

    RegisterSize(payload.get(), hosted.shared(), small.fd(), small_shared, bench::kSmall);
    RegisterSize(payload.get(), hosted.shared(), large.fd(), large_shared, bench::kLarge);
    std::vector<bench::Comparison> comparisons;
    for (const char* kind :
         {"oneway_lone_64", "oneway_lone_1024", "oneway_row_64", "oneway_row_1024"}) {
        std::string name = kind;
        bool lone = name.find("lone") != std::string::npos;
        comparisons.push_back({name, name + "_call", name + "_bare", lone ? kLoneLimit : 0});
    }
    bench::RunAndCompare(argc, argv, comparisons);
    return 0;
}
