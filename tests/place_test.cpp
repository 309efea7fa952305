// Labels: memory threads processes
// Native: emulators run threads where they like.
// Calls that come alone are run where they are made, and no thread is bound to a processor while
// code of users runs.

#include <poll.h>
#include <sched.h>

#include <atomic>
#include <thread>

#include "test_object.h"

namespace host::testing {
namespace {

constexpr uint32_t kWhere = FIRST_CALL_TRANSACTION;  // the processor, and how many it may run on
constexpr uint32_t kNote = kWhere + 1;               // notes both
constexpr uint32_t kNoted = kWhere + 2;

std::vector<int> Processors() {
    cpu_set_t allowed;
    std::vector<int> processors;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) return processors;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &allowed)) processors.push_back(i);
    }
    return processors;
}

std::vector<int32_t> Here() {
    return {sched_getcpu(), static_cast<int32_t>(Processors().size())};
}

HOST_HELPER(Placed) {
    std::atomic<int32_t> processor{-1};
    std::atomic<int32_t> choice{Here()[1]};
    return Serve(channel, [&](int code, const Letter&, Letter* out) {
        const std::vector<int32_t> here = Here();
        out->numbers = code == kNoted ? std::vector<int32_t>{processor, choice} : here;
        if (code == kNote) {
            processor = here[0];
            choice = here[1];
        }
        return STATUS_OK;
    });
}

class Places : public ::testing::Test {
  protected:
    // Asks from each processor in turn, once a millisecond: calls that come alone. Each time the
    // answer must be free to run anywhere, and at some time they settle where they are asked for.
    void ExpectToFollow(const std::function<std::vector<int32_t>()>& ask) {
        const auto choice = static_cast<int32_t>(Processors().size());
        for (int processor : Processors()) {
            int in_a_row = 0;
            std::thread([&] {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(processor, &one);
                ASSERT_EQ(sched_setaffinity(0, sizeof(one), &one), 0);
                for (int i = 0; i < kMostTries && in_a_row < kSettled; ++i) {
                    const std::vector<int32_t> where = ask();
                    ASSERT_EQ(where.size(), 2U);
                    ASSERT_EQ(where[1], choice) << "bound while it runs a call";
                    in_a_row = where[0] == processor ? in_a_row + 1 : 0;
                    poll(nullptr, 0, 1);
                }
            }).join();
            EXPECT_EQ(in_a_row, kSettled) << "processor " << processor;
        }
    }

    static constexpr int kMostTries = 5000;
    static constexpr int kSettled = 50;
    RemoteObject remote_{"Placed"};
};

TEST_F(Places, LoneCallsAreServedWhereTheyAreMade) {
    ExpectToFollow([this] { return Ask(remote_.object(), kWhere).numbers; });
}

TEST_F(Places, LoneOnewayCallsAreRunWhereTheyAreMade) {
    ExpectToFollow([this] {
        EXPECT_EQ(Post(remote_.object(), kNote), STATUS_OK);
        poll(nullptr, 0, 1);
        return Ask(remote_.object(), kNoted).numbers;
    });
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
