#include "process_state.h"

#include <gtest/gtest.h>

namespace host {
namespace {

TEST(ProcessState, ReadsDeathFromTheStatusText) {
    const struct {
        const char* status;
        bool dead;
    } cases[] = {
            {"Name:\tx\nState:\tS (sleeping)\nSigPnd:\t0\nShdPnd:\t0000000000000000\n", false},
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

}  // namespace
}  // namespace host
