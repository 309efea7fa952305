// Labels: memory threads processes
// Timeout: 300
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>
#include <vector>

#include "test_object.h"

namespace host::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

enum Code { kEcho = FIRST_CALL_TRANSACTION, kBlock, kCallMany, kMeet, kEntered };

// Echoes; blocks for good, having told so; calls another object with many threads at once.
binder_status_t Behave(int code, const Letter& in, Letter* out) {
    if (code == kEcho) out->value = in.value;
    if (code == kBlock) {
        Post(in.binder, kEntered);
        Counter().WaitFor(1, milliseconds(600'000));
    }
    if (code == kCallMany) InParallel(in.value, [&in] { Call(in.binder, kMeet); });
    return STATUS_OK;
}

std::string End(const std::string& how) {
    if (how == "exit") exit(3);
    if (how == "_exit") _exit(4);
    if (how == "abort") abort();
    return "";
}

HOST_HELPER(Object) {
    return Serve(channel, Behave, End);
}

// One link and what became of it.
class Link {
  public:
    explicit Link(std::function<void()> on_died = {}) : on_died_(std::move(on_died)) {}

    static void OnDied(void* link) { static_cast<Link*>(link)->Died(); }
    static void OnUnlinked(void* link) { static_cast<Link*>(link)->Unlinked(); }

    Counter died;
    Counter unlinked;
    std::atomic<bool> out_of_order{false};
    std::atomic<std::thread::id> died_on{};
    std::atomic<std::thread::id> unlinked_on{};

  private:
    void Died() {
        if (unlinked.value() != 0) out_of_order = true;
        died_on = std::this_thread::get_id();
        running_ = true;
        if (on_died_) on_died_();
        running_ = false;
        died.Add();
    }
    void Unlinked() {
        if (running_) out_of_order = true;
        unlinked_on = std::this_thread::get_id();
        unlinked.Add();
    }

    const std::function<void()> on_died_;
    std::atomic<bool> running_{false};
};

ndk::ScopedAIBinder_DeathRecipient NewRecipient() {
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(&Link::OnDied));
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), &Link::OnUnlinked);
    return recipient;
}

binder_status_t LinkTo(const ndk::SpAIBinder& object,
                       const ndk::ScopedAIBinder_DeathRecipient& recipient, Link* link) {
    return AIBinder_linkToDeath(object.get(), recipient.get(), link);
}

bool EndedWith(Link& link, int deaths) {
    return link.unlinked.WaitFor(1) && link.unlinked.value() == 1 && link.died.value() == deaths &&
           !link.out_of_order;
}

// Has every thread that the pool may have: from here on the number of threads stays.
void FillOwnPool(RemoteObject& caller) {
    constexpr int kPoolThreads = 15;
    Counter met;
    ndk::SpAIBinder meeting = MakeObject([&met](int, const Letter&, Letter*) -> binder_status_t {
        met.Add();
        return met.WaitFor(kPoolThreads) ? STATUS_OK : STATUS_TIMED_OUT;
    });
    ASSERT_EQ(Call(caller.object(), kCallMany, {kPoolThreads, meeting, {}}), STATUS_OK);
    ASSERT_EQ(met.value(), kPoolThreads);
}

// A kill while another thread deletes one of two recipients, each with two links.
void KillAgainstDeletion(std::chrono::microseconds delay) {
    RemoteObject victim("Object");
    ASSERT_TRUE(victim.object());
    Link deleted[2], kept[2];
    auto doomed = NewRecipient();
    auto other = NewRecipient();
    for (int i : {0, 1}) {
        ASSERT_EQ(LinkTo(victim.object(), doomed, &deleted[i]), STATUS_OK);
        ASSERT_EQ(LinkTo(victim.object(), other, &kept[i]), STATUS_OK);
    }
    victim.Forget();
    std::atomic<bool> go{false};
    std::thread deleter([&] {
        while (!go) {
        }
        const auto then = steady_clock::now() + delay;
        while (steady_clock::now() < then) {
        }
        doomed.set(nullptr);
    });
    victim.process().Signal(SIGKILL);
    go = true;
    deleter.join();
    for (Link& link : deleted) {
        EXPECT_TRUE(link.unlinked.WaitFor(1));
        EXPECT_EQ(link.unlinked.value(), 1);
        EXPECT_LE(link.died.value(), 1);
        EXPECT_FALSE(link.out_of_order);
    }
    for (Link& link : kept)
        EXPECT_TRUE(EndedWith(link, 1));
    other.set(nullptr);
    for (Link& link : kept)
        EXPECT_EQ(link.unlinked.value(), 1);
}

