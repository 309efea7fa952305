// Labels: memory threads processes
// Timeout: 300
// Native References.LeaveNothingBehindAfterAHundredThousandRounds: emulators grow.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "test_object.h"

namespace host::testing {
namespace {

enum Code {
    kLook = FIRST_CALL_TRANSACTION,  // takes a binder and drops it
    kKeep,
    kGiveKept,
    kDropKept,
    kMake,  // a fresh object that answers kNumber with the number given
    kNumber,
    kAlive,       // how many of those there are
    kPassAndDie,  // has the first binder make an object, passes it to the kept one, and is gone
    kHit,         // calls the binder and drops it
    kHitOneway,
    kHammer,  // passes the binder to the kept one and back, many times
};

class Holder {
  public:
    binder_status_t Behave(int code, const Letter& in, Letter* out) {
        switch (code) {
            case kKeep:
                Keep(in.binder);
                return STATUS_OK;
            case kGiveKept:
                out->binder = Kept();
                return STATUS_OK;
            case kDropKept:
                Keep({});
                return STATUS_OK;
            case kMake:
                out->binder = Make(in.value);
                return STATUS_OK;
            case kAlive:
                out->value = alive_;
                return STATUS_OK;
            case kPassAndDie:
                return PassAndDie(in);
            case kHit:
                return Call(in.binder, kNumber);
            case kHitOneway:
                return Post(in.binder, kNumber);
            case kHammer:
                return Hammer(in);
            default:
                return STATUS_OK;
        }
    }

  private:
    void Keep(ndk::SpAIBinder binder) {
        std::lock_guard lock(mutex_);
        std::swap(kept_, binder);
    }
    ndk::SpAIBinder Kept() {
        std::lock_guard lock(mutex_);
        return kept_;
    }
    ndk::SpAIBinder Make(int32_t number) {
        ++alive_;
        return MakeObject(
                [number](int, const Letter&, Letter* out) {
                    out->value = number;
                    return STATUS_OK;
                },
                [this] { --alive_; });
    }
    binder_status_t PassAndDie(const Letter& in) {
        Letter made;
        binder_status_t status = Call(in.binder, kMake, {in.value, {}, {}}, &made);
        if (status != STATUS_OK) return status;
        Post(Kept(), kKeep, {in.value, made.binder, {}});
        return raise(SIGKILL);
    }
    binder_status_t Hammer(const Letter& in) {
        for (int32_t i = 0; i < in.value; ++i) {
            binder_status_t status = Call(Kept(), kHit, {0, in.binder, {}});
            if (status == STATUS_OK) status = Post(Kept(), kLook, {0, in.binder, {}});
            if (status != STATUS_OK && status != STATUS_FAILED_TRANSACTION) return status;
        }
        return STATUS_OK;
    }

