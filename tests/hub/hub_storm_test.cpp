// Labels: memory threads processes
// Serial: it keeps every core busy, and others would take what waits for one to be at rest.
// Native: the memory that it measures grows by the code that an emulator translates.
// Clients by the dozen come, go, stand still and are killed at random; the hub outlives them all.

#include <android/binder_process.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "hub_client.h"

namespace velmora_test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kStormTime{30};
// For each call of a producer and two dumps; a consumer may have been stopped meanwhile.
constexpr int kCallLimitMs = 5'000;
constexpr int kPoolThreads = 15;
// An instrumented allocator keeps freed memory for a while; it finds leaks by itself.
constexpr int64_t kMaxGrowthKib = Rounds(8 << 10, 1 << 20);
constexpr size_t kParties = 26;  // a producer and a consumer by turns
constexpr int32_t kSignals[] = {2, 5, 7, 0, -1, INT_MIN, INT_MAX, 100, 101, 102};
constexpr int32_t kCalmSignal = 1'000;  // nobody's in the storm

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

int Milliseconds(steady_clock::duration time) {
    return static_cast<int>(std::chrono::ceil<milliseconds>(time).count());
}

// One process's share of the storm: a number of random calls per command.
class Party {
  public:
    Party(bool produces, const std::string& seed)
            : produces_(produces), random_(std::stoul(seed)) {}

    // Commands: a number of steps, "join", "leave". The answer counts deliveries and what went
    // wrong since the last one, and names the slowest call's milliseconds.
    std::string Obey(const std::string& command) {
        for (int left = std::atoi(command.c_str()); left > 0; --left)
            Step();
        if (command == "join") Join();
        while (command == "leave" && !held_.empty())
            End();
        std::string answer;
        for (std::atomic<int>* number : {&deliveries_, &faults_, &slowest_ms_})
            answer += std::to_string(number->exchange(0)) + " ";
        return answer;
    }

  private:
    struct Held {
        int32_t signal;
        std::shared_ptr<hub::IToken> token;
        bool ended = false;
    };

    void Step() {
        record_->Clear();
        const int dice = Random(16);
        if (held_.empty() || (dice == 0 && held_.size() < 8)) return Join();
        if (dice == 1) return End();
        Held& held = AnyHeld();
        if (!produces_) return Ask([&] { return consumers_->requestSignalUpdate(held.token); });
        const auto event = MakeEvent(held.signal, ++sequence_, std::to_string(getpid()));
        Ask([&] { return producers_->updateSignal(held.token, event); });
    }

    void Join() {
        Held held{kSignals[Random(std::size(kSignals))], nullptr};
        if (produces_) {
            const auto producer = MakeProducer(record_);
            const auto descriptor = MakeDescriptor(held.signal);
            Ask([&] { return producers_->registerProducer(descriptor, producer, &held.token); },
                "-5 Signal already registered.");
        } else {
            const auto consumer = MakeConsumer(record_, "consumer", ExpectNewsOf(held.signal));
            Ask([&] { return consumers_->subscribe(held.signal, consumer, &held.token); });
        }
        if (held.token != nullptr) held_.push_back(held);
    }

    // The token of what has ended may be used for a while longer.
    void End() {
        Held& held = AnyHeld();
        Ask([&] {
            return produces_ ? producers_->unregisterProducer(held.token)
                             : consumers_->unsubscribe(held.token);
        });
        if (!std::exchange(held.ended, true) && Random(2) == 0) return;
        std::swap(held, held_.back());
        held_.pop_back();
    }

    // Every event is whole, of that signal, and later than the one before of the same producer.
    RecordingConsumer::Hook ExpectNewsOf(int32_t signal) {
        return [this, own = std::to_string(signal),
                last = std::map<int, int>()](const std::string& line) mutable {
            int time = 0, producer = 0;
            const size_t at = line.find(" @");
            if (at == std::string::npos)
                return Expect(line == "consumer: available " + own ||
                                      line == "consumer: unavailable " + own + " UNREGISTERED",
                              line);
            ++deliveries_;
            Expect(line.substr(0, at) == "consumer: update " + own &&
                           sscanf(line.c_str() + at, " @%d %d", &time, &producer) == 2 &&
                           std::exchange(last[producer], time) < time,
                   line);
        };
    }

