// Labels: processes
#include "process_state.h"

#include <gtest/gtest.h>
#include <host_testing.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

HOST_HELPER(Idle) {
    channel.Serve([](const std::string& command) { return command; });
    return 0;
}

namespace host {
namespace {

TEST(ProcessState, ReadsDeathFromTheStatusText) {
    const struct {
        const char* status;
        bool dead;
    } cases[] = {
            {"Name:\tx\nState:\tS "
             "(sleeping)\nSigPnd:\t0000000000000000\nShdPnd:\t0000000000000000\n",
             false},
            {"Name:\tx\nState:\tT (stopped)\nSigPnd:\t0\nShdPnd:\tfffffffffffffeff\n", false},
            {"Name:\tx\nState:\tS (sleeping)\nSigPnd:\t0\nShdPnd:\t0000000000000100\n", true},
            {"Name:\tx\nState:\tS (sleeping)\nSigPnd:\t0000000000000100\nShdPnd:\t0\n", true},
            {"Name:\tx\nState:\tZ (zombie)\n", true},
            {"Name:\tx\nState:\tX (dead)\n", true},
            {"", true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(IsDeadStatus(c.status), c.dead) << c.status;
}

TEST(ProcessState, TellsTheLivingFromTheDead) {
    EXPECT_FALSE(IsProcessDead(getpid()));
    testing::Helper helper("Idle");
    ASSERT_EQ(helper.Command("x"), "x");
    ASSERT_TRUE(helper.process().Stop());
    EXPECT_FALSE(IsProcessDead(helper.pid()));
    // Not reaped yet: on its way, or a zombie.
    helper.process().Signal(SIGKILL);
    EXPECT_TRUE(IsProcessDead(helper.pid()));
    helper.process().Kill();
    EXPECT_TRUE(IsProcessDead(helper.pid()));
}

}  // namespace
}  // namespace host
