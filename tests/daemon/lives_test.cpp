// Labels: memory threads processes
// More than one daemon in a folder, one after the other and at once, and a daemon's end.

#include <signal.h>

#include "daemon_processes.h"

namespace velmora_test {
namespace {

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(Daemon, RestartedServesTheClientsAndTheTouchServiceOfTheKilledOne) {
    auto daemon = StartDaemon();
    const auto touchsim = StartTouchsim();
    for (int life = 1; life <= 3; ++life) {
        EXPECT_TRUE(Eventually(
                [&] { return touchsim->log().Count("panel 1 has a listener") == life; }));
        Client client;
        client.Subscribe();
        Touch(*touchsim, TapLine(life));
        EXPECT_EQ(client.gestures().WaitFor(1).back(), TapHeard(life));
        daemon->Kill();
        EXPECT_TRUE(Eventually([&] { return !client.IsHubAlive(); }));
        EXPECT_FALSE(client.Fence());
        daemon = StartDaemon();
    }
}

TEST(Daemon, StartedASecondTimeEndsAndTakesNothingFromTheFirst) {
    const auto daemon = StartDaemon();
    const auto touchsim = StartTouchsim();
    // The second one asks for gestures too, before it ends.
    EXPECT_TRUE(WaitForListeners(*touchsim));
    Client before;
    before.Subscribe();
    const auto second = LaunchDaemon();
    EXPECT_EQ(second->WaitExit(), ExitStatus{.signal = SIGABRT});
    EXPECT_TRUE(
            second->log().WaitForLine("Check failed: status == EX_NONE (status=-3, EX_NONE=0) "));
    Helper after("ClientProcess", {}, {.echo_log = false});
    EXPECT_EQ(after.Command("subscribe"), "done");
    Touch(*touchsim, TapLine(1));
    EXPECT_EQ(before.gestures().WaitFor(1).back(), TapHeard(1));
    EXPECT_EQ(after.Command("gestures 1"), TapHeard(1));
}

TEST(Daemon, EndsWithItsPoolAndLeavesNothing) {
    const Everything all;
    all.daemon->EndPool();
    EXPECT_EQ(all.daemon->WaitExit(), ExitStatus{.code = 1});
    ASSERT_TRUE(all.daemon->log().WaitForEnd());
    EXPECT_EQ(all.daemon->log().Count("Sanitizer"), 0);
}

}  // namespace
}  // namespace velmora_test
