// Serial: what it counts, switches of threads and pages of memory, is the machine's business too.
// The daemon at rest, and through an hour of gestures.

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <sstream>

#include "daemon_processes.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using host::testing::ContextSwitches;
using host::testing::Eventually;
using host::testing::ExitStatus;
using host::testing::Helper;
using host::testing::ProcessCounts;
using host::testing::ResidentKib;

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new HubHost);

TEST(Daemon, DoesNotWakeUpWhileNobodyTouchesAnything) {
    const auto daemon = StartDaemon();
    const auto touchsim = StartTouchsim();
    Client here;
    here.Subscribe();
    Helper there("ClientProcess", {}, {.echo_log = false});
    EXPECT_EQ(there.Command("subscribe"), "done");
    EXPECT_TRUE(WaitForListeners(*touchsim));
    Touch(*touchsim, TapLine(1));
    EXPECT_EQ(there.Command("gestures 1"), TapHeard(1));
    ASSERT_TRUE(host::testing::WaitForRest({daemon->pid(), touchsim->pid()}));
    const int64_t before = ContextSwitches(daemon->pid());
    EXPECT_FALSE(Eventually([&] { return ContextSwitches(daemon->pid()) != before; },
                            std::chrono::seconds(10)));
}

// 240 times as fast as people are: 552 gestures a second on average, each answered before the next.
TEST(Daemon, PassesOnAnHourOfGesturesAndGrowsByNothing) {
    constexpr size_t kWarmUp = 1380;
    constexpr size_t kHour = 60 * 138;
    const auto daemon = StartDaemon("velmora_producer_host:I *:W");
    Client client;
    client.Subscribe();
    const auto touchsim = StartTouchsim({TOUCHSIM_SAMPLES "/minute.jsonl", "--loop", "--speed",
                                         "240", "--die-after", std::to_string(kHour)});
    EXPECT_GE(client.gestures().WaitFor(kWarmUp).size(), kWarmUp);
    const ProcessCounts counts = ProcessCounts::Of(daemon->pid());
    const int64_t resident = ResidentKib(daemon->pid());
    EXPECT_GE(client.gestures().WaitFor(kHour - 10).size(), kHour - 10);
    EXPECT_FALSE(ProcessCounts::Of(daemon->pid()).IsMoreThan(counts));
    EXPECT_LE(ResidentKib(daemon->pid()), resident + 512);
    EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.signal = SIGKILL});
    EXPECT_TRUE(client.Fence());
    EXPECT_EQ(client.gestures().lines().size(), kHour);
    printf("grown %d KiB\n", static_cast<int>(ResidentKib(daemon->pid()) - resident));
}

// One thread of another process, which stands still while the object lives.
class HeldThread {
  public:
    explicit HeldThread(pid_t thread) : thread_(thread) {
        is_held_ = ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) == 0 &&
                   ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) == 0 &&
                   waitpid(thread_, nullptr, __WALL) == thread_;
    }
    ~HeldThread() { ptrace(PTRACE_DETACH, thread_, nullptr, nullptr); }
    HeldThread(const HeldThread&) = delete;
    HeldThread& operator=(const HeldThread&) = delete;

    bool is_held() const { return is_held_; }

  private:
    const pid_t thread_;
    bool is_held_;
};

// The thread that wrote the line: the second number of "DATE TIME PID THREAD ...".
pid_t WriterOf(host::testing::ChildLog& log, const std::string& text) {
    EXPECT_TRUE(log.WaitForLine(text));
    for (const std::string& line : log.lines()) {
        if (line.find(text) == std::string::npos) continue;
        std::istringstream words(line);
        std::string skipped;
        pid_t thread = 0;
        words >> skipped >> skipped >> skipped >> thread;
        return thread;
    }
    return 0;
}

// The hub's worker stands still, so that any rate is above its own.
TEST(Daemon, LosesTheEventsThatItsWorkerDoesNotKeepUpWithAndNothingElse) {
    const auto daemon = StartDaemon();
    Client client;
    client.Subscribe();
    const pid_t worker = WriterOf(daemon->log(), "SkeldaProducer clients updated: 1");
    for (size_t round = 1; round <= 3; ++round) {
        // At rest the worker holds no lock that others want.
        ASSERT_TRUE(host::testing::WaitForRest({daemon->pid()}));
        {
            const HeldThread held(worker);
            ASSERT_TRUE(held.is_held());
            const auto touchsim = StartTouchsim({TOUCHSIM_SAMPLES "/minute.jsonl", "--speed", "0"});
            EXPECT_EQ(touchsim->WaitExit(), ExitStatus{.code = 0});
            EXPECT_TRUE(touchsim->log().WaitForLine(
                    "138 gestures sent, 0 of them heard by no listener"));
        }
        EXPECT_EQ(client.gestures().WaitFor(100 * round).size(), 100 * round);
        EXPECT_TRUE(client.Fence());
        EXPECT_EQ(client.gestures().lines().size(), 100 * round);
    }
}

}  // namespace
}  // namespace velmora_test
