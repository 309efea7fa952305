// Labels: memory processes
// Clients whose processes are killed: while they are registered, before, and in the middle.

#include <gmock/gmock.h>

#include "hub_client.h"

namespace velmora_test {
namespace {

using host::testing::Eventually;
using host::testing::Rounds;
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
        EXPECT_TRUE(host::testing::WaitForRest({victim.process().pid()}));
        victim.process().Kill();
        ASSERT_TRUE(hub_.process().Continue());
        EXPECT_TRUE(host::testing::WaitForRest({hub_.pid()}));
        if (!TableOf(producers_).empty()) {
            ++left;
            EXPECT_EQ(Answer(producers_.unregisterProducer(old)), "OK");
        }
        EXPECT_EQ(TableOf(producers_), Table());
    }
    EXPECT_TRUE(Eventually([&] { return hub_.log().Count(kDeadOnArrival) == left; }));
    EXPECT_NE(Register(5, first_), nullptr);
}

}  // namespace
}  // namespace velmora_test
