// From a producer's updateSignal to the last of 1, 8 and 64 consumers' onSignalUpdate, each in a
// process of its own, against the same arrangement of bare sockets: a relay that answers its
// producer and then sends to one process after the other. That is what the system charges for so
// many messages and wake-ups, and what is above it is the price of the layer and the hub together.

#include "arrivals.h"
#include "bench_support.h"
#include "hub_processes.h"

namespace {

namespace hub = velmora_test::hub;
using bench::Arrivals;
using bench::BarePeer;
using bench::Payload;
using bench::Require;

constexpr int kCounts[] = {1, 8, 64};
constexpr int kMost = 64;
// On the wire a character takes two bytes.
constexpr size_t kPayloadBytes = 256;
constexpr int kSamples = 100;
// Long enough for all processes to be asleep again.
constexpr std::chrono::microseconds kPause{300};

// Subscribed to each of the signals that its arguments name, after the shared memory.
HOST_HELPER(FanoutConsumer) {
    ABinderProcess_startThreadPool();
    const auto manager = velmora_test::WaitForConsumerManager();
    const auto& arguments = channel.arguments();
    auto* arrivals = bench::MapShared<Arrivals>(std::stoi(arguments[0]));
    const auto consumer = ndk::SharedRefBase::make<bench::ArrivingConsumer>(arrivals);
    for (size_t i = 1; i < arguments.size(); ++i) {
        std::shared_ptr<hub::IToken> token;
        Require(manager->subscribe(std::stoi(arguments[i]), consumer, &token).isOk(), "subscribe");
    }
    channel.Serve([](const std::string& command) { return command; });
    return 0;
}

// Consumer `index` is one of the first N for each N above it. A signal is called like its N.
std::vector<std::unique_ptr<host::testing::Helper>> StartConsumers(int memory) {
    std::vector<std::unique_ptr<host::testing::Helper>> consumers;
    for (int index = 0; index < kMost; ++index) {
        std::vector<std::string> arguments = {std::to_string(memory)};
        for (int count : kCounts)
            if (index < count) arguments.push_back(std::to_string(count));
        consumers.push_back(std::make_unique<host::testing::Helper>(
                "FanoutConsumer", arguments, host::testing::LaunchOptions{.capture_log = false}));
        Require(consumers.back()->Command("ready") == "ready", "consumer");
    }
    return consumers;
}

// The bare arrangement. Make it before anything else: it forks.
class BareRelay {
  public:
    explicit BareRelay(Arrivals* arrivals) : bytes_(kPayloadBytes) {
        for (int i = 0; i < kMost; ++i)
            consumers_.push_back(std::make_unique<BarePeer>([&](int fd) {
                while (bench::ReceiveAll(fd, bytes_.data(), bytes_.size()))
                    arrivals->Arrive();
            }));
        relay_ = std::make_unique<BarePeer>([&](int fd) {
            while (bench::ReceiveAll(fd, bytes_.data(), bytes_.size())) {
                bench::SendAll(fd, bytes_.data(), 1);
                for (uint8_t i = 0; i < bytes_[0]; ++i)
                    bench::SendAll(consumers_[i]->fd(), bytes_.data(), bytes_.size());
            }
        });
    }

    void Push(int count) {
        bytes_[0] = static_cast<uint8_t>(count);
        uint8_t answer;
        bench::SendAll(relay_->fd(), bytes_.data(), bytes_.size());
        Require(bench::ReceiveAll(relay_->fd(), &answer, 1), "relay");
    }

  private:
    Payload bytes_;
    std::vector<std::unique_ptr<BarePeer>> consumers_;
    std::unique_ptr<BarePeer> relay_;
};

// Registers the benchmark, whose rounds count as their medians, and keeps all samples.
template <typename Push>
void Register(const std::string& name, int count, Arrivals* arrivals, std::vector<double>* all,
              Push push) {
    const auto sample = [=] {
        bench::SpinFor(kPause);
        return arrivals->Time(count, push);
    };
    const auto round = [=](benchmark::State& state) {
        std::vector<double> samples(kSamples);
        while (state.KeepRunningBatch(kSamples)) {
            std::generate(samples.begin(), samples.end(), sample);
            all->insert(all->end(), samples.begin(), samples.end());
            state.SetIterationTime(bench::Quantile(&samples, 0.5) * kSamples / 1e9);
        }
    };
    benchmark::RegisterBenchmark(name.c_str(), round)->UseManualTime()->Iterations(kSamples);
}

void PrintTails(std::map<std::string, std::vector<double>>* samples) {
    std::map<std::string, double> tails;
    for (auto& [name, all] : *samples) {
        if (all.empty()) return;
        tails[name] = bench::Quantile(&all, 0.99);
        std::printf("%-32s %10.0f ns   99 of 100, %zu samples\n", name.c_str(), tails[name],
                    all.size());
    }
    for (int count : kCounts) {
        const std::string name = "fanout_" + std::to_string(count);
        bench::PrintRatio(name + "_p99", tails[name + "_hub"] / tails[name + "_bare"], 0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (const auto status = host::testing::RunRequestedHelper(argc, argv)) return *status;
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    const int memory = bench::MakeSharedFile(sizeof(Arrivals));
    auto* arrivals = new (bench::MapShared<Arrivals>(memory)) Arrivals;
    BareRelay bare(arrivals);
    const auto folder = velmora_test::StartHubHost();
    velmora_test::HubProcess hub_process;
    const auto consumers = StartConsumers(memory);

    const auto record = std::make_shared<velmora_test::Record>();
    const auto producer = ndk::SharedRefBase::make<velmora_test::RecordingProducer>(record);
    const hub::VelmoraEvent event =
            velmora_test::MakeEvent(0, 0, std::string(kPayloadBytes / 2, 'x'));
    std::map<std::string, std::vector<double>> samples;
    std::vector<bench::Comparison> comparisons;
    for (int count : kCounts) {
        std::shared_ptr<hub::IToken> token;
        const auto& manager = hub_process.producers();
        Require(manager->registerProducer(velmora_test::MakeDescriptor(count), producer, &token)
                        .isOk(),
                "registerProducer");
        const std::string name = "fanout_" + std::to_string(count);
        Register(name + "_hub", count, arrivals, &samples[name + "_hub"], [=, &event] {
            Require(manager->updateSignal(token, event).isOk(), "updateSignal");
        });
        Register(name + "_bare", count, arrivals, &samples[name + "_bare"],
                 [count, &bare] { bare.Push(count); });
        comparisons.push_back({name, name + "_hub", name + "_bare"});
    }
    bench::RunAndCompare(argc, argv, comparisons);
    PrintTails(&samples);
    return 0;
}