    std::atomic<int> alive_{0};
    std::mutex mutex_;
    ndk::SpAIBinder kept_;
};

HOST_HELPER(Holder) {
    Holder holder;
    return Serve(channel, std::bind_front(&Holder::Behave, &holder));
}

int Alive(const ndk::SpAIBinder& holder) {
    return Ask(holder, kAlive).value;
}

// One fresh object there, by a two-way and by a oneway call, and one fresh object back.
void PassAndDrop(const ndk::SpAIBinder& holder, Own* own) {
    ASSERT_EQ(Call(holder, kLook, {0, own->New(), {}}), STATUS_OK);
    ASSERT_EQ(Post(holder, kLook, {0, own->New(), {}}), STATUS_OK);
    ASSERT_TRUE(Ask(holder, kMake).binder);
}

TEST(References, LeaveNothingBehindAfterAHundredThousandRounds) {
    RemoteObject holder("Holder");
    Own own;
    own.object.set(nullptr);
    constexpr int kWarmUp = 3'000, kRounds = Rounds(100'000, 4'000);
    int64_t before[2] = {0, 0};
    ProcessCounts counts[2];
    const pid_t pids[2] = {getpid(), holder.pid()};
    for (int i = 0; i < kWarmUp + kRounds; ++i) {
        if (i == kWarmUp) {
            for (int p : {0, 1})
                before[p] = ResidentKib(pids[p]);
            for (int p : {0, 1})
                counts[p] = ProcessCounts::Of(pids[p]);
        }
        ASSERT_NO_FATAL_FAILURE(PassAndDrop(holder.object(), &own)) << i;
        // Gives the releases time to come: what is under way is bounded, as memory is to be.
        ASSERT_TRUE(i % 500 != 0 || own.destroyed.WaitFor(2 * i));
    }
    EXPECT_TRUE(own.destroyed.WaitFor(2 * (kWarmUp + kRounds) + 1));
    EXPECT_TRUE(Eventually([&] { return Alive(holder.object()) == 0; }));
    for (int p : {0, 1}) {
        EXPECT_EQ(OpenDescriptors(pids[p]), counts[p].descriptors) << p;
#if !defined(HOST_TEST_SANITIZED)
        EXPECT_LT(ResidentKib(pids[p]), before[p] + 1'024) << p;
#endif
    }
}

TEST(References, KeepAnObjectUntilItsLastHolderLetsGoOrDies) {
    RemoteObject drops("Holder"), dies("Holder");
    Own dropped, orphaned;
    ASSERT_EQ(Call(drops.object(), kKeep, {0, dropped.object, {}}), STATUS_OK);
    ASSERT_EQ(Call(dies.object(), kKeep, {0, orphaned.object, {}}), STATUS_OK);
    for (Own* one : {&dropped, &orphaned})
        one->object.set(nullptr);
    EXPECT_NE(Ask(drops.object(), kGiveKept).binder, nullptr);
    EXPECT_EQ(dropped.destroyed.value() + orphaned.destroyed.value(), 0);
    ASSERT_EQ(Call(drops.object(), kDropKept), STATUS_OK);
    EXPECT_TRUE(dropped.destroyed.WaitFor(1));
    dies.process().Kill();
    EXPECT_TRUE(orphaned.destroyed.WaitFor(1));
    EXPECT_EQ(dropped.destroyed.value(), 1);
}

TEST(References, AreHeldByOnewayCallsUntilTheyHaveRun) {
    RemoteObject holder("Holder");
    Own own;
    own.object.set(nullptr);
    constexpr int kCalls = 2'000;
    // The helper's reference is the only one when it calls, and goes right behind the call.
    for (int i = 0; i < kCalls; ++i) {
        ASSERT_EQ(Call(holder.object(), kHitOneway, {0, own.New(), {}}), STATUS_OK);
    }
    EXPECT_TRUE(own.destroyed.WaitFor(kCalls + 1));
    EXPECT_EQ(own.called.value(), kCalls);
}

TEST(References, PassedOnByAProcessThatDiesAtOnceLeadToThatObjectOrToNone) {
    RemoteObject owner("Holder");
    int working = 0;
    constexpr int kRounds = 300;
    for (int32_t i = 1; i <= kRounds; ++i) {
        RemoteObject middle("Holder");
        Counter arrived;
        ndk::SpAIBinder passed;
        ndk::SpAIBinder receiver = MakeObject([&](int, const Letter& in, Letter*) {
            passed = in.binder;
            arrived.Add();
            return STATUS_OK;
        });
        ASSERT_EQ(Call(middle.object(), kKeep, {0, receiver, {}}), STATUS_OK);
        EXPECT_EQ(Call(middle.object(), kPassAndDie, {i, owner.object(), {}}), STATUS_DEAD_OBJECT);
        ASSERT_TRUE(arrived.WaitFor(1)) << i;
        Letter answer;
        const binder_status_t status = Call(passed, kNumber, {}, &answer);
        if (status == STATUS_OK) {
            ASSERT_EQ(answer.value, i) << "another object";
            ++working;
        } else {
            ASSERT_EQ(status, STATUS_DEAD_OBJECT) << i;
            EXPECT_TRUE(Eventually([&] { return !AIBinder_isAlive(passed.get()); })) << i;
        }
    }
    EXPECT_TRUE(Eventually([&] { return Alive(owner.object()) == 0; })) << Alive(owner.object());
    RecordProperty("working", working);
}

TEST(References, SurviveReleasesThatCrossHandOvers) {
    RemoteObject holder("Holder");
    Own own;
    auto local = std::make_shared<Holder>();
    ndk::SpAIBinder here = MakeObject(std::bind_front(&Holder::Behave, local.get()));
    ASSERT_EQ(Call(holder.object(), kKeep, {0, here, {}}), STATUS_OK);
    ASSERT_EQ(local->Behave(kKeep, {0, holder.object(), {}}, nullptr), STATUS_OK);
    constexpr int kThreads = 3, kTimes = Rounds(2'000, 400);
    InParallel(kThreads, [&] {
        std::thread other([&] {
            EXPECT_EQ(Call(holder.object(), kHammer, {kTimes, own.object, {}}), STATUS_OK);
        });
        EXPECT_EQ(local->Behave(kHammer, {kTimes, own.object, {}}, nullptr), STATUS_OK);
        other.join();
    });
    EXPECT_EQ(own.called.value(), 2 * kThreads * kTimes);
    EXPECT_EQ(own.destroyed.value(), 0);
    own.object.set(nullptr);
    EXPECT_TRUE(own.destroyed.WaitFor(1));
    ASSERT_EQ(Call(holder.object(), kDropKept), STATUS_OK);
    local->Behave(kDropKept, {}, nullptr);
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
