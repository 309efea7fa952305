// Labels: memory processes
// The same again and again: nothing is left over, and nobody gets what another one has.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "hub_client.h"

namespace velmora_test {
namespace {

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(TwoProducers, RacingForASignalAreNeverBothRegistered) {
    HubProcess hub;
    std::array<HubClient, 2> racers;
    std::array<int, 2> won = {0, 0};
    for (int32_t round = 1; round <= Rounds(3'000, 300); ++round) {
        const size_t first = static_cast<size_t>(round) % 2;
        racers[first].helper().Send("register 5");
        racers[1 - first].helper().Send("register 5");
        const std::string answers[] = {racers[0].helper().WaitForAnswer().value_or("none"),
                                       racers[1].helper().WaitForAnswer().value_or("none")};
        const size_t winner = answers[0] == "OK" ? 0 : 1;
        ASSERT_EQ(answers[winner], "OK");
        ASSERT_EQ(answers[1 - winner], "-5 Signal already registered.");
        // A refusal uses up no number.
        ASSERT_EQ(TableOf(*hub.producers()), (Table{{5, {round}}}));
        ASSERT_EQ(racers[winner].Do("unregister 5"), "OK");
        ++won[winner];
    }
    EXPECT_GT(won[0], 0);
    EXPECT_GT(won[1], 0);
}

// Two clients come and go so many times each; every dump meanwhile must be well-formed.
void ComeAndGo(HubProcess& hub, std::array<HubClient, 2>& clients, int rounds) {
    for (size_t i = 0; i < clients.size(); ++i)
        clients[i].helper().Send("churn " + std::to_string(5 + i) + " " + std::to_string(rounds));
    for (HubClient& client : clients) {
        std::optional<std::string> answer;
        const auto dump = [&] {
            for (const auto& [id, tokens] : TableOf(*hub.producers()))
                EXPECT_EQ(tokens.size(), 1u) << id;
            for (const auto& [id, tokens] : TableOf(*hub.consumers()))
                EXPECT_LE(tokens.size(), 1u) << id;
            answer = client.helper().WaitForAnswer(std::chrono::milliseconds(1));
            return answer.has_value();
        };
        ASSERT_TRUE(Eventually(dump, std::chrono::seconds(100)));
        ASSERT_EQ(*answer, "OK");
    }
    hub.Fence();
    EXPECT_EQ(TableOf(*hub.producers()), Table());
    EXPECT_EQ(Subscriptions(*hub.consumers()), Table());
}

TEST(Clients, ThatComeAndGoLeaveNothingBehind) {
    constexpr int kPhases = 4;
    constexpr int kRounds = Rounds(12'500, 1'000) / kPhases;
    // An instrumented allocator keeps freed memory for a while.
    constexpr int64_t kMaxGrowthKib = Rounds(256, 16 << 10);
    const std::map<std::string, std::string> quiet = {{"ANDROID_LOG_TAGS", "*:W"}};
    HubProcess hub(quiet);
    std::array<HubClient, 2> clients;
    ComeAndGo(hub, clients, kRounds);
    const int descriptors = OpenDescriptors(hub.pid());
    // What is left over shows in every phase; a backlog on a busy machine, or a thread's first
    // allocation, in some.
    int64_t growth = INT64_MAX;
    for (int i = 0; i < kPhases; ++i) {
        const int64_t before = ResidentKib(hub.pid());
        ComeAndGo(hub, clients, kRounds);
        growth = std::min(growth, ResidentKib(hub.pid()) - before);
    }
    EXPECT_LE(growth, kMaxGrowthKib);
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(hub.pid()) <= descriptors; }));
    // The pool starts its threads on demand: 15, beside the main one, the worker, the transport's
    // and a sanitizer's.
    EXPECT_TRUE(Eventually([&] { return Threads(hub.pid()) <= 20; }));
}

}  // namespace
}  // namespace velmora_test
