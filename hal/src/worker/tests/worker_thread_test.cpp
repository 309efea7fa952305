// Labels: memory threads
#include "worker/worker_thread.h"

#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <thread>

#include "hub_parts.h"
#include "test_object.h"

namespace velmora_test {
namespace {

using aidl::android::hardware::biometrics::Callable;
using host::testing::Counter;
using ::testing::ElementsAre;
using Work = std::function<void()>;

const std::thread::id kTestThread = std::this_thread::get_id();

// Writes "+NAME" when it runs, "-NAME" when what it holds is released; on the test's own thread
// with a star.
std::unique_ptr<Callable> Task(Record& record, const std::string& name, const Work& work = {},
                               const Work& last_wish = {}) {
    const auto add = [&record, name](const char* sign) {
        record.Add(sign + name + (std::this_thread::get_id() == kTestThread ? "*" : ""));
    };
    const std::shared_ptr<void> cargo(nullptr, [=](void*) {
        add("-");
        if (last_wish) last_wish();
    });
    return Callable::wrap([=, held = cargo] {
        add("+");
        if (work) work();
    });
}

TEST(WorkerThread, RunsTasksInOrderAndLetsThemScheduleMore) {
    Record record;
    WorkerThread worker(100);
    const auto add = [&](const char* name, const Work& work = {}, const Work& last_wish = {}) {
        return [=, &record, &worker] {
            EXPECT_TRUE(worker.schedule(Task(record, name, work, last_wish)));
        };
    };
    const Work add_a = add("a", add("c"), add("d")), add_b = add("b");
    add("first", [=] { add_a(), add_b(); })();
    EXPECT_THAT(record.WaitFor(10),
                ElementsAre("+first", "-first", "+a", "-a", "+b", "-b", "+c", "-c", "+d", "-d"));
}

TEST(WorkerThread, RefusesATaskWhenAsManyAsItsBoundAreWaiting) {
    for (const size_t bound : {size_t{1}, size_t{100}}) {
        Record record;
        Counter begun, let_go;
        WorkerThread worker(bound);
        const Work stay = [&] {
            begun.Add();
            EXPECT_TRUE(let_go.WaitFor(begun.value()));
        };
        EXPECT_TRUE(worker.schedule(Callable::wrap(stay)));
        ASSERT_TRUE(begun.WaitFor(1));
        for (size_t waiting = 0; waiting < bound; ++waiting)
            EXPECT_TRUE(worker.schedule(Callable::wrap(waiting == 0 ? stay : [] {}))) << waiting;
        EXPECT_FALSE(worker.schedule(Task(record, "refused")));
        let_go.Add();
        ASSERT_TRUE(begun.WaitFor(2));
        EXPECT_TRUE(worker.schedule(Task(record, "accepted")));
        EXPECT_FALSE(worker.schedule(Task(record, "refused again")));
        let_go.Add();
        EXPECT_THAT(record.WaitFor(4),
                    ElementsAre("-refused*", "-refused again*", "+accepted", "-accepted"));
    }
}

TEST(WorkerThread, FinishesTheRunningTaskAndDropsTheOthersWhenItIsDestroyed) {
    Record record;
    Counter begun;
    {
        // So large a bound that nothing but the worker's end makes it refuse.
        WorkerThread worker(1'000'000);
        const auto stay = [&] {
            begun.Add();
            const auto ending = [&] { return !worker.schedule(Callable::wrap([] {})); };
            EXPECT_TRUE(host::testing::Eventually(ending));
        };
        worker.schedule(Task(record, "running", stay));
        worker.schedule(Task(record, "a", {},
                             [&] { EXPECT_FALSE(worker.schedule(Task(record, "late"))); }));
        worker.schedule(Task(record, "b"));
        worker.schedule(Task(record, "c"));
        ASSERT_TRUE(begun.WaitFor(1));
    }
    EXPECT_THAT(record.lines(), ElementsAre("+running", "-running", "-a*", "-late*", "-b*", "-c*"));
}

TEST(WorkerThread, RunsAllThatManyThreadsScheduleBelowItsBoundOnOneThread) {
    constexpr int kThreads = 6, kTasks = 500;
    for (const size_t bound : {size_t{8}, size_t{kThreads * kTasks}}) {
        WorkerThread worker(bound);
        std::vector<std::vector<int>> ran(kThreads), accepted(kThreads), refused(kThreads);
        std::set<std::thread::id> runners;
        const auto schedule = [&](size_t thread, int i) {
            return worker.schedule(Callable::wrap([&, thread, i] {
                ran[thread].push_back(i);
                runners.insert(std::this_thread::get_id());
            }));
        };
        std::atomic<size_t> next{0};
        host::testing::InParallel(kThreads, [&] {
            const size_t thread = next++;
            for (int i = 0; i < kTasks; ++i)
                (schedule(thread, i) ? accepted : refused)[thread].push_back(i);
        });
        Fence(worker);
        EXPECT_EQ(ran, accepted);
        EXPECT_TRUE(bound == 8 || refused == std::vector<std::vector<int>>(kThreads));
        EXPECT_TRUE(runners.size() == 1 && runners.count(kTestThread) == 0);
    }
}

}  // namespace
}  // namespace velmora_test
