// Labels: memory threads processes
// Timeout: 300
// Native Threads.AreStartedOnDemandAndServeInParallelUpToTheBound: emulators add one.
#include <stdlib.h>

#include <atomic>
#include <functional>
#include <thread>

#include "binder.h"
#include "host.h"
#include "raw_peer.h"
#include "test_object.h"

namespace host::testing {
namespace {

constexpr int kPoolThreads = 15;
constexpr int kMaxDepth = 64;

enum Code {
    kEcho = FIRST_CALL_TRANSACTION,
    kMeet,      // returns when as many calls as its value are in it at once
    kCallBack,  // calls the binder
    kDescend,   // calls the binder with itself and one less, down to zero
    kChain,     // has the one that was kept call the binder
    kKeep,
    kOutlast,  // returns when the process has begun to leave
};

// Runs calls that call on; serves in this process and in helpers alike.
class Caller {
  public:
    ndk::SpAIBinder NewObject() { return MakeObject(std::bind_front(&Caller::Behave, this)); }
    void set_self(ndk::SpAIBinder self) { self_ = std::move(self); }

    binder_status_t Behave(int code, const Letter& in, Letter* out) {
        out->value = in.value;
        if (code == kMeet) return Meet(in.value);
        if (code == kCallBack) return Call(in.binder, kEcho, {in.value, {}, {}}, out);
        if (code == kDescend) return Descend(in, out);
        if (code == kKeep) kept_ = in.binder;
        if (code == kChain) return Call(kept_, kCallBack, {in.value, in.binder, {}}, out);
        return STATUS_OK;
    }

  private:
    binder_status_t Meet(int number) {
        met_.Add();
        return met_.WaitFor(number) ? STATUS_OK : STATUS_TIMED_OUT;
    }
    binder_status_t Descend(const Letter& in, Letter* out) {
        if (in.value == 0) return STATUS_OK;
        const pid_t caller = AIBinder_getCallingPid();
        const auto status = Call(in.binder, kDescend, {in.value - 1, self_, {}}, out);
        // The nested calls that this thread served meanwhile came from another.
        return AIBinder_getCallingPid() == caller ? status : STATUS_PERMISSION_DENIED;
    }

