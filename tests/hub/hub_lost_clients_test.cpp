// Labels: memory processes
// Clients whose processes are killed, while they are registered, before, and in the middle, or
// stand still; and everybody else.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>

#include "hub_client.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

constexpr char kDeadOnArrival[] = "Cannot listen to binder death for this client.";

using HubDeaths = HubTest;

TEST_F(HubDeaths, EndEverySubscriptionOfTheProcessAndNoOther) {
    constexpr int kRounds = Rounds(20, 5);
    const auto shared = Register(5, first_);
    const auto alone = Register(6, second_);
    const auto mine = Subscribe(5, std::make_shared<Record>());
    std::vector<std::string> told;
    for (int i = 0; i < kRounds; ++i) {
        HubClient victim;
        // The same object twice too: it is remote, so the hub does not know it again.
        for (const char* which : {"5 a", "5 b", "6 a", "6 b", "6 a", "-7 a"})
            ASSERT_EQ(victim.Do(std::string("subscribe ") + which), "OK");
        EXPECT_EQ(Subscriptions(consumers_).size(), 3u);
        victim.process().Kill();
        EXPECT_TRUE(Eventually([&] { return Subscriptions(consumers_) == Table{{5, {1}}}; }));
        told.insert(told.end(), {"producer: clients", "producer: no clients"});
        EXPECT_EQ(second_->WaitFor(told.size()), told);
    }
    // Nothing was told twice: the nudges come after whatever else was.
    const auto last = Subscribe(6, std::make_shared<Record>());
    consumers_.requestSignalUpdate(last);
    consumers_.requestSignalUpdate(mine);
    told.insert(told.end(), {"producer: clients", "producer: nudge"});
    EXPECT_EQ(second_->WaitFor(told.size()), told);
    EXPECT_THAT(first_->WaitFor(2), ElementsAre("producer: clients", "producer: nudge"));
    EXPECT_EQ(TableOf(producers_), (Table{{5, {1}}, {6, {2}}}));
}

TEST_F(HubDeaths, EndEveryRegistrationOfTheProcessAndNoOther) {
    constexpr int kRounds = Rounds(20, 5);
    Subscribe(5, first_);
    Subscribe(8, second_);
    const auto untouched = Register(8, std::make_shared<Record>());
    std::vector<std::string> told;
    for (int i = 0; i < kRounds; ++i) {
        HubClient victim;
        for (const char* id : {"5", "6", "7"})
            ASSERT_EQ(victim.Do(std::string("register ") + id), "OK");
        ASSERT_EQ(victim.Do("subscribe 9 a"), "OK");
        victim.process().Kill();
        EXPECT_TRUE(Eventually([&] { return TableOf(producers_).size() == 1u; }));
        // Free again, for another process.
        const auto token = Register(5, std::make_shared<Record>());
        EXPECT_EQ(Answer(producers_.updateSignal(token, MakeEvent(5, i))), "OK");
        EXPECT_EQ(Answer(producers_.unregisterProducer(token)), "OK");
        told.insert(told.end(),
                    {"consumer: available 5", "consumer: unavailable 5 UNREGISTERED",
                     "consumer: available 5", "consumer: update 5 @" + std::to_string(i),
                     "consumer: unavailable 5 UNREGISTERED"});
        EXPECT_EQ(first_->WaitFor(told.size()), told);
    }
    producers_.updateSignal(untouched, MakeEvent(8));
    EXPECT_THAT(second_->WaitFor(2), ElementsAre("consumer: available 8", "consumer: update 8 @0"));
    EXPECT_EQ(TableOf(producers_), (Table{{8, {1}}}));
    EXPECT_TRUE(Eventually([&] { return Subscriptions(consumers_) == Table{{5, {1}}, {8, {2}}}; }));
}

TEST_F(HubDeaths, InTheMiddleOfARegistrationLeaveItOnlyWithAWarning) {
    const auto old = Register(5, first_);
    EXPECT_EQ(Answer(producers_.unregisterProducer(old)), "OK");
    int left = 0;
    for (int i = 0; i < Rounds(30, 8); ++i) {
        HubClient victim;
        ASSERT_TRUE(hub_.process().Stop());
        victim.helper().Send("register 5");
        EXPECT_TRUE(WaitForRest({victim.process().pid()}));
        victim.process().Kill();
        ASSERT_TRUE(hub_.process().Continue());
        EXPECT_TRUE(WaitForRest({hub_.pid()}));
        if (!TableOf(producers_).empty()) {
            ++left;
            EXPECT_EQ(Answer(producers_.unregisterProducer(old)), "OK");
        }
        EXPECT_EQ(TableOf(producers_), Table());
    }
    EXPECT_TRUE(Eventually([&] { return hub_.log().Count(kDeadOnArrival) == left; }));
    EXPECT_NE(Register(5, first_), nullptr);
}

class StoppedConsumer : public HubTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(stopped_.Do("subscribe 5 a"), "OK");
        hub_.Fence();  // a producer that comes before is told of the consumer
        token_ = Register(5, second_);
        ASSERT_EQ(stopped_.Do("lines 1"), "a: available 5;");
        velmora_test::Subscribe(consumers_, 5, healthy_);
        ASSERT_TRUE(stopped_.process().Stop());
    }

    // Pushes events, a few at a time, until all have been sent, and returns what a consumer is
    // told; the healthy one is told everything at once.
    std::vector<std::string> Push(size_t events) {
        std::vector<std::string> told;
        const std::string tag(100, 'x');
        while (told.size() < events) {
            const auto time = static_cast<int64_t>(told.size());
            EXPECT_EQ(Answer(producers_.updateSignal(token_, MakeEvent(5, time, tag))), "OK");
            told.push_back("a: update 5 @" + std::to_string(time) + " " + tag);
            if (told.size() % 10 != 0) continue;
            EXPECT_EQ(first_->WaitFor(told.size()), told);
        }
        hub_.Fence();  // in which order the two are called is left open
        return told;
    }

    // The median of what others' calls take.
    std::chrono::nanoseconds CallTime() {
        std::vector<std::chrono::nanoseconds> times;
        for (int i = 0; i < 99; ++i) {
            const auto start = std::chrono::steady_clock::now();
            const auto token = velmora_test::Subscribe(consumers_, 6, healthy_);
            EXPECT_EQ(Answer(consumers_.requestSignalUpdate(token)), "OK");
            EXPECT_EQ(Answer(consumers_.unsubscribe(token)), "OK");
            times.push_back(std::chrono::steady_clock::now() - start);
            hub_.Fence();
        }
        std::nth_element(times.begin(), times.begin() + 49, times.end());
        return times[49];
    }

    HubClient stopped_;
    const std::shared_ptr<RecordingConsumer> healthy_ = MakeConsumer(first_, "a");
    std::shared_ptr<hub::IToken> token_;
};

TEST_F(StoppedConsumer, DelaysNobodyAndGetsWhatWasAcceptedInOrder) {
    const auto pushed = Push(400);
    const auto time = CallTime();
    ASSERT_TRUE(stopped_.process().Continue());
    std::string told = "a: available 5;";
    for (const std::string& line : pushed)
        told += line + ";";
    EXPECT_EQ(stopped_.Do("lines 401"), told);
    EXPECT_LT(time, CallTime() * 5);
}

}  // namespace
}  // namespace velmora_test
