// What sending one oneway call costs the caller, against a bare send of the same bytes: alone, with
// the receiver asleep each time, and in a row.

#include "bench_support.h"
#include "sending.h"

namespace {

using bench::BarePeer;
using bench::HostedPayload;
using bench::IPayload;
using bench::Payload;
using bench::Require;
using bench::Shared;

constexpr double kLoneLimit = 1.3;
// A row fits what may be pending, so that nothing is refused however slow the receiver is.
constexpr size_t kRowBytes = 256 * 1024;

void Count(int fd, size_t size, Shared* shared) {
    Payload bytes(size);
    while (bench::ReceiveAll(fd, bytes.data(), size))
        shared->handled.fetch_add(1, std::memory_order_release);
}

void RegisterSize(IPayload* payload, const Shared* hosted, int fd, const Shared* bare,
                  size_t size) {
    auto bytes = std::make_shared<Payload>(size);
    std::string name = "_" + std::to_string(size);
    auto length = static_cast<int64_t>(kRowBytes / (size + 256));
    bench::RegisterSending("oneway", name + "_call", hosted, length,
                           [payload, bytes] { Require(payload->take(*bytes).isOk(), "take"); });
    bench::RegisterSending("oneway", name + "_bare", bare, length,
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
