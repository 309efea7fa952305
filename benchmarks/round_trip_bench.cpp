// A two-way call with its answer, against the same bytes sent and sent back over a bare socket.

#include "bench_support.h"

namespace {

using namespace std::string_literals;
using bench::BarePeer;
using bench::HostedPayload;
using bench::IPayload;
using bench::Payload;
using bench::Require;

constexpr double kLimit = 1.5;

void Echo(int fd, size_t size) {
    Payload bytes(size);
    while (bench::ReceiveAll(fd, bytes.data(), size))
        bench::SendAll(fd, bytes.data(), size);
}

void BareRoundTrip(benchmark::State& state, int fd, size_t size) {
    Payload bytes(size);
    for ([[maybe_unused]] auto _ : state) {
        bench::SendAll(fd, bytes.data(), size);
        Require(bench::ReceiveAll(fd, bytes.data(), size), "recv");
    }
}

void Call(benchmark::State& state, IPayload* payload, size_t size) {
    Payload bytes(size);
    Payload answer;
    for ([[maybe_unused]] auto _ : state) {
        Require(payload->echo(bytes, &answer).isOk() && answer.size() == size, "echo");
    }
}

}  // namespace

int main(int argc, char** argv) {
    bench::StayOnOneProcessor();
    if (bench::Shared* shared = bench::SharedOfService(argc, argv)) return bench::Serve(shared);
    HostedPayload hosted;
    BarePeer small([](int fd) { Echo(fd, bench::kSmall); });
    BarePeer large([](int fd) { Echo(fd, bench::kLarge); });
    auto payload = hosted.Find();

    std::vector<bench::Comparison> comparisons;
    for (size_t size : {bench::kSmall, bench::kLarge}) {
        std::string name = "round_trip_" + std::to_string(size);
        int fd = size == bench::kSmall ? small.fd() : large.fd();
        benchmark::RegisterBenchmark((name + "_call").c_str(), Call, payload.get(), size)
                ->UseRealTime();
        benchmark::RegisterBenchmark((name + "_bare").c_str(), BareRoundTrip, fd, size)
                ->UseRealTime();
        comparisons.push_back({name, name + "_call", name + "_bare", kLimit});
    }
    bench::RunAndCompare(argc, argv, comparisons);
    return 0;
}
