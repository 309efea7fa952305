// What a call costs while the hub holds 100,000 subscriptions of 10,000 signals, against 100 of 10:
// it must not grow with their number. Ten per signal in both; signals and subscriptions are drawn
// at random, so the large hub finds little of what it needs in the processor's caches.
//
// For each size a service manager, a hub, a client that produces all signals and holds all
// subscriptions, and a visitor that holds none. They measure on command, so the sizes take turns.
//     subscribe, unsubscribe  calls of the visitor in its own process, an eleventh consumer: what a
//                             client pays, and so what has the limit, like push
//     few_subscribe           the same with the same ten signals in both sizes: what the number
//                             costs, without the cold memory of signals that are seldom used
//     push, few_push          the same for updateSignal, by the client that holds the tokens
//     deliver                 from there to the tenth consumer in that client, whose 100,000
//                             objects are not the hub's but cost their misses too
//     hub_...                 inside the hub, by the processor time of the one thread that does
//                             all of it: what the tables, tokens and links cost without a call
//                             that hides it. Any subscription ends; it is made again; an event is
//                             pushed and handed to its ten consumers, ten oneway calls sent.

#include <time.h>

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
using Task = std::unique_ptr<::aidl::android::hardware::biometrics::Callable>;
using Token = std::shared_ptr<hub::IToken>;

constexpr int kPerSignal = 10;
constexpr int kFew = 100;
constexpr std::string_view kOnFew = "few_";
constexpr int kBatch = 200;
constexpr int kLot = 10;
// A round lasts milliseconds, and what else the machine runs can disturb a dozen in a row.
constexpr int kRounds = 101;
constexpr double kLimit = 1.2;
constexpr std::chrono::minutes kFillLimit{2};

const hub::VelmoraEvent& AnyEvent() {
    static const auto& event =
            *new hub::VelmoraEvent(velmora_test::MakeEvent(0, 0, std::string(128, 'x')));
    return event;
}

// The hub's worker, except that the thread that made it runs itself what it has scheduled.
class DivertedWorker : public velmora_test::WorkerThread {
  public:
    DivertedWorker() : WorkerThread(100) {}

    bool schedule(Task task) override {
        if (std::this_thread::get_id() != maker_) return WorkerThread::schedule(std::move(task));
        diverted_.push_back(std::move(task));
        return true;
    }
    void RunDiverted() {
        for (const Task& task : diverted_)
            (*task)();
        diverted_.clear();
    }

  private:
    const std::thread::id maker_ = std::this_thread::get_id();
    std::vector<Task> diverted_;
};

struct Held {
    int signal;
    std::shared_ptr<hub::IVelmoraHubConsumer> consumer;
    Token token;
};

// The managers remember what the one client that fills the tables has been given.
class Consumers : public hub::VelmoraHubConsumerManager {
  public:
    Consumers(std::shared_ptr<WorkerThread> worker, int count)
            : VelmoraHubConsumerManager(std::move(worker)), count_(static_cast<size_t>(count)) {}

    ndk::ScopedAStatus subscribe(int32_t signal,
                                 const std::shared_ptr<hub::IVelmoraHubConsumer>& consumer,
                                 Token* token) override {
        auto status = VelmoraHubConsumerManager::subscribe(signal, consumer, token);
        if (held.size() < count_) held.push_back({signal, consumer, *token});
        return status;
    }

    std::vector<Held> held;

  private:
    const size_t count_;
};

class Producers : public hub::VelmoraHubProducerManager {
  public:
    using VelmoraHubProducerManager::VelmoraHubProducerManager;

    ndk::ScopedAStatus registerProducer(const hub::SignalDescriptor& descriptor,
                                        const std::shared_ptr<hub::IVelmoraHubProducer>& producer,
                                        Token* token) override {
        auto status = VelmoraHubProducerManager::registerProducer(descriptor, producer, token);
        tokens.push_back(*token);
        return status;
    }

    std::vector<Token> tokens;
};

double ProcessorTime() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
}

