// Serial: what it counts, switches of threads and pages of memory, is the machine's business too.
// Native Daemon.LosesTheEventsThatItsWorkerDoesNotKeepUpWithAndNothingElse: no ptrace.
// The daemon at rest, and through an hour of gestures.

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <sstream>

#include "daemon_processes.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using host::testing::ProcessCounts;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(Daemon, DoesNotWakeUpWhileNobodyTouchesAnything) {
    const Everything all;
    ASSERT_TRUE(WaitForRest({all.daemon->pid(), all.touchsim->pid()}));
    const int64_t before = ContextSwitches(all.daemon->pid());
    EXPECT_FALSE(Eventually([&] { return ContextSwitches(all.daemon->pid()) != before; },
                            std::chrono::seconds(10)));
}

// 1200 times as fast as people are: 2760 gestures a second on average, each answered before the
// next. What was kept of every event, be it 80 bytes, would show.
TEST(Daemon, PassesOnAnHourOfGesturesAndGrowsByNothing) {
    constexpr size_t kWarmUp = 1380;
    constexpr size_t kHour = 60 * 138;
    const auto daemon = StartDaemon("velmora_producer_host:I *:W");
    Client client;
    client.Subscribe();
    const auto touchsim = StartTouchsim({TOUCHSIM_SAMPLES "/minute.jsonl", "--loop", "--speed",
                                         "1200", "--die-after", std::to_string(kHour)});
    EXPECT_GE(client.gestures().WaitFor(kWarmUp).size(), kWarmUp);
    const ProcessCounts counts = ProcessCounts::Of(daemon->pid());
    const int64_t resident = ResidentKib(daemon->pid());
    // Long before the touch service dies: the daemon then has a connection more for a while.
    EXPECT_GE(client.gestures().WaitFor(kHour - kWarmUp).size(), kHour - kWarmUp);
    const ProcessCounts after = ProcessCounts::Of(daemon->pid());
    EXPECT_LE(after.descriptors, counts.descriptors);
    EXPECT_LE(after.threads, counts.threads);
    EXPECT_LE(ResidentKib(daemon->pid()), resident + 512);
    EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.signal = SIGKILL});
    EXPECT_TRUE(client.Fence());
    EXPECT_EQ(client.gestures().lines().size(), kHour);
}

// The thread that wrote the first line with the text: the fourth word of the line.
pid_t WriterOf(const ChildLog& log, const std::string& text) {
    for (const std::string& line : log.lines()) {
        if (line.find(text) == std::string::npos) continue;
        std::istringstream words(line);
        std::string word;
        for (int i = 0; i < 4; ++i)
            words >> word;
        return std::stoi(word);
    }
    return 0;
}

// True when a thread of a child of this process stands still: until PTRACE_DETACH.
bool Hold(pid_t thread) {
    return ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) == 0 &&
           ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) == 0 &&
           waitpid(thread, nullptr, __WALL) == thread;
}

// The hub's worker stands still, so that any rate is above its own.
TEST(Daemon, LosesTheEventsThatItsWorkerDoesNotKeepUpWithAndNothingElse) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    ASSERT_TRUE(daemon->log().WaitForLine("SkeldaProducer clients updated: 1"));
    const pid_t worker = WriterOf(daemon->log(), "SkeldaProducer clients updated: 1");
    for (size_t round = 1; round <= 3; ++round) {
        // At rest the worker holds no lock that others want.
        ASSERT_TRUE(WaitForRest({daemon->pid()}));
        ASSERT_TRUE(Hold(worker));
        const auto touchsim = StartTouchsim({TOUCHSIM_SAMPLES "/minute.jsonl", "--speed", "0"});
        EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.code = 0});
        EXPECT_TRUE(touchsim->log().WaitForLine("138 gestures sent, 0 of them heard by no"));
        ptrace(PTRACE_DETACH, worker, nullptr, nullptr);
        EXPECT_EQ(client.gestures().WaitFor(100 * round).size(), 100 * round);
        EXPECT_TRUE(client.Fence());
        EXPECT_EQ(client.gestures().lines().size(), 100 * round);
    }
}

}  // namespace
}  // namespace velmora_test
