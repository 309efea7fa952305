// Labels: soak
// Timeout: 1800
// Serial: it compares latencies, and half of the machine is its own.
// The daemon with 4 producers and 64 consumers: while clients are killed and stopped and the touch
// service is restarted, and through ten million events.
//
// The first 16 consumers and 2 producers are never touched: the steady ones. Everyone else may be
// hit, one of them twice a second: to start more processes than that would take the time that is
// measured. A client is killed once the hub knows it. The latencies are those of the steady
// consumers, as the median of the 99th percentiles of windows of 5 s: on a virtual machine of 2
// cores a single window tells of the host. SOAK_SECONDS sets how long clients are hit.

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <vector>

#include "daemon_processes.h"
#include "hub_client.h"
#include "load_clients.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using std::chrono::milliseconds;

constexpr size_t kSteadyConsumers = 16;
constexpr size_t kSteadyProducers = 2;
constexpr size_t kClients = kConsumers + kProducers;
constexpr size_t kMostStopped = 4;
constexpr int64_t kEventsPerStep = 100;  // of one producer: half a second
constexpr int kStepsPerWindow = 10;
constexpr int kStepsPerLife = 20;  // of the touch service
constexpr int kPoolThreads = 15;
constexpr int64_t kMaxResidentKib = 8 << 10;
// Each thread that allocates may get an arena of its own, of which the C library keeps up to 128
// KiB that are free: the pool's 15 and 3 more.
constexpr int64_t kMaxGrowthKib = 18 * 128;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

