// Labels: memory processes
// The road of a gesture, from the touch service to consumers, all in processes of their own.

#include <gmock/gmock.h>

#include "daemon_processes.h"

namespace velmora_test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(Road, BringsEveryKindOfGestureToEveryConsumerInOrder) {
    const std::vector<std::string> every_kind = {
            "display 1 TOUCH_DOWN (0.25 0.5 0.35 0.7)",
            "display 1 SINGLE_TAP (0.4 0.7 0.45 0.74)",
            "display 1 DOUBLE_TAP (0.4 0.7 0.45 0.74)",
            "display 1 LONG_PRESS (0.4 0.7 0.45 0.74)",
            "display 1 SCROLL_UP (0.5 0.8 0.6 0.9)",
            "display 1 SCROLL_DOWN (0.5 0.2 0.6 0.3)",
            "display 1 SCROLL_LEFT (0.8 0.5 0.9 0.6)",
            "display 1 SCROLL_RIGHT (0.2 0.5 0.3 0.6)",
            "display 1 ZOOM_IN (0.45 0.5 0.45 0.5) (0.55 0.5 0.55 0.5)"
            " (0.2 0.5 0.2 0.5) (0.8 0.5 0.8 0.5)",
            "display 1 ZOOM_OUT (0.2 0.5 0.2 0.5) (0.8 0.5 0.8 0.5)"
            " (0.45 0.5 0.45 0.5) (0.55 0.5 0.55 0.5)",
            "display 2 UNKNOWN (0.5 0.5 0.5 0.5)",
            "display 0",
    };
    const auto daemon = StartDaemon();
    Client here;
    here.Subscribe();
    Helper there("ClientProcess", {}, {.echo_log = false});
    EXPECT_EQ(there.Command("subscribe"), "done");

    const auto touchsim = StartTouchsim({TOUCHSIM_SAMPLES "/every_kind.jsonl", "--speed", "0"});
    EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.code = 0});
    EXPECT_THAT(here.gestures().WaitFor(every_kind.size()), ElementsAreArray(every_kind));
    std::string joined;
    for (const std::string& gesture : every_kind)
        joined += (joined.empty() ? "" : " | ") + gesture;
    EXPECT_EQ(there.Command("gestures 12"), joined);
    EXPECT_TRUE(touchsim->log().WaitForLine("12 gestures sent, 0 of them heard by no listener"));
}

TEST(Road, IsOpenWhileThereAreConsumers) {
    const auto daemon = StartDaemon();
    const auto touchsim = StartTouchsim();
    int taps = 0;
    // Returns when the daemon knows what to do with it.
    const auto tap = [&] {
        Touch(*touchsim, TapLine(++taps));
        EXPECT_TRUE(Eventually(
                [&] { return daemon->log().Count("=============================") == taps; }));
    };
    Client here;
    Helper there("ClientProcess", {}, {.echo_log = false});
    tap();
    here.Subscribe();
    tap();
    here.gestures().WaitFor(1);
    EXPECT_EQ(there.Command("subscribe"), "done");
    tap();
    here.gestures().WaitFor(2);
    here.Unsubscribe();
    tap();
    EXPECT_EQ(there.Command("gestures 2"), TapHeard(3) + " | " + TapHeard(4));
    there.process().Kill();
    EXPECT_TRUE(daemon->log().WaitForLine("SkeldaProducer clients updated: 0"));
    tap();
    here.Subscribe();
    tap();
    EXPECT_THAT(here.gestures().WaitFor(3), ElementsAre(TapHeard(2), TapHeard(3), TapHeard(6)));
    EXPECT_EQ(daemon->log().Count("sending event to manager: 2"), 4);
}

}  // namespace
}  // namespace velmora_test
