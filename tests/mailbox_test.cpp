// Labels: memory threads processes
// Calls through the mailbox of their connection and past it, one by one and such that follow one
// another at once: each gets its own answer, whatever its size and whatever happens to the process
// called.

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "test_object.h"

namespace host::testing {
namespace {

constexpr int kEcho = FIRST_CALL_TRANSACTION;  // the same letter
constexpr int kEchoBack = kEcho + 1;  // the same, after a call to the object that came along
constexpr int kEchoLate = kEcho + 2;  // the same, after so many nanoseconds

using std::chrono::microseconds;
using std::chrono::nanoseconds;

constexpr microseconds kLoneGap{300};

binder_status_t Behave(int code, const Letter& in, Letter* out) {
    *out = in;
    if (code == kEchoLate) Await(nanoseconds(in.value));
    return code == kEchoBack ? Call(in.binder, kEcho, in, out) : STATUS_OK;
}

HOST_HELPER(Echo) {
    return Serve(channel, Behave);
}

bool HasMailbox(pid_t pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("binder-calls") != std::string::npos) return true;
    }
    return false;
}

class Mailboxes : public ::testing::Test {
  protected:
    // One call with that many numbers; false if the answer is not the one to it.
    bool Echoes(int value, size_t numbers = 0, int code = kEcho) {
        Letter in, out;
        in.value = value;
        in.numbers.assign(numbers, value);
        if (code == kEchoBack) in.binder = own_.object;
        return Call(remote_.object(), code, in, &out) == STATUS_OK &&
               (code == kEchoBack || (out.value == value && out.numbers == in.numbers));
    }

    // Calls until both sides have a mailbox, which comes with calls that are dense.
    void MakeDense() {
        for (int i = 0; !HasMailbox(remote_.pid()); ++i) {
            ASSERT_LT(i, 1000);
            for (int call = 0; call < 100; ++call)
                ASSERT_TRUE(Echoes(call));
        }
        EXPECT_TRUE(HasMailbox(getpid()));
    }

    Own own_;
    RemoteObject remote_{"Echo"};
};

TEST_F(Mailboxes, ComeWithLoneCallsTooAndSleepersAreWoken) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 300; ++i) {
        Await(kLoneGap);
        ASSERT_TRUE(Echoes(i, i % 10 == 0 ? 5000 : 1, i % 7 == 0 ? kEchoBack : kEcho)) << i;
    }
    EXPECT_TRUE(HasMailbox(remote_.pid()));
    // Who is not woken sleeps for 10 ms.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 300 * std::chrono::milliseconds(8));
}

TEST_F(Mailboxes, EveryCallGetsItsAnswerWhateverItsSize) {
    MakeDense();
    const size_t sizes[] = {0, 10, 900, 970, 980, 990, 1000, 1100, 5000};
    for (int i = 0; i < Rounds(20'000, 2'000); ++i) {
        ASSERT_TRUE(Echoes(i, i % 10 == 0 ? sizes[i / 10 % std::size(sizes)] : 1)) << i;
        ASSERT_TRUE(i % 100 != 0 || Echoes(i, 0, kEchoBack)) << i;
    }
    EXPECT_EQ(own_.called.value(), Rounds(200, 20));
}

// A side looks for 50 us, and away in the very moment in which the other puts something there.
TEST_F(Mailboxes, CallsThatComeAsTheOtherSideLooksAwayAreNoticed) {
    MakeDense();
    for (int i = 0; i < Rounds(20'000, 2'000); ++i) {
        Await(nanoseconds(44'000 + i % 100 * 100));
        ASSERT_TRUE(Echoes(i)) << i;
    }
}

// Likewise after 10 ms of sleep, on either side.
TEST_F(Mailboxes, FramesThatComeAsTheOtherSideHasSleptLongEnoughAreNoticed) {
    MakeDense();
    for (int i = 0; i < Rounds(200, 50); ++i) {
        const int delay = 9'950'000 + i % 50 * 4'000;
        Await(nanoseconds(delay));
        ASSERT_TRUE(Echoes(delay, 0, kEchoLate)) << i;
    }
}

TEST_F(Mailboxes, ManyThreadsCallAtOnce) {
    MakeDense();
    std::atomic<int> wrong{0};
    InParallel(4, [&] {
        for (int i = 0; i < Rounds(5'000, 500); ++i)
            wrong += Echoes(i) ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0);
}

class PacedMailboxes : public Mailboxes, public ::testing::WithParamInterface<microseconds> {};

INSTANTIATE_TEST_SUITE_P(, PacedMailboxes, ::testing::Values(microseconds(0), kLoneGap));

TEST_P(PacedMailboxes, AStoppedProcessIsWaitedForAndADeadOneIsNoticed) {
    MakeDense();
    std::atomic<int> done{0};
    std::atomic<binder_status_t> status{STATUS_OK};
    std::thread caller([&] {
        while (status == STATUS_OK) {
            Letter in, out;
            in.value = done;
            Await(GetParam());
            status = Call(remote_.object(), kEcho, in, &out);
            if (status == STATUS_OK && out.value == in.value) ++done;
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(remote_.process().Stop());
        EXPECT_TRUE(remote_.process().Continue());
        const int before = done;
        EXPECT_TRUE(Eventually([&] { return done > before + 100; }));
    }
    remote_.process().Kill();
    caller.join();
    EXPECT_EQ(status, STATUS_DEAD_OBJECT);
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