int StepsOfTheFaults() {
    const char* seconds = getenv("SOAK_SECONDS");
    return 2 * std::atoi(seconds != nullptr ? seconds : "300");
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

class Soak : public ::testing::Test {
  protected:
    // What the daemon holds.
    struct State {
        ProcessCounts counts;
        int64_t resident = 0;
        size_t links = 0;  // a registration and a subscription have one each
    };

    State Look() {
        State now;
        now.links = TableOf(*producers_).size();
        for (const auto& signal : Subscriptions(*consumers_))
            now.links += signal.second.size();
        // Only now: the first of the calls above connects this process to the daemon.
        now.counts = ProcessCounts::Of(daemon_->pid());
        now.resident = ResidentKib(daemon_->pid());
        return now;
    }
    // Threads within the bound of the pool, whatever it has started since.
    void ExpectBackAt(const State& before) {
        State now;
        EXPECT_TRUE(Eventually([&] {
            now = Look();
            return now.links == before.links && now.counts.descriptors <= before.counts.descriptors;
        })) << now.links
            << " links, " << now.counts.descriptors << " descriptors; before " << before.links
            << ", " << before.counts.descriptors;
        EXPECT_LE(now.counts.threads, before_.counts.threads + kPoolThreads);
        EXPECT_LE(now.resident, before.resident + kMaxGrowthKib);
        Print("now", now);
    }
    static void Print(const char* when, const State& state) {
        printf("%s: %ld KiB resident, %d descriptors, %d threads, %zu death links\n", when,
               state.resident, state.counts.descriptors, state.counts.threads, state.links);
        fflush(stdout);
    }

    void StartConsumer(size_t slot, const std::vector<size_t>& signals, bool steady) {
        std::vector<std::string> arguments{board_.path(), std::to_string(slot),
                                           steady ? "steady" : "victim"};
        for (const size_t signal : signals)
            arguments.push_back(std::to_string(signal));
        Start(slot, "LoadConsumer", arguments);
    }
    void StartProducer(size_t signal) {
        const size_t slot = kConsumers + signal;
        Start(slot, "LoadProducer", {board_.path(), std::to_string(slot), std::to_string(signal)});
    }
    void Start(size_t slot, const char* helper, const std::vector<std::string>& arguments) {
        clients_[slot] = std::make_unique<Helper>(
                helper, arguments,
                LaunchOptions{.environment = {{"ANDROID_LOG_TAGS", "*:S"}}, .capture_log = false});
    }
    bool IsReady(size_t slot) const { return board_->ready[slot] == clients_[slot]->pid(); }
    // The first so many.
    bool AwaitAll(size_t count = kClients) const {
        return Eventually([&] {
            for (size_t i = 0; i < count; ++i)
                if (!IsReady(i)) return false;
            return true;
        });
    }
    bool HasAllArrived() const {
        for (size_t signal = 0; signal < kProducers; ++signal)
            if (board_->Behind(signal) != 0) return false;
        return true;
    }
    void EndAll() {
        for (auto& client : clients_)
            EXPECT_EQ(client->Finish(), (ExitStatus{.code = 0}));
    }

    const SharedBoard board_;
    const std::unique_ptr<Child> daemon_ = StartDaemon("velmora_producer_host:I *:W");
    const std::shared_ptr<hub::IVelmoraHubProducerManager> producers_ = WaitForProducerManager();
    const std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_ = WaitForConsumerManager();
    std::array<std::unique_ptr<Helper>, kClients> clients_;
    State before_;
};

class FaultsUnderLoad : public Soak {
  protected:
    FaultsUnderLoad() {
        watcher_.Subscribe();
        ReviveTouchService();
        EXPECT_TRUE(WaitForListeners(*touchsim_));
        TouchOnce();
        EXPECT_EQ(watcher_.gestures().WaitFor(1).size(), 1U);
        before_ = Look();
        Print("before", before_);
        for (size_t slot = 0; slot < kConsumers; ++slot)
            Replace(slot);
        EXPECT_TRUE(AwaitAll(kConsumers));
        for (size_t slot = kConsumers; slot < kClients; ++slot)
            Replace(slot);
        EXPECT_TRUE(AwaitAll());
    }

    void Replace(size_t slot) {
        if (slot < kConsumers) return StartConsumer(slot, {0, 1, 2, 3}, slot < kSteadyConsumers);
        StartProducer(slot - kConsumers);
        clients_[slot]->Send("pace");
    }
    void Kill(size_t slot) {
        clients_[slot]->process().Kill();
        ++kills_;
        Replace(slot);
    }

    size_t Random(size_t from, size_t to) {
        return std::uniform_int_distribution<size_t>(from, to - 1)(random_);
    }
    // One that has not subscribed yet is none: the hub cannot know of its death.
    std::optional<size_t> AnyRunning(size_t from, size_t to) {
        const size_t slot = Random(from, to);
        const bool is_stopped = std::count(stopped_.begin(), stopped_.end(), slot) != 0;
        return is_stopped || !IsReady(slot) ? std::nullopt : std::optional(slot);
    }

    void Hurt() {
        const size_t dice = Random(0, 8);
        const auto slot = dice == 0 ? AnyRunning(kConsumers + kSteadyProducers, kClients)
                                    : AnyRunning(kSteadyConsumers, kConsumers);
        if (!slot) return;
        if (dice == 0 || dice > 2) return Kill(*slot);
        if (stopped_.size() >= kMostStopped) EndAStop();
        EXPECT_TRUE(clients_[*slot]->process().Stop());
        stopped_.push_back(*slot);
        ++stops_;
    }
    void EndAStop() {
        std::swap(stopped_[Random(0, stopped_.size())], stopped_.back());
        const size_t slot = stopped_.back();
        stopped_.pop_back();
        if (Random(0, 2) == 0) return Kill(slot);
        EXPECT_TRUE(clients_[slot]->process().Continue());
    }

    void ReviveTouchService() {
        touchsim_.reset();  // killed
        touchsim_ = StartTouchsim();
        is_touched_ = false;
        ++lives_;
    }
    void TouchOnce() {
        if (is_touched_ || !WaitForListeners(*touchsim_, milliseconds(0))) return;
        Touch(*touchsim_, TapLine(lives_));
        is_touched_ = true;
    }
    // Every life of the touch service brings its gesture.
    void Step(int step) {
        Hurt();
        TouchOnce();
        if (step % kStepsPerLife != kStepsPerLife - 1) return;
        EXPECT_EQ(watcher_.gestures().lines().back(), TapHeard(lives_));
        ReviveTouchService();
    }

    // The 99th percentile of each window. A step is over when a steady producer has gone on.
    template <typename F>
    std::vector<double> Run(int steps, const F& act) {
        std::vector<double> tails;
        board_->latency.Take(1);
        for (int step = 0; step < steps && !HasFailure(); ++step) {
            const int64_t target = board_->sent[0] + kEventsPerStep;
            EXPECT_TRUE(Eventually([&] { return board_->sent[0] >= target; }));
            act(step);
            if (step % kStepsPerWindow == kStepsPerWindow - 1)
                tails.push_back(board_->latency.Take(0.99));
        }
        return tails;
    }
    void Heal() {
        while (!stopped_.empty())
            EndAStop();
        EXPECT_TRUE(AwaitAll());
        EXPECT_TRUE(WaitForListeners(*touchsim_));
        TouchOnce();
        EXPECT_EQ(watcher_.gestures().WaitFor(static_cast<size_t>(lives_)).back(),
                  TapHeard(lives_));
    }
    void StopPushing() {
        for (size_t slot = kConsumers; slot < kClients; ++slot)
            EXPECT_EQ(clients_[slot]->Command("stop"), "pace");
        EXPECT_TRUE(Eventually([&] { return HasAllArrived(); }));
    }

    std::mt19937 random_{std::random_device()()};
    Client watcher_;
    std::unique_ptr<Child> touchsim_;
    std::vector<size_t> stopped_;
    bool is_touched_ = false;
    int kills_ = 0, stops_ = 0, lives_ = 0;
};

TEST_F(FaultsUnderLoad, CostTheOthersNothingAndLeaveNothing) {
    const int steps = StepsOfTheFaults();
    const std::vector<double> calm = Run(std::max(4 * kStepsPerWindow, steps / 5), [](int) {});
    const State full = Look();
    Print("calm", full);
    const std::vector<double> hurt = Run(steps, [&](int step) { Step(step); });
    Heal();
    Run(kStepsPerWindow, [](int) {});
    ExpectBackAt(full);
    StopPushing();
    EndAll();
    ExpectBackAt(before_);
    EXPECT_EQ(board_->faults, 0);
    EXPECT_LE(full.resident, kMaxResidentKib);
    ASSERT_FALSE(hurt.empty());
    EXPECT_LE(Median(hurt), 2 * Median(calm));
    for (const auto& tails : {calm, hurt}) {
        printf("p99 in microseconds:");
        for (const double tail : tails)
            printf(" %.0f", tail);
        printf("; median %.0f\n", Median(tails));
    }
    printf("%ld deliveries, %d kills, %d stops, %d lives of the touch service; %ld events refused "
           "to the stopped, %ld held back\n",
           board_->deliveries.load(), kills_, stops_, lives_, board_->refused.load(),
           board_->held_back.load());
}

// Every consumer listens to one of the signals, which all of the four producers push as fast as the
// window lets them: each event is 16 deliveries.
constexpr int64_t kEvents = 10'000'000;

class TenMillionEvents : public Soak {
  protected:
    void Push(int64_t events) {
        const std::string command = "flat " + std::to_string(events / int64_t{kProducers});
        for (size_t slot = kConsumers; slot < kClients; ++slot)
            clients_[slot]->Send(command);
        for (size_t slot = kConsumers; slot < kClients; ++slot)
            EXPECT_EQ(clients_[slot]->WaitForAnswer(std::chrono::minutes(20)), command);
        EXPECT_TRUE(Eventually([&] { return HasAllArrived(); }));
    }
};

TEST_F(TenMillionEvents, LeaveTheDaemonAsSmallAsOneMillionDid) {
    for (size_t slot = 0; slot < kConsumers; ++slot)
        StartConsumer(slot, {slot % kProducers}, true);
    EXPECT_TRUE(AwaitAll(kConsumers));
    for (size_t signal = 0; signal < kProducers; ++signal)
        StartProducer(signal);
    EXPECT_TRUE(AwaitAll());
    Push(kEvents / 10);
    const State before = Look();
    Print("a tenth of the events", before);
    Push(kEvents - kEvents / 10);
    before_ = before;
    ExpectBackAt(before);
    EndAll();
    EXPECT_EQ(board_->deliveries, kEvents * int64_t{kConsumers / kProducers});
    EXPECT_EQ(board_->faults, 0);
}

}  // namespace
}  // namespace velmora_test
