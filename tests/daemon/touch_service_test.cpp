// Labels: memory threads processes
// Touch services that die, stop and refuse, and what the daemon does meanwhile.

#include "daemon_processes.h"

namespace velmora_test {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

// Shorter than the pause after a failure: who keeps it has not paused.
constexpr std::chrono::milliseconds kAtOnce{4000};

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(TouchService, IsFoundAgainAtOnceAfterItsDeathWhileGesturesFlow) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    for (int life = 1; life <= 10; ++life) {
        const auto touchsim = StartTouchsim();
        EXPECT_TRUE(Eventually(
                [&] {
                    return daemon->log().Count(
                                   "Successfully registered listener for Panel ID: 1") == life;
                },
                kAtOnce));
        // A death before the end of a pass is a failure of it, and no matter of this test.
        ASSERT_TRUE(WaitForRest({daemon->pid()}));
        std::string flow;
        for (int i = 0; i < 500; ++i)
            flow += TapLine(life) + "\n";
        const size_t before = client.gestures().lines().size();
        Touch(*touchsim, flow);
        EXPECT_GE(client.gestures().WaitFor(before + 5).size(), before + 5);
        EXPECT_EQ(client.gestures().lines().back(), TapHeard(life));
    }
}

TEST(TouchService, HoldsNobodyElseUpWhileItIsStoppedInsideACall) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    const std::vector<std::string> calls[] = {{"--stop-panel-info"}, {"--stop-register", "1"}};
    for (int n = 1; n <= 2; ++n) {
        SCOPED_TRACE(calls[n - 1].front());
        const auto touchsim = StartTouchsim(calls[n - 1]);
        ASSERT_TRUE(Eventually([&] { return ProcessState(touchsim->pid()) == 'T'; }));

        const auto begin = steady_clock::now();
        Helper other("ClientProcess", {}, {.echo_log = false});
        EXPECT_EQ(other.Command("subscribe"), "done");
        for (int i = 0; i < 100; ++i)
            ASSERT_TRUE(client.Fence());
        EXPECT_LT(steady_clock::now() - begin, kAtOnce);

        ASSERT_TRUE(touchsim->Continue());
        Touch(*touchsim, TapLine(n));
        EXPECT_EQ(client.gestures().WaitFor(static_cast<size_t>(n)).back(), TapHeard(n));
    }
}

// With the interval that people have: every failed pass is followed by its full wait.
TEST(TouchService, IsAskedAgainEveryFiveSecondsUntilAPassSucceeds) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    {
        const auto dying = StartTouchsim({"--stop-register", "1"});
        ASSERT_TRUE(Eventually([&] { return ProcessState(dying->pid()) == 'T'; }));
    }
    const auto death = steady_clock::now();
    const auto touchsim = StartTouchsim({"--fail-panel-info", "1", "--fail-register", "1:1"});
    ASSERT_TRUE(WaitForListeners(*touchsim));
    // Three waits, less what the observation may come late.
    EXPECT_GT(steady_clock::now() - death, seconds(14));
    // What was logged before is there too.
    EXPECT_TRUE(daemon->log().WaitForLine("Successfully registered listener for Panel ID: 1"));
    EXPECT_EQ(daemon->log().Count("Failed to get panel info: no panel info today"), 1);
    EXPECT_EQ(daemon->log().Count("listener for Panel ID: 1, error: no listener today"), 1);
    EXPECT_EQ(daemon->log().Count("skelda: attempting registration..."), 4);
    Touch(*touchsim, TapLine(1));
    EXPECT_EQ(client.gestures().WaitFor(1).back(), TapHeard(1));
}

}  // namespace
}  // namespace velmora_test
