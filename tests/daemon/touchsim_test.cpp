// Labels: memory
// The touch service's own rules: its command line and its scripts.

#include "daemon_processes.h"

namespace velmora_test {
namespace {

TEST(Touchsim, RefusesACommandLineThatItDoesNotUnderstand) {
    const std::vector<std::string> lines[] = {
            {"--fast"},
            {"one", "two"},
            {"--loop"},
            {"--panels", "0,x"},
            {"--speed", "-1"},
            {"--fail-register", "9000:1"},
            {"--die-after", "0"},
            {"--panels", "0:1:2"},
            {"--speed", "nan"},
            {"--fail-register", "0:5000000000"},
            {"--speed", "1e-300"},
    };
    for (const auto& arguments : lines) {
        SCOPED_TRACE(arguments.front());
        const auto touchsim = StartTouchsim(arguments);
        EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.code = 2});
        EXPECT_TRUE(touchsim->log().WaitForEnd());
        EXPECT_FALSE(touchsim->log().lines().empty());
    }
}

TEST(Touchsim, SaysWhereAScriptIsWrongAndEnds) {
    struct Row {
        const char* line;
        const char* error;
    };
    const Row rows[] = {
            {R"({"gesture": "tap")", "not a JSON object"},
            {R"({"panel": 0})", "gesture: a text is wanted"},
            {R"({"gesture": "swipe"})",
             R"(gesture: "swipe" is none of touch_down, tap, scroll, zoom)"},
            {R"({"gesture": "tap", "type": "triple"})",
             R"(type: "triple" is none of single, double, long)"},
            {R"({"gesture": "tap", "direction": "up"})", R"("direction" does not belong here)"},
            {R"({"gesture": "tap", "position": [1]})",
             "position: a pair of numbers is wanted, [0.25, 0.5] for instance"},
            {R"({"gesture": "zoom", "points": [[1,1],[1,1],[1,1],[1,1],[1,1]]})",
             "points: up to four pairs"},
            {R"({"gesture": "tap", "panel": 128})", "panel: a number from -128 to 127 is wanted"},
            {R"({"gesture": "tap", "delay": -1})", "delay: a number from 0 to 86400000 is wanted"},
            {R"({"raw": "0a0"})", "raw: pairs of hexadecimal digits are wanted"},
    };
    ScopedHost host({.manifests = {HUB_MANIFESTS}, .echo_log = false});
    const auto daemon = StartDaemon();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const auto touchsim = StartTouchsim();
        // A service that ends while the daemon still registers makes it pause.
        EXPECT_TRUE(WaitForListeners(*touchsim));
        ASSERT_TRUE(WaitForRest({daemon->pid()}));
        Touch(*touchsim, "# This line and the next two are right.\n\n" + TapLine(1));
        Touch(*touchsim, row.line);
        EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.code = 1});
        EXPECT_TRUE(touchsim->log().WaitForLine(std::string("touchsim: -:4: ") + row.error));
    }
}

}  // namespace
}  // namespace velmora_test