TEST(Deaths, GiveEachLinkItsCallbacksOnceWhileItsRecipientIsDeleted) {
    RemoteObject witness("Object");
    FillOwnPool(witness);
    for (int i = 0; i < 3; ++i)
        KillAgainstDeletion({});
    const ProcessCounts before = ProcessCounts::Of(getpid());
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    // The death is noticed some hundred microseconds after the signal.
    std::uniform_int_distribution<int> delay(0, 1'500);
    for (int i = 0; i < 300 && !::testing::Test::HasFailure(); ++i)
        KillAgainstDeletion(std::chrono::microseconds(delay(random)));
    EXPECT_TRUE(Eventually([&] { return !ProcessCounts::Of(getpid()).IsMoreThan(before); }))
            << before.descriptors << " descriptors, " << before.threads << " threads; now "
            << OpenDescriptors(getpid()) << " and " << Threads(getpid());
    EXPECT_EQ(Call(witness.object(), kEcho), STATUS_OK);
}

// Often enough for the thread that notices deaths to be the last to let go, if it ever is.
TEST(Deaths, AreNoticedWhileTheEndOfAnObjectThatADeadProcessHeldWaits) {
    static Counter entered, ending, may_end, ended;
    const auto note = [](int, const Letter&, Letter*) {
        entered.Add();
        return STATUS_OK;
    };
    const auto end = [] {
        ending.Add();
        may_end.WaitFor(ending.value());
        ended.Add();
    };
    for (int round = 1; round <= Rounds(12, 6) && !::testing::Test::HasFailure(); ++round) {
        RemoteObject holder("Object"), other("Object");
        ndk::SpAIBinder held = MakeObject(note, end);
        Link link;
        auto recipient = NewRecipient();
        ASSERT_EQ(LinkTo(other.object(), recipient, &link), STATUS_OK);
        ASSERT_EQ(Post(holder.object(), kBlock, {0, held, {}}), STATUS_OK);
        ASSERT_TRUE(entered.WaitFor(round));
        held.set(nullptr);
        holder.process().Kill();
        ASSERT_TRUE(ending.WaitFor(round));
        other.process().Kill();
        EXPECT_TRUE(EndedWith(link, 1)) << round;
        may_end.Add();
        ASSERT_TRUE(ended.WaitFor(round));
    }
}

TEST(Deaths, MayDeleteTheRecipientInsideItsOwnCallback) {
    RemoteObject victim("Object");
    auto recipient = NewRecipient();
    Counter deleted;
    Link link([&] {
        recipient.set(nullptr);
        deleted.Add();
    });
    Link second;
    ASSERT_EQ(LinkTo(victim.object(), recipient, &link), STATUS_OK);
    ASSERT_EQ(LinkTo(victim.object(), recipient, &second), STATUS_OK);
    victim.process().Kill();
    EXPECT_TRUE(EndedWith(link, 1));
    EXPECT_TRUE(EndedWith(second, 0)) << "its death callback had not been started";
    EXPECT_EQ(link.died_on.load(), link.unlinked_on.load());
    EXPECT_EQ(deleted.value(), 1);
}

TEST(Deaths, LetADeletionReturnWhileTheCallbackRunsAndUnlinkOnTheThreadThatRunsIt) {
    RemoteObject victim("Object");
    auto recipient = NewRecipient();
    Counter started, leave;
    Link link([&] {
        started.Add();
        leave.WaitFor(1);
    });
    ASSERT_EQ(LinkTo(victim.object(), recipient, &link), STATUS_OK);
    victim.process().Kill();
    ASSERT_TRUE(started.WaitFor(1));
    recipient.set(nullptr);
    EXPECT_EQ(link.unlinked.value(), 0);
    leave.Add();
    EXPECT_TRUE(EndedWith(link, 1));
    EXPECT_EQ(link.died_on.load(), link.unlinked_on.load());
}

TEST(Deaths, AreNotToldToLinksThatEndedBefore) {
    RemoteObject victim("Object");
    auto doomed = NewRecipient(), other = NewRecipient();
    Link by_deletion, by_unlinking, twice, witness;
    ASSERT_EQ(LinkTo(victim.object(), doomed, &by_deletion), STATUS_OK);
    for (Link* link : {&by_unlinking, &twice, &twice, &witness}) {
        ASSERT_EQ(LinkTo(victim.object(), other, link), STATUS_OK);
    }
    doomed.set(nullptr);
    EXPECT_TRUE(EndedWith(by_deletion, 0));
    EXPECT_EQ(by_deletion.unlinked_on.load(), std::this_thread::get_id());
    AIBinder* object = victim.object().get();
    EXPECT_EQ(AIBinder_unlinkToDeath(object, other.get(), &by_unlinking), STATUS_OK);
    EXPECT_TRUE(EndedWith(by_unlinking, 0));
    EXPECT_NE(AIBinder_unlinkToDeath(object, other.get(), &by_unlinking), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(object, other.get(), &twice), STATUS_OK);
    EXPECT_EQ(twice.unlinked.value(), 1) << "the same cookie was linked twice, one link is left";
    victim.process().Kill();
    ASSERT_TRUE(witness.unlinked.WaitFor(1));
    EXPECT_TRUE(twice.unlinked.WaitFor(2));
    EXPECT_EQ(twice.died.value(), 1);
    EXPECT_EQ(by_deletion.died.value() + by_unlinking.died.value(), 0);
}

TEST(Deaths, CannotBeLinkedForLocalAndDeadObjects) {
    RemoteObject victim("Object");
    auto recipient = NewRecipient();
    Link local, dead, witness;
    ndk::SpAIBinder own = MakeObject([](int, const Letter&, Letter*) { return STATUS_OK; });
    EXPECT_EQ(LinkTo(own, recipient, &local), STATUS_INVALID_OPERATION);
    ASSERT_EQ(LinkTo(victim.object(), recipient, &witness), STATUS_OK);
    victim.process().Kill();
    ASSERT_TRUE(EndedWith(witness, 1));
    EXPECT_EQ(LinkTo(victim.object(), recipient, &dead), STATUS_DEAD_OBJECT);
    recipient.set(nullptr);
    own.set(nullptr);
    for (Link* link : {&local, &dead})
        EXPECT_EQ(link->died.value() + link->unlinked.value(), 0);
}

TEST(Deaths, AreNoticedHoweverAProcessEnds) {
    for (const char* how : {"exit", "_exit", "abort", "end of input"}) {
        RemoteObject victim("Object");
        auto recipient = NewRecipient();
        Link link;
        ASSERT_EQ(LinkTo(victim.object(), recipient, &link), STATUS_OK);
        victim.helper().Send(how);
        victim.process().CloseInput();
        EXPECT_TRUE(EndedWith(link, 1)) << how;
        EXPECT_TRUE(victim.process().WaitExit()) << how;
    }
}

int SocketFiles() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(getenv("BINDER_HOST_DIR")))
        count += entry.is_socket() && !entry.is_symlink() ? 1 : 0;
    return count;
}