    template <typename F>
    void Ask(const F& call, const std::string& allowed = "OK") {
        const auto begin = steady_clock::now();
        const std::string answer = Answer(call());
        slowest_ms_ = std::max<int>(slowest_ms_, Milliseconds(steady_clock::now() - begin));
        Expect(answer == "OK" || answer == allowed, answer);
    }
    void Expect(bool right, const std::string& what) {
        if (right) return;
        fprintf(stderr, "process %d: not expected: %s\n", getpid(), what.c_str());
        ++faults_;
    }

    int Random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }
    Held& AnyHeld() { return held_[static_cast<size_t>(Random(static_cast<int>(held_.size())))]; }

    const bool produces_;
    std::mt19937 random_;
    std::atomic<int> deliveries_{0}, faults_{0}, slowest_ms_{0};
    int sequence_ = 0;
    std::vector<Held> held_;
    const std::shared_ptr<Record> record_ = std::make_shared<Record>();
    const std::shared_ptr<hub::IVelmoraHubProducerManager> producers_ = WaitForProducerManager();
    const std::shared_ptr<hub::IVelmoraHubConsumerManager> consumers_ = WaitForConsumerManager();
};

HOST_HELPER(StormParty) {
    ABinderProcess_startThreadPool();
    const auto& arguments = channel.arguments();
    // Callbacks may come until the very end.
    static Party& party = *new Party(arguments.at(0) == "producer", arguments.at(1));
    channel.Serve([](const std::string& command) { return party.Obey(command); });
    return 0;
}

// What the tables must hold by the hub's log. Lines written under one mutex stand in the order of
// the changes; the warning of a refused link and the line of the registration or subscription that
// it belongs to are the same thread's, with nothing of the hub's between them.
class HubLog {
  public:
    // For the hub to open. A file, because lines that find a pipe full are dropped.
    std::string path() const {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fileno(file_));
    }

    // Takes in what has been written since.
    void Read() {
        clearerr(file_);
        for (char part[1'024]; fgets(part, sizeof(part), file_) != nullptr;) {
            line_ += part;
            if (line_.back() == '\n') Take(std::exchange(line_, "").c_str());
        }
    }

    int registered = 0, unregistered = 0, subscribed = 0, refused = 0;
    std::set<int32_t> unwatched_producers, unwatched_consumers;  // by token
    std::string foreign;                                         // a sanitizer's report, say

  private:
    void Take(const char* line) {
        int thread = 0, signal = 0, token = 0, text = 0;
        char tag[32] = "";
        if (sscanf(line, "%*d-%*d %*s %*d %d %*c %31[^:]: %n", &thread, tag, &text) != 2)
            foreign += line;
        line += text;
        if (strcmp(tag, "velmora_hal") != 0) return;
        if (strcmp(line, "Cannot listen to binder death for this client.\n") == 0) {
            ++refused;
            warned_.insert(thread);
        } else if (strcmp(line, "addSignal invoked\n") == 0) {
            if (++registered; warned_.erase(thread) != 0) unwatched_producers.insert(registered);
        } else if (strncmp(line, "Removed signal", 14) == 0) {
            ++unregistered;
        } else if (sscanf(line, "New subscriber (%d::%d)", &signal, &token) == 2) {
            if (++subscribed; warned_.erase(thread) != 0) unwatched_consumers.insert(token);
        } else if (sscanf(line, "Removing subscription: %d::%d", &signal, &token) == 2) {
            unwatched_consumers.erase(token);
        }
    }

    FILE* const file_ = std::tmpfile();
    std::string line_;
    std::set<int> warned_;  // threads
};

std::set<int32_t> TokensOf(const Table& table) {
    std::set<int32_t> all;
    for (const auto& [signal, tokens] : table)
        all.insert(tokens.begin(), tokens.end());
    return all;
}

class HubStorm : public ::testing::Test {
  protected:
    struct Member {
        std::unique_ptr<Helper> helper;
        bool is_stopped = false;
    };