// The hub, published, and what it costs from inside.
class TableHub {
  public:
    explicit TableHub(int subscriptions)
            : consumers_(ndk::SharedRefBase::make<Consumers>(worker_, subscriptions)) {
        const auto broker = std::make_shared<hub::SignalBroker>(producers_, consumers_);
        consumers_->RegisterListener(broker);
        producers_->RegisterListener(broker);
        Publish(hub::IVelmoraHubConsumerManager::descriptor, consumers_->asBinder().get());
        Publish(hub::IVelmoraHubProducerManager::descriptor, producers_->asBinder().get());
    }

    // Nanoseconds of the operation, the median of small lots: reading the clock costs as much as
    // an operation.
    double Measure(const std::string& operation) {
        std::vector<double> samples;
        for (int lot = 0; lot < kBatch / kLot; ++lot)
            samples.push_back((operation == "hub_push" ? Push() : Visit(operation)) / kLot);
        return bench::Quantile(&samples, 0.5);
    }

  private:
    static void Publish(const std::string& descriptor, AIBinder* manager) {
        Require(AServiceManager_addService(manager, (descriptor + "/default").c_str()) == EX_NONE,
                "addService");
    }

    double Visit(const std::string& operation) {
        // None twice.
        const size_t count = consumers_->held.size();
        const size_t first = random_() % count;
        Held* lot[kLot];
        for (size_t i = 0; i < kLot; ++i)
            lot[i] = &consumers_->held[(first + i * (count / kLot)) % count];
        const double begin = ProcessorTime();
        for (Held* one : lot)
            Require(consumers_->unsubscribe(one->token).isOk(), "unsubscribe");
        const double middle = ProcessorTime();
        for (Held* one : lot) {
            one->token = nullptr;
            Require(consumers_->subscribe(one->signal, one->consumer, &one->token).isOk(),
                    "subscribe");
        }
        const double end = ProcessorTime();
        worker_->RunDiverted();
        return operation == "hub_subscribe" ? end - middle : middle - begin;
    }

    double Push() {
        const double begin = ProcessorTime();
        for (int i = 0; i < kLot; ++i) {
            const Token& token = producers_->tokens[random_() % producers_->tokens.size()];
            Require(producers_->updateSignal(token, AnyEvent()).isOk(), "updateSignal");
            worker_->RunDiverted();
        }
        return ProcessorTime() - begin;
    }

    const std::shared_ptr<DivertedWorker> worker_ = std::make_shared<DivertedWorker>();
    const std::shared_ptr<Consumers> consumers_;
    const std::shared_ptr<Producers> producers_ = ndk::SharedRefBase::make<Producers>(worker_);
    std::minstd_rand random_;
};

HOST_HELPER(TableHub) {
    ABinderProcess_startThreadPool();
    TableHub tables(std::stoi(channel.arguments()[0]));
    channel.Serve([&](const std::string& operation) {
        return operation == "ready" ? operation : std::to_string(tables.Measure(operation));
    });
    // Its parts hold each other.
    _exit(0);
}

