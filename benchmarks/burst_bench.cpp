// A thousand oneway calls at once, against a writer that packs the same thousand messages into as
// few writes as possible: the system calls that either makes, and the time until the last message
// has been handled.

#include <cstring>

#include "bench_support.h"
#include "counted_calls.h"

namespace {

using bench::BarePeer;
using bench::HostedPayload;
using bench::IPayload;
using bench::Payload;
using bench::Require;
using bench::Shared;

constexpr int kBurst = 1000;
constexpr size_t kPackedBytes = 64 * 1024;
constexpr std::chrono::microseconds kPause{200};  // all is asleep again

// System calls of both ends.
struct Tally {
    uint64_t bursts = 0;
    uint64_t sending = 0;
    uint64_t receiving = 0;
};

void CountPacked(int fd, Shared* shared) {
    bench::g_counted_calls = &shared->calls;
    Payload bytes(kPackedBytes);
    size_t total = 0;
    for (ssize_t got; (got = recv(fd, bytes.data(), bytes.size(), 0)) > 0;) {
        total += static_cast<size_t>(got);
        shared->handled.store(total / bench::kSmall, std::memory_order_release);
    }
}

void SendPacked(int fd, const Payload& bytes) {
    static Payload& packed = *new Payload(kPackedBytes);
    size_t used = 0;
    for (int i = 0; i < kBurst; ++i) {
        memcpy(packed.data() + used, bytes.data(), bytes.size());
        used += bytes.size();
        if (used + bytes.size() <= packed.size() && i + 1 < kBurst) continue;
        bench::SendAll(fd, packed.data(), used);
        used = 0;
    }
}

template <typename Burst>
void Measure(benchmark::State& state, Shared* shared, Tally* tally, Burst burst) {
    uint64_t handled = shared->handled.load();
    while (state.KeepRunningBatch(kBurst)) {
        uint64_t sent = bench::g_counted_calls->load();
        uint64_t received = shared->calls.load();
        auto begin = bench::Clock::now();
        burst();
        handled += kBurst;
        bench::WaitHandled(*shared, handled);
        state.SetIterationTime(std::chrono::duration<double>(bench::Clock::now() - begin).count());
        bench::SpinFor(kPause);
        tally->bursts += 1;
        tally->sending += bench::g_counted_calls->load() - sent;
        tally->receiving += shared->calls.load() - received;
    }
}

void PrintTally(const char* who, const Tally& tally) {
    auto bursts = static_cast<double>(tally.bursts);
    std::printf("%-32s %10.1f sending, %.1f receiving system calls per burst of %d\n", who,
                static_cast<double>(tally.sending) / bursts,
                static_cast<double>(tally.receiving) / bursts, kBurst);
}

double Saved(uint64_t calls, uint64_t bursts) {
    return 1 - static_cast<double>(calls) / static_cast<double>(bursts * kBurst);
}

}  // namespace

int main(int argc, char** argv) {
    if (Shared* shared = bench::SharedOfService(argc, argv)) {
        bench::g_counted_calls = &shared->calls;
        return bench::Serve(shared);
    }
    HostedPayload hosted;
    Shared* bare_shared = bench::MapShared();
    BarePeer bare([&](int fd) { CountPacked(fd, bare_shared); });
    auto payload = hosted.Find();

    const Payload bytes(bench::kSmall);
    Tally ours;
    Tally packed;
    auto call = [&] {
        for (int i = 0; i < kBurst; ++i)
            Require(payload->take(bytes).isOk(), "take");
    };
    auto call_burst = [&](benchmark::State& state) {
        Measure(state, hosted.shared(), &ours, call);
    };
    auto packed_burst = [&](benchmark::State& state) {
        Measure(state, bare_shared, &packed, [&] { SendPacked(bare.fd(), bytes); });
    };
    benchmark::RegisterBenchmark("burst_64_call", call_burst)
            ->UseManualTime()
            ->Iterations(20 * kBurst);
    benchmark::RegisterBenchmark("burst_64_packed", packed_burst)
            ->UseManualTime()
            ->Iterations(20 * kBurst);
    bench::RunAndCompare(argc, argv, {{"burst_64_time", "burst_64_call", "burst_64_packed"}});
    if (ours.bursts == 0 || packed.bursts == 0) return 0;
    PrintTally("burst_64_call", ours);
    PrintTally("burst_64_packed", packed);
    bench::PrintRatio("burst_64_sending_calls_saved", Saved(ours.sending, ours.bursts), 0);
    bench::PrintRatio("burst_64_all_calls_saved",
                      Saved((ours.sending + ours.receiving) / 2, ours.bursts), 0);
    return 0;
}
