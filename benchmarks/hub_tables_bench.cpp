// What a call costs while the hub holds 10, 1,000 and 100,000 subscriptions, ten per signal: it
// must not grow with their number. For each size a service manager, a hub, a client that holds the
// subscriptions and pushes events to them, and a visitor that holds none, and so shows what the
// hub's tables cost and not its own. They measure on command, so that the sizes take turns.
//
// Calls on one signal again and again have to meet the limit. Calls on signals drawn at random
// ("any") add the memory that the processor's caches no longer hold once there are many signals:
// the hub's, and for updates that of the client with its many consumers.

#include <random>

#include "arrivals.h"
#include "bench_support.h"
#include "hub_processes.h"

namespace {

namespace hub = velmora_test::hub;
using bench::ArrivingConsumer;
using bench::Clock;
using bench::Require;
using host::testing::Helper;

constexpr int kPerSignal = 10;
constexpr int kBatch = 200;
constexpr double kLimit = 1.2;
constexpr std::chrono::minutes kFillLimit{2};

// Knows signals for so many subscriptions. The holder produces every one of them and subscribes an
// object of its own for each subscription; others find that done.
class TableClient {
  public:
    TableClient(int subscriptions, bool holds) : signals_(subscriptions / kPerSignal) {
        for (int signal = 0; holds && signal < signals_; ++signal) {
            std::shared_ptr<hub::IToken> token;
            Require(producers_
                            ->registerProducer(velmora_test::MakeDescriptor(signal), producer_,
                                               &token)
                            .isOk(),
                    "registerProducer");
            producer_tokens_.push_back(token);
            for (int i = 0; i < kPerSignal; ++i)
                consumer_tokens_.push_back(Subscribe(signal, MakeConsumer()));
        }
    }

    // Nanoseconds of the operation alone, the median of `kBatch`; "OPERATION_any" draws the
    // signals.
    double Measure(const std::string& command) {
        const std::string operation = command.substr(0, command.find('_'));
        const bool any = operation != command;
        std::vector<double> samples;
        for (int i = 0; i < kBatch; ++i) {
            const int signal =
                    any ? static_cast<int>(random_() % static_cast<unsigned>(signals_)) : 0;
            samples.push_back(operation == "update" ? Update(signal) : Visit(signal, operation));
        }
        return bench::Quantile(&samples, 0.5);
    }

  private:
    std::shared_ptr<ArrivingConsumer> MakeConsumer() {
        return ndk::SharedRefBase::make<ArrivingConsumer>(&arrivals_);
    }

    std::shared_ptr<hub::IToken> Subscribe(int signal,
                                           const std::shared_ptr<ArrivingConsumer>& consumer) {
        std::shared_ptr<hub::IToken> token;
        Require(consumers_->subscribe(signal, consumer, &token).isOk(), "subscribe");
        return token;
    }

    // An eleventh consumer comes and goes.
    double Visit(int signal, const std::string& operation) {
        const auto consumer = MakeConsumer();
        const Clock::time_point begin = Clock::now();
        const auto token = Subscribe(signal, consumer);
        const Clock::time_point middle = Clock::now();
        Require(consumers_->unsubscribe(token).isOk(), "unsubscribe");
        const Clock::time_point end = Clock::now();
        return bench::Nanoseconds(operation == "subscribe" ? middle - begin : end - middle);
    }

    // Until the last of the signal's consumers has been called.
    double Update(int signal) {
        const auto& token = producer_tokens_[static_cast<size_t>(signal)];
        return arrivals_.Time(kPerSignal, [&] {
            Require(producers_->updateSignal(token, event_).isOk(), "updateSignal");
        });
    }

    const int signals_;
    const hub::VelmoraEvent event_ = velmora_test::MakeEvent(0, 0, std::string(128, 'x'));
    const std::shared_ptr<hub::IVelmoraHubProducer> producer_ =
            ndk::SharedRefBase::make<velmora_test::RecordingProducer>(
                    std::make_shared<velmora_test::Record>());
    const std::shared_ptr<hub::IVelmoraHubProducerManager> producers_ =
            velmora_test::WaitForProducerManager();
    const std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_ =
            velmora_test::WaitForConsumerManager();
    std::minstd_rand random_;
    bench::Arrivals arrivals_;
    std::vector<std::shared_ptr<hub::IToken>> producer_tokens_;
    std::vector<std::shared_ptr<hub::IToken>> consumer_tokens_;
};

HOST_HELPER(TableClient) {
    ABinderProcess_startThreadPool();
    const auto& arguments = channel.arguments();
    TableClient client(std::stoi(arguments[0]), arguments[1] == "holds");
    channel.Serve([&](const std::string& operation) {
        return operation == "ready" ? operation : std::to_string(client.Measure(operation));
    });
    return 0;
}

// A hub in a folder of its own, with so many subscriptions.
class Site {
  public:
    explicit Site(int subscriptions)
            : holder_("TableClient", {std::to_string(subscriptions), "holds"}, kOptions),
              visitor_("TableClient", {std::to_string(subscriptions), "visits"}, kOptions) {}

    // Returns when the subscriptions are there.
    void WaitUntilReady() {
        for (Helper* client : {&holder_, &visitor_})
            Require(client->Command("ready", kFillLimit) == "ready", "client");
    }

    double Measure(const std::string& operation) {
        Helper& client = operation.find("update") == 0 ? holder_ : visitor_;
        const std::string answer = client.Command(operation);
        Require(!answer.empty(), "client");
        return std::stod(answer);
    }

  private:
    static inline const host::testing::LaunchOptions kOptions{.capture_log = false};

    // Its programs inherit the folder that was made last.
    const std::unique_ptr<host::testing::ScopedHost> folder_ = velmora_test::StartHubHost();
    Helper hub_{"HubServer", {}, kOptions};
    Helper holder_;
    Helper visitor_;
};

}  // namespace

int main(int argc, char** argv) {
    if (const auto status = host::testing::RunRequestedHelper(argc, argv)) return *status;
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    bench::StayOnOneProcessor();
    const int most = bench::IsShort(argc, argv) ? 2'000 : 100'000;
    std::map<int, std::unique_ptr<Site>> sites;
    for (int size : {10, 1'000, most})
        sites[size] = std::make_unique<Site>(size);
    for (const auto& [size, site] : sites)
        site->WaitUntilReady();

    std::vector<bench::Comparison> comparisons;
    for (const std::string operation :
         {"subscribe", "unsubscribe", "update", "subscribe_any", "unsubscribe_any", "update_any"}) {
        const double limit = operation.find('_') == std::string::npos ? kLimit : 0;
        for (const auto& [size, site] : sites) {
            const std::string name = operation + "_at_" + std::to_string(size);
            const auto round = [site = site.get(), operation](benchmark::State& state) {
                while (state.KeepRunningBatch(kBatch))
                    state.SetIterationTime(site->Measure(operation) * kBatch / 1e9);
            };
            benchmark::RegisterBenchmark(name.c_str(), round)->UseManualTime()->Iterations(kBatch);
            if (size != 10) comparisons.push_back({name, name, operation + "_at_10", limit});
        }
    }
    bench::RunAndCompare(argc, argv, comparisons);
    return 0;
}
