// Labels: soak
// Timeout: 300
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <mutex>
#include <random>
#include <vector>

#include "test_object.h"

namespace host::testing {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kStormTime{60};
constexpr size_t kProcesses = 12;
constexpr size_t kKeptAtMost = 50;

enum Code { kEcho = FIRST_CALL_TRANSACTION, kKeep, kCallBack, kPostBack };

// Keeps what it is handed, gives some of it up, and calls it.
binder_status_t Behave(int code, const Letter& in, Letter* out) {
    static auto* mutex = new std::mutex;
    static auto* kept = new std::vector<ndk::SpAIBinder>;
    out->value = in.value;
    ndk::SpAIBinder dropped;
    std::unique_lock lock(*mutex);
    if (code == kKeep) {
        kept->push_back(in.binder);
        if (kept->size() > kKeptAtMost) {
            const size_t place = static_cast<size_t>(in.value) % kept->size();
            std::swap((*kept)[place], kept->back());
            dropped = kept->back();
            kept->pop_back();
        }
    }
    if (!kept->empty()) out->binder = (*kept)[static_cast<size_t>(in.value) % kept->size()];
    lock.unlock();
    if (code == kCallBack) Call(in.binder, kEcho, {in.value, {}, {}});
    if (code == kPostBack) Post(in.binder, kEcho, {in.value, {}, {}});
    return STATUS_OK;
}

HOST_HELPER(Keeper) {
    return Serve(channel, Behave);
}

class Storm : public ::testing::Test {
  protected:
    Storm() {
        for (size_t i = 0; i < kProcesses; ++i)
            keepers_.push_back(std::make_unique<RemoteObject>("Keeper"));
    }

    int Random(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random_); }
    std::unique_ptr<RemoteObject>& AnyKeeper() {
        return keepers_[static_cast<size_t>(Random(kProcesses))];
    }

    // An object of this process, or one that some process has handed out.
    ndk::SpAIBinder AnyObject() {
        if (Random(2) == 0 && last_seen_.get() != nullptr) return last_seen_;
        ++made_;
        return own_.New();
    }

    void CallSomeone() {
        const int codes[] = {kEcho, kKeep, kKeep, kCallBack, kPostBack};
        const int code = codes[Random(5)];
        const int32_t value = Random(1'000'000);
        Letter answer;
        const binder_status_t status =
                Call(AnyKeeper()->object(), code, {value, AnyObject(), {}}, &answer);
        ASSERT_EQ(status, STATUS_OK) << "code " << code;
        ASSERT_EQ(answer.value, value);
        if (answer.binder.get() != nullptr) last_seen_ = answer.binder;
        ++calls_;
    }

    void PostToSomeone() {
        const binder_status_t status =
                Post(AnyKeeper()->object(), kKeep, {Random(1'000'000), AnyObject(), {}});
        ASSERT_TRUE(status == STATUS_OK || status == STATUS_FAILED_TRANSACTION) << status;
    }

    void ReplaceSomeone() {
        std::unique_ptr<RemoteObject>& keeper = AnyKeeper();
        keeper->process().Signal(SIGKILL);
        keeper = std::make_unique<RemoteObject>("Keeper");
        ASSERT_TRUE(keeper->object());
        ++kills_;
    }

    // Oneway calls to a process that does not run neither wait nor get lost.
    void StopSomeone() {
        std::unique_ptr<RemoteObject>& keeper = AnyKeeper();
        keeper->process().Signal(SIGSTOP);
        for (int i = 0; i < 200; ++i) {
            const binder_status_t status = Post(keeper->object(), kKeep, {i, AnyObject(), {}});
            ASSERT_TRUE(status == STATUS_OK || status == STATUS_FAILED_TRANSACTION) << status;
        }
        keeper->process().Signal(SIGCONT);
        ASSERT_EQ(Call(keeper->object(), kEcho), STATUS_OK);
    }

    void Step() {
        const int dice = Random(1'000);
        if (dice < 5) return ReplaceSomeone();
        if (dice < 10) return StopSomeone();
        if (dice < 300) return PostToSomeone();
        CallSomeone();
    }

    const unsigned seed_ = std::random_device()();
    std::mt19937 random_{seed_};
    std::vector<std::unique_ptr<RemoteObject>> keepers_;
    ndk::SpAIBinder last_seen_;
    Own own_;
    int made_ = 1, calls_ = 0, kills_ = 0;
};

TEST_F(Storm, LeavesNothingOfThoseThatCameAndWent) {
    SCOPED_TRACE("seed " + std::to_string(seed_));
    const ProcessCounts before = ProcessCounts::Of(getpid());
    for (const auto end = steady_clock::now() + kStormTime; steady_clock::now() < end;) {
        Step();
        if (HasFatalFailure()) return;
    }
    last_seen_.set(nullptr);
    own_.object.set(nullptr);
    keepers_.clear();
    EXPECT_TRUE(own_.destroyed.WaitFor(made_))
            << own_.destroyed.value() << " of " << made_ << " objects are gone";
    EXPECT_TRUE(Eventually(
            [&before] { return ProcessCounts::Of(getpid()).descriptors <= before.descriptors; }));
    EXPECT_GT(kills_, 10);
    printf("seed %u: %d calls, %d kills, %d objects\n", seed_, calls_, kills_, made_);
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