    HubStorm() {
        ServeACalmPair();
        before_ = ProcessCounts::Of(hub_.pid());
        resident_before_ = ResidentKib(hub_.pid());
        for (size_t i = 0; i < kParties; ++i)
            Start(i);
    }

    int Random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }
    static bool IsProducer(size_t i) { return i % 2 == 0; }
    size_t AnyMember() { return static_cast<size_t>(Random(kParties)); }

    void Start(size_t i) {
        members_[i].is_stopped = false;
        members_[i].helper = std::make_unique<Helper>(
                "StormParty",
                std::vector<std::string>{IsProducer(i) ? "producer" : "consumer",
                                         std::to_string(random_())},
                LaunchOptions{.environment = {{"ANDROID_LOG_TAGS", "*:S"}}, .capture_log = false});
        Command(i);
    }
    void Command(size_t i) { members_[i].helper->Send(IsProducer(i) ? "20" : "5"); }

    void Kill(size_t i) {
        EXPECT_FALSE(members_[i].helper->process().WaitExit(milliseconds(0))) << "died by itself";
        members_[i].helper->process().Kill();
        ++kills_;
    }

    // Adds up what the member reports; false if it does not in time.
    bool Hear(size_t i, milliseconds limit) {
        const auto answer = members_[i].helper->WaitForAnswer(limit);
        if (!answer) return false;
        std::istringstream numbers(*answer);
        int faults = 0, slowest_ms = 0;
        for (int* sum : {&deliveries_, &faults, &slowest_ms}) {
            int number = 0;
            numbers >> number;
            *sum += number;
        }
        EXPECT_EQ(faults, 0);
        if (IsProducer(i)) slowest_ms_ = std::max(slowest_ms_, slowest_ms);
        return true;
    }

    void StopOrContinue(Member& consumer) {
        auto& process = consumer.helper->process();
        consumer.is_stopped = !consumer.is_stopped;
        EXPECT_TRUE(consumer.is_stopped ? process.Stop() : process.Continue());
    }

    // Those that join meanwhile are dead when the hub gets to know.
    void KillWhileTheHubIsStopped() {
        std::set<size_t> joining;
        std::vector<pid_t> pids;
        while (joining.size() < 4) {
            const size_t any = AnyMember();
            if (members_[any].is_stopped || !joining.insert(any).second) continue;
            EXPECT_TRUE(Hear(any, kTestLimit));
            pids.push_back(members_[any].helper->pid());
        }
        EXPECT_TRUE(hub_.process().Stop());
        for (const size_t i : joining)
            members_[i].helper->Send("join");
        EXPECT_TRUE(WaitForRest(pids));
        for (const size_t i : joining)
            Kill(i);
        EXPECT_TRUE(hub_.process().Continue());
        for (const size_t i : joining)
            Start(i);
    }

    void Dump() {
        const auto begin = steady_clock::now();
        TableOf(*hub_.producers());
        TableOf(*hub_.consumers());
        slowest_dumps_ms_ = std::max(slowest_dumps_ms_, Milliseconds(steady_clock::now() - begin));
    }

    void Step() {
        for (size_t i = 0; i < kParties; ++i)
            if (Hear(i, milliseconds(0))) Command(i);
        const size_t any = AnyMember();
        const int dice = Random(100);
        if (dice < 4) {
            Kill(any);
            Start(any);
        } else if (dice < 6) {
            KillWhileTheHubIsStopped();
        } else if (!IsProducer(any) && (dice < 10 || members_[any].is_stopped)) {
            StopOrContinue(members_[any]);
        } else {
            Dump();
        }
    }

    // Some say so, some just end, some are killed.
    void EndAll() {
        for (size_t i = 0; i < kParties; ++i) {
            if (members_[i].is_stopped) StopOrContinue(members_[i]);
            const int way = Random(3);
            if (way == 0) {
                Kill(i);
                continue;
            }
            EXPECT_TRUE(Hear(i, kTestLimit));
            if (way == 1) {
                members_[i].helper->Send("leave");
                EXPECT_TRUE(Hear(i, kTestLimit));
            }
            members_[i].helper->process().CloseInput();
        }
        for (const Member& member : members_) {
            const ExitStatus end = member.helper->Finish().value_or(ExitStatus());
            EXPECT_TRUE(end == (ExitStatus{0, 0}) || end == (ExitStatus{-1, SIGKILL}));
        }
    }

    // Nothing is left but what the hub could not be told the end of: of the consumers' all that was
    // not removed, of the producers' as many.
    bool IsAllGone() {
        log_.Read();
        const std::set<int32_t> producers = TokensOf(TableOf(*hub_.producers()));
        const std::set<int32_t>& unwatched = log_.unwatched_producers;
        left_ = log_.registered - log_.unregistered;
        return TokensOf(TableOf(*hub_.consumers())) == log_.unwatched_consumers &&
               static_cast<int>(producers.size()) == left_ &&
               std::includes(unwatched.begin(), unwatched.end(), producers.begin(),
                             producers.end());
    }

    void ServeACalmPair() {
        const auto news = std::make_shared<Record>();
        const auto subscription = Subscribe(*hub_.consumers(), kCalmSignal, MakeConsumer(news));
        hub_.Fence();
        const auto registration =
                Register(*hub_.producers(), MakeDescriptor(kCalmSignal), MakeProducer(news));
        EXPECT_EQ(Answer(hub_.producers()->updateSignal(registration, MakeEvent(kCalmSignal, 7))),
                  "OK");
        EXPECT_EQ(Answer(hub_.producers()->unregisterProducer(registration)), "OK");
        EXPECT_THAT(news->WaitFor(3),
                    ::testing::ElementsAre("consumer: available 1000", "consumer: update 1000 @7",
                                           "consumer: unavailable 1000 UNREGISTERED"));
        EXPECT_EQ(Answer(hub_.consumers()->unsubscribe(subscription)), "OK");
    }

    // Within the bound of the pool's threads, whatever it has started since.
    void ExpectTheHubIsAsItWas() {
        ProcessCounts now;
        EXPECT_TRUE(Eventually([&] {
            now = ProcessCounts::Of(hub_.pid());
            return now.descriptors <= before_.descriptors;
        })) << before_.descriptors
            << " descriptors before, " << now.descriptors << " after";
        EXPECT_LE(now.threads, before_.threads + kPoolThreads);
        EXPECT_LE(ResidentKib(hub_.pid()), resident_before_ + kMaxGrowthKib);
    }

    const unsigned seed_ = std::random_device()();
    std::mt19937 random_{seed_};
    HubLog log_;
    HubProcess hub_{{{"HUB_LOG_FILE", log_.path()}}};
    ProcessCounts before_;
    int64_t resident_before_ = 0;
    std::array<Member, kParties> members_;
    int deliveries_ = 0, kills_ = 0, left_ = 0, slowest_ms_ = 0, slowest_dumps_ms_ = 0;
};

TEST_F(HubStorm, LeavesTheHubAsItWas) {
    SCOPED_TRACE("seed " + std::to_string(seed_));
    for (const auto end = steady_clock::now() + kStormTime;
         steady_clock::now() < end && !HasFailure();)
        Step();
    EndAll();
    EXPECT_TRUE(Eventually([&] { return IsAllGone(); }));
    ServeACalmPair();
    ExpectTheHubIsAsItWas();
    EXPECT_EQ(hub_.Finish(), (ExitStatus{0, 0}));
    log_.Read();
    EXPECT_EQ(log_.foreign, "");
    EXPECT_LE(std::max(slowest_ms_, slowest_dumps_ms_), kCallLimitMs);
    EXPECT_GT(deliveries_, 0);
    printf("seed %u: %d deliveries, %d kills\n"
           "%d registered, %d subscribed; %d links refused, of which %d and %zu are left; "
           "slowest call %d ms, slowest dumps %d ms\n",
           seed_, deliveries_, kills_, log_.registered, log_.subscribed, log_.refused, left_,
           log_.unwatched_consumers.size(), slowest_ms_, slowest_dumps_ms_);
}

}  // namespace
}  // namespace velmora_test