// Nobody has reaped them when their deaths are noticed: each is there as long as its object here.
TEST(Deaths, LeaveNoSocketFilesBehind) {
    RemoteObject witness("Object");
    const int before = SocketFiles();
    std::vector<std::unique_ptr<RemoteObject>> killed;
    for (int i = 0; i < 100; ++i) {
        killed.push_back(std::make_unique<RemoteObject>("Object"));
        ASSERT_TRUE(killed.back()->object());
        killed.back()->process().Signal(SIGKILL);
    }
    EXPECT_TRUE(Eventually([&] { return SocketFiles() <= before; }))
            << SocketFiles() << " files, before " << before;
}

TEST(Deaths, AreNotSeenInAStoppedProcess) {
    RemoteObject stopped("Object"), killed("Object");
    auto recipient = NewRecipient();
    Link of_stopped, of_killed;
    ASSERT_EQ(LinkTo(stopped.object(), recipient, &of_stopped), STATUS_OK);
    ASSERT_EQ(LinkTo(killed.object(), recipient, &of_killed), STATUS_OK);
    ASSERT_TRUE(stopped.process().Stop());
    killed.process().Kill();
    ASSERT_TRUE(EndedWith(of_killed, 1));
    EXPECT_EQ(of_stopped.died.value(), 0);
    EXPECT_TRUE(AIBinder_isAlive(stopped.object().get()));
    ASSERT_TRUE(stopped.process().Continue());
    EXPECT_EQ(Call(stopped.object(), kEcho), STATUS_OK);
    stopped.process().Kill();
    EXPECT_TRUE(EndedWith(of_stopped, 1));
}

TEST(Deaths, FailPendingCallsAtOnceAlthoughADeathHandlerIsBlocked) {
    RemoteObject first("Object"), victim("Object");
    auto recipient = NewRecipient();
    Counter blocked, leave, failed, stay;
    auto block = [&] {
        blocked.Add();
        leave.WaitFor(1);
    };
    Link of_first(block), of_victim(block);
    ASSERT_EQ(LinkTo(first.object(), recipient, &of_first), STATUS_OK);
    ASSERT_EQ(LinkTo(victim.object(), recipient, &of_victim), STATUS_OK);
    Own doorbell;
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; ++i)
        callers.emplace_back([&, target = victim.object()] {
            EXPECT_EQ(Call(target, kBlock, {0, doorbell.object, {}}), STATUS_DEAD_OBJECT);
            failed.Add();
            stay.WaitFor(1);
        });
    EXPECT_TRUE(doorbell.called.WaitFor(2));
    first.process().Kill();
    EXPECT_TRUE(blocked.WaitFor(1));
    const auto killed_at = steady_clock::now();
    victim.process().Kill();
    EXPECT_TRUE(failed.WaitFor(2));
    EXPECT_LT(steady_clock::now() - killed_at, milliseconds(100));
    // The threads whose calls have failed are still busy: that delays no notice.
    EXPECT_TRUE(blocked.WaitFor(2));
    stay.Add();
    for (std::thread& caller : callers)
        caller.join();
    leave.Add();
    EXPECT_TRUE(EndedWith(of_first, 1));
    EXPECT_TRUE(EndedWith(of_victim, 1));
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