    Counter met_;
    ndk::SpAIBinder self_, kept_;
};

HOST_HELPER(Caller) {
    Caller caller;
    caller.set_self(caller.NewObject());
    return Serve(channel, std::bind_front(&Caller::Behave, &caller));
}

TEST(Threads, AreStartedOnDemandAndServeInParallelUpToTheBound) {
    RemoteObject server("Caller");
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(Call(server.object(), kEcho), STATUS_OK);
    const int few = Threads(server.pid());
    InParallel(kPoolThreads, [&] {
        EXPECT_EQ(Call(server.object(), kMeet, {kPoolThreads, {}, {}}), STATUS_OK);
    });
    const int all = Threads(server.pid());
    EXPECT_LT(few, all) << "calls one after another need no crowd";
    EXPECT_LE(all, Rounds(3, 4) + kPoolThreads)
            << "with its main thread, two of the layer and a sanitizer's";
    InParallel(3 * kPoolThreads, [&] {
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(Call(server.object(), kEcho), STATUS_OK);
    });
    EXPECT_EQ(Threads(server.pid()), all) << "the bound stays";
}

TEST(Threads, ThatWaitRunTheirCallbacksThemselvesHoweverMany) {
    RemoteObject server("Caller");
    Counter wrong;
    std::atomic<int> answered{0};
    InParallel(3 * kPoolThreads, [&] {
        const auto self = std::this_thread::get_id();
        ndk::SpAIBinder back = MakeObject([&, self](int, const Letter& in, Letter* out) {
            if (std::this_thread::get_id() != self) wrong.Add();
            out->value = in.value + 1;
            return STATUS_OK;
        });
        for (int i = 0; i < 50; ++i) {
            if (Ask(server.object(), kCallBack, {i, back, {}}).value == i + 1) ++answered;
        }
    });
    EXPECT_EQ(answered.load(), 3 * kPoolThreads * 50);
    EXPECT_EQ(wrong.value(), 0) << "a callback ran on another thread";
}

TEST(Threads, NestCallsBetweenTwoProcessesUpToTheBound) {
    RemoteObject server("Caller");
    Caller local;
    local.set_self(local.NewObject());
    ndk::SpAIBinder self = local.NewObject();
    // The first call is at depth 1, so that a descent of n takes n + 1.
    LogCapture log;
    EXPECT_EQ(Call(server.object(), kDescend, {kMaxDepth - 1, self, {}}), STATUS_OK);
    EXPECT_EQ(log.Texts("nested").size(), 0U);
    EXPECT_EQ(Call(server.object(), kDescend, {kMaxDepth, self, {}}), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(log.Texts("nested deeper than 64").size(), 1U);
    EXPECT_EQ(Call(server.object(), kEcho), STATUS_OK) << "the connection is as it was";
}

TEST(Threads, NestCallsAroundThreeProcesses) {
    RemoteObject second("Caller"), third("Caller");
    Caller local;
    ndk::SpAIBinder self = local.NewObject();
    ASSERT_EQ(Call(second.object(), kKeep, {0, third.object(), {}}), STATUS_OK);
    InParallel(4, [&] {
        for (int32_t i = 0; i < 100; ++i)
            EXPECT_EQ(Ask(second.object(), kChain, {i, self, {}}).value, i);
    });
}

// What a process that leaves was given, and what it begins to run after it has begun to leave.
struct Leaving {
    explicit Leaving(HelperChannel& driver) : channel(driver) {}

    binder_status_t Behave(int code, const Letter& in) {
        if (exiting) channel.Write("a call began");
        if (code == kMeet) return began.WaitFor(1) ? STATUS_OK : STATUS_TIMED_OUT;
        if (code == kOutlast) {
            began.Add();
            return left.WaitFor(1) ? STATUS_OK : STATUS_TIMED_OUT;
        }
        std::lock_guard lock(mutex);
        if (code == kKeep) kept.push_back(in.binder);
        return STATUS_OK;
    }
    static void OnDied(void* leaving) {
        auto* self = static_cast<Leaving*>(leaving);
        if (self->exiting) self->channel.Write("a death callback began");
    }

    HelperChannel channel;
    std::atomic<bool> exiting{false};
    Counter began, left;
    std::mutex mutex;
    std::vector<ndk::SpAIBinder> kept;
    AIBinder_DeathRecipient* recipient = AIBinder_DeathRecipient_new(&OnDied);
};

// Destroyed while the process exits: calls, releases and deletes then, and waits for the driver.
struct Leftovers {
    Leaving* leaving = nullptr;
    ndk::ScopedAIBinder_DeathRecipient deleted;
    ndk::SpAIBinder own;

    ~Leftovers() {
        leaving->exiting = true;
        leaving->left.Add();
        ndk::SpAIBinder& driver = leaving->kept[0];
        const bool called = Call(driver, kEcho) == STATUS_OK && Post(driver, kEcho) == STATUS_OK;
        deleted.set(nullptr);
        driver.set(nullptr);
        own.set(nullptr);
        leaving->channel.Write(called ? "called" : "failed");
        leaving->channel.Read();
        leaving->channel.Write("end");
    }
};

HOST_HELPER(Leaver) {
    static auto* const leaving = new Leaving(channel);
    return Serve(
            channel, [](int code, const Letter& in, Letter*) { return leaving->Behave(code, in); },
            [](const std::string&) -> std::string {
                static Leftovers leftovers;
                std::lock_guard lock(leaving->mutex);
                leftovers.leaving = leaving;
                leftovers.own = MakeObject([](int, const Letter&, Letter*) { return STATUS_OK; });
                leftovers.deleted.set(AIBinder_DeathRecipient_new(&Leaving::OnDied));
                AIBinder* victim = leaving->kept[1].get();
                AIBinder_linkToDeath(victim, leaving->recipient, leaving);
                AIBinder_linkToDeath(victim, leftovers.deleted.get(), leaving);
                exit(6);
            });
}

// Sends several calls at once, which no caller of the layer does. Arguments: the victim, the
// object's name.
HOST_HELPER(Pipeliner) {
    std::string folder, error;
    if (RuntimeFolder(&folder, &error) != STATUS_OK) return 1;
    RawPeer peer(folder, std::stoi(channel.arguments()[0]));
    if (!peer.Begin()) return 1;
    RawConnection connection = peer.Open(ConnectionKind::kCall);
    const RefId target = NameFrom(channel.arguments()[1]);
    channel.Serve([&](const std::string&) -> std::string {
        const std::string calls =
                RawCall{target, kOutlast}.Frame() + RawCall{target, kEcho}.Frame();
        return connection.Send(calls) ? "sent" : "cut";
    });
    return 0;
}

TEST(Threads, StartNothingNewOnceTheProcessHasBegunToExitWhileItsOwnCallsStillWork) {
    RemoteObject leaver("Leaver"), victim("Caller");
    Own own;
    ASSERT_EQ(Call(leaver.object(), kKeep, {0, own.object, {}}), STATUS_OK);
    ASSERT_EQ(Call(leaver.object(), kKeep, {0, victim.object(), {}}), STATUS_OK);
    own.object.set(nullptr);
    Helper pipeliner("Pipeliner",
                     {std::to_string(leaver.pid()), WordsOf(AsProxy(leaver.object().get())->id)});
    ASSERT_EQ(pipeliner.Command("send"), "sent");
    ASSERT_EQ(Call(leaver.object(), kMeet), STATUS_OK) << "the first of them runs";
    leaver.helper().Send("leave");
    ASSERT_EQ(leaver.helper().WaitForAnswer(), "called");
    EXPECT_TRUE(own.called.WaitFor(2)) << "a two-way and a oneway call";
    EXPECT_TRUE(own.destroyed.WaitFor(1)) << "released by a destructor";
    std::thread pending([&] { EXPECT_EQ(Call(leaver.object(), kEcho), STATUS_DEAD_OBJECT); });
    EXPECT_EQ(Post(leaver.object(), kEcho), STATUS_OK);
    victim.process().Kill();
    EXPECT_EQ(leaver.helper().WaitForAnswer(std::chrono::milliseconds(150)), std::nullopt);
    leaver.helper().Send("go on");
    EXPECT_EQ(leaver.helper().WaitForAnswer(), "end");
    EXPECT_EQ(leaver.process().WaitExit(), (ExitStatus{6, 0}));
    pending.join();
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