// Knows signals for so many subscriptions. The holder produces every one of them and subscribes an
// object of its own for each subscription; others find that done.
class TableClient {
  public:
    TableClient(int subscriptions, bool holds) : signals_(subscriptions / kPerSignal) {
        for (int signal = 0; holds && signal < signals_; ++signal) {
            Token token;
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

    // Nanoseconds of the operation alone, the median of `kBatch`.
    double Measure(std::string operation) {
        const bool few = operation.find(kOnFew) == 0;
        if (few) operation.erase(0, kOnFew.size());
        const int drawn = few ? kFew / kPerSignal : signals_;
        std::vector<double> samples;
        for (int i = 0; i < kBatch; ++i) {
            const int signal = static_cast<int>(random_() % static_cast<unsigned>(drawn));
            const bool pushes = operation == "push" || operation == "deliver";
            samples.push_back(pushes ? Push(signal, operation) : Visit(signal, operation));
        }
        return bench::Quantile(&samples, 0.5);
    }

  private:
    std::shared_ptr<ArrivingConsumer> MakeConsumer() {
        return ndk::SharedRefBase::make<ArrivingConsumer>(&arrivals_);
    }

    Token Subscribe(int signal, const std::shared_ptr<ArrivingConsumer>& consumer) {
        Token token;
        Require(consumers_->subscribe(signal, consumer, &token).isOk(), "subscribe");
        return token;
    }

    double Visit(int signal, const std::string& operation) {
        const auto consumer = MakeConsumer();
        const Clock::time_point begin = Clock::now();
        const auto token = Subscribe(signal, consumer);
        const Clock::time_point middle = Clock::now();
        Require(consumers_->unsubscribe(token).isOk(), "unsubscribe");
        const Clock::time_point end = Clock::now();
        return bench::Nanoseconds(operation == "subscribe" ? middle - begin : end - middle);
    }

    double Push(int signal, const std::string& operation) {
        const auto& token = producer_tokens_[static_cast<size_t>(signal)];
        Clock::duration call{};
        const double delivered = arrivals_.Time(kPerSignal, [&] {
            const Clock::time_point begin = Clock::now();
            Require(producers_->updateSignal(token, AnyEvent()).isOk(), "updateSignal");
            call = Clock::now() - begin;
        });
        return operation == "push" ? bench::Nanoseconds(call) : delivered;
    }

    const int signals_;
    const std::shared_ptr<hub::IVelmoraHubProducer> producer_ =
            ndk::SharedRefBase::make<velmora_test::RecordingProducer>(
                    std::make_shared<velmora_test::Record>());
    const std::shared_ptr<hub::IVelmoraHubProducerManager> producers_ =
            velmora_test::WaitForProducerManager();
    const std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_ =
            velmora_test::WaitForConsumerManager();
    std::minstd_rand random_;
    bench::Arrivals arrivals_;
    std::vector<Token> producer_tokens_;
    std::vector<Token> consumer_tokens_;
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
            : hub_("TableHub", {std::to_string(subscriptions)}, kOptions),
              holder_("TableClient", {std::to_string(subscriptions), "holds"}, kOptions),
              visitor_("TableClient", {std::to_string(subscriptions), "visits"}, kOptions) {}

    // Returns when the subscriptions are there.
    void WaitUntilReady() {
        for (Helper* process : {&hub_, &holder_, &visitor_})
            Require(process->Command("ready", kFillLimit) == "ready", "client");
    }

    double Measure(const std::string& operation) {
        const bool pushes =
                operation == "push" || operation == "few_push" || operation == "deliver";
        Helper& process = operation.find("hub_") == 0 ? hub_ : pushes ? holder_ : visitor_;
        const std::string answer = process.Command(operation);
        Require(!answer.empty(), "client");
        return std::stod(answer);
    }

  private:
    static inline const host::testing::LaunchOptions kOptions{.capture_log = false};

    // Its programs inherit the folder that was made last.
    const std::unique_ptr<host::testing::ScopedHost> folder_ = velmora_test::StartHubHost();
    Helper hub_;
    Helper holder_;
    Helper visitor_;
};

}  // namespace

int main(int argc, char** argv) {
    if (const auto status = host::testing::RunRequestedHelper(argc, argv)) return *status;
    setenv("ANDROID_LOG_TAGS", "*:S", 1);
    bench::StayOnOneProcessor();
    const int many = bench::IsShort(argc, argv) ? 2'000 : 100'000;
    std::map<int, std::unique_ptr<Site>> sites;
    for (int size : {kFew, many})
        sites[size] = std::make_unique<Site>(size);
    for (const auto& [size, site] : sites)
        site->WaitUntilReady();

    std::vector<bench::Comparison> comparisons;
    for (const std::string operation :
         {"subscribe", "unsubscribe", "push", "few_subscribe", "few_push", "deliver",
          "hub_subscribe", "hub_unsubscribe", "hub_push"}) {
        const auto name = [&](int size) { return operation + "_at_" + std::to_string(size); };
        for (const auto& [size, site] : sites) {
            const auto round = [site = site.get(), operation](benchmark::State& state) {
                while (state.KeepRunningBatch(kBatch))
                    state.SetIterationTime(site->Measure(operation) * kBatch / 1e9);
            };
            benchmark::RegisterBenchmark(name(size).c_str(), round)
                    ->UseManualTime()
                    ->Iterations(kBatch);
        }
        const bool has_limit = operation.find("push") == 0 || operation.find("subscribe") == 0 ||
                               operation.find("unsubscribe") == 0;
        comparisons.push_back({name(many), name(many), name(kFew), has_limit ? kLimit : 0});
    }
    bench::RunAndCompare(argc, argv, comparisons, kRounds);
    return 0;
}
