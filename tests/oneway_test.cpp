// Labels: memory threads processes
// Timeout: 300
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "../platform/binder/src/limits.h"
#include "ring.h"
#include "test_object.h"
#include "wire.h"

namespace host::testing {
namespace {

using std::chrono::steady_clock;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

enum Code {
    kNote = FIRST_CALL_TRANSACTION,
    kNoted,
    kFence,
    kBlock,
    kOpen,
    kMake,
    kPostMany,
    kMeet
};

// Notes numbers in the order in which they come.
class Notes {
  public:
    binder_status_t Behave(int code, const Letter& in, Letter* out) {
        if (code == kNote) Append(in.value);
        if (code == kNoted) *out = Take();
        if (code == kFence) Post(in.binder, kFence);
        if (code == kBlock) {
            if (in.binder) Post(in.binder, kFence);
            opened_.WaitFor(in.value);
        }
        if (code == kOpen) opened_.Add();
        if (code == kMake) out->binder = MakeObject(Handler());
        return STATUS_OK;
    }

    host::testing::Handler Handler() { return std::bind_front(&Notes::Behave, this); }

  private:
    void Append(int32_t number) {
        std::lock_guard lock(mutex_);
        numbers_.push_back(number);
    }
    Letter Take() {
        std::lock_guard lock(mutex_);
        return {static_cast<int32_t>(numbers_.size()), {}, std::exchange(numbers_, {})};
    }

    Counter opened_;
    std::mutex mutex_;
    std::vector<int32_t> numbers_;
};

HOST_HELPER(Notebook) {
    Notes notes;
    return Serve(channel, notes.Handler());
}

std::vector<int32_t> FromZero(int32_t count) {
    std::vector<int32_t> numbers(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i)
        numbers[static_cast<size_t>(i)] = i;
    return numbers;
}

// Everything noted by a notebook, asked for when a fence behind it has been reached.
std::vector<int32_t> NotedBy(const ndk::SpAIBinder& notebook) {
    Own bell;
    // Refused for a moment if the notebook has just begun to work off as much as it may be sent.
    EXPECT_TRUE(Eventually([&] {
        return Post(notebook, kFence, {0, bell.object, {}}) == STATUS_OK;
    }));
    EXPECT_TRUE(bell.called.WaitFor(1));
    return Ask(notebook, kNoted).numbers;
}

TEST(OnewayCalls, RunInOrderAndOneAtATimePerObject) {
    RemoteObject notebook("Notebook");
    constexpr int32_t kCalls = 20'000;
    for (int32_t i = 0; i < kCalls; ++i) {
        while (Post(notebook.object(), kNote, {i, {}, {}}) == STATUS_FAILED_TRANSACTION) {
            Own bell;
            if (Post(notebook.object(), kFence, {0, bell.object, {}}) == STATUS_OK)
                bell.called.WaitFor(1);
        }
    }
    EXPECT_EQ(NotedBy(notebook.object()), FromZero(kCalls));
}

TEST(OnewayCalls, AreAllReadHoweverTheReceiverIsWokenOrLooksByItself) {
    std::vector<std::unique_ptr<RemoteObject>> notebooks;
    for (int i = 0; i < 4; ++i)
        notebooks.push_back(std::make_unique<RemoteObject>("Notebook"));
    Own bell;
    for (int round = 1; round <= 3'000; ++round) {
        for (const auto& notebook : notebooks) {
            for (int32_t i = 0; i < round % 3; ++i)
                ASSERT_EQ(Post(notebook->object(), kNote, {i, {}, {}}), STATUS_OK);
            ASSERT_EQ(Post(notebook->object(), kFence, {0, bell.object, {}}), STATUS_OK);
        }
        ASSERT_TRUE(bell.called.WaitFor(4 * round)) << "a wake-up was lost in round " << round;
    }
}

TEST(OnewayCalls, ToDifferentObjectsRunInParallelWhileOneBlocks) {
    RemoteObject notebook("Notebook");
    const ndk::SpAIBinder other = Ask(notebook.object(), kMake).binder;
    Own entered;
    ASSERT_EQ(Post(notebook.object(), kBlock, {1, entered.object, {}}), STATUS_OK);
    ASSERT_EQ(Post(notebook.object(), kNote, {0, {}, {}}), STATUS_OK);
    ASSERT_TRUE(entered.called.WaitFor(1));
    EXPECT_EQ(NotedBy(other), std::vector<int32_t>{}) << "the blocked object's call waits";
    // A two-way call to the object overtakes what waits for it.
    ASSERT_EQ(Call(notebook.object(), kOpen), STATUS_OK);
    EXPECT_EQ(NotedBy(notebook.object()), FromZero(1));
}

TEST(OnewayCalls, WaitForAThreadOfAFullPoolWithoutHoldingUpTheCaller) {
    RemoteObject notebook("Notebook");
    constexpr int32_t kObjects = kDefaultPoolThreads + 5;
    std::vector<ndk::SpAIBinder> objects;
    Own entered;
    while (objects.size() < kObjects)
        objects.push_back(Ask(notebook.object(), kMake).binder);
    for (const ndk::SpAIBinder& one : objects)
        ASSERT_EQ(Post(one, kBlock, {kObjects, entered.object, {}}), STATUS_OK);
    ASSERT_TRUE(entered.called.WaitFor(kDefaultPoolThreads));
    for (int32_t i = 0; i < 1'000; ++i)
        ASSERT_EQ(Post(notebook.object(), kNote, {i, {}, {}}), STATUS_OK);
    EXPECT_EQ(entered.called.value(), static_cast<int>(kDefaultPoolThreads));
    // Calls that open the gate need a thread that is free: the blocked ones are given up with their
    // process.
    notebook.process().Kill();
    EXPECT_TRUE(Eventually([&] { return Post(notebook.object(), kNote) == STATUS_DEAD_OBJECT; }));
}

// What one call of that many numbers counts.
size_t RecordSize(size_t numbers) {
    const size_t interface = sizeof(int32_t) + Padded(sizeof("test.IObject") - 1);
    const size_t letter = sizeof(int32_t) * (3 + numbers);  // value, null, length
    return RingWriter::RecordSize(sizeof(CallBody) + interface + letter);
}

TEST(OnewayCalls, AreAcceptedUpToTheBoundAndRefusedBeyondIt) {
    RemoteObject notebook("Notebook");
    ASSERT_EQ(Post(notebook.object(), kNote, {-1, {}, {}}), STATUS_OK);
    ASSERT_EQ(NotedBy(notebook.object()), std::vector<int32_t>{-1});
    LogCapture log;
    ASSERT_TRUE(notebook.process().Stop());
    const std::vector<int32_t> load(245);
    const size_t calls = kMaxOnewayPendingBytes / RecordSize(load.size());
    for (size_t i = 0; i < calls; ++i) {
        ASSERT_EQ(Post(notebook.object(), kNote, {static_cast<int32_t>(i), {}, load}), STATUS_OK)
                << i;
    }
    size_t left = kMaxOnewayPendingBytes - calls * RecordSize(load.size());
    ASSERT_GE(left, RecordSize(0));
    const std::vector<int32_t> rest((left - RecordSize(0)) / sizeof(int32_t));
    ASSERT_EQ(RecordSize(rest.size()), left) << "the last one fills the bound to the byte";
    EXPECT_EQ(Post(notebook.object(), kNote, {0, {}, std::vector<int32_t>(rest.size() + 2)}),
              STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(Post(notebook.object(), kNote, {static_cast<int32_t>(calls), {}, rest}), STATUS_OK);
    for (int i = 0; i < 99; ++i)
        EXPECT_EQ(Post(notebook.object(), kNote), STATUS_FAILED_TRANSACTION);
    ASSERT_TRUE(notebook.process().Continue());
    ASSERT_TRUE(Eventually([&] {
        return Post(notebook.object(), kNote, {-1, {}, {}}) == STATUS_OK;
    }));
    std::vector<int32_t> expected = FromZero(static_cast<int32_t>(calls) + 1);
    expected.push_back(-1);
    EXPECT_EQ(NotedBy(notebook.object()), expected);
    // Each first refusal, and how many there were: at least 99 at last.
    EXPECT_THAT(log.Texts("Oneway calls to pid " + std::to_string(notebook.pid())),
                ElementsAre(HasSubstr("are refused"), HasSubstr("; 1 were refused"),
                            HasSubstr("are refused"),
                            ContainsRegex("; (99|[1-9][0-9][0-9]+) were refused")));
}

TEST(OnewayCalls, ThatWereRefusedAreCountedAlsoWhenTheProcessDies) {
    RemoteObject notebook("Notebook");
    const LogCapture log;
    ASSERT_TRUE(notebook.process().Stop());
    while (Post(notebook.object(), kNote) == STATUS_OK) {
    }
    EXPECT_EQ(Post(notebook.object(), kNote), STATUS_FAILED_TRANSACTION);
    notebook.process().Kill();
    EXPECT_TRUE(log.WaitForText("Oneway calls to pid " + std::to_string(notebook.pid()) + " uid " +
                                std::to_string(getuid()) + " are over; 2 were refused."));
}

struct Timed {
    std::vector<steady_clock::duration> took;

    binder_status_t Post(const ndk::SpAIBinder& target, int32_t number) {
        const auto before = steady_clock::now();
        const binder_status_t status = host::testing::Post(target, kNote, {number, {}, {}});
        took.push_back(steady_clock::now() - before);
        return status;
    }
    steady_clock::duration Median() {
        std::sort(took.begin(), took.end());
        return took[took.size() / 2];
    }
};

TEST(OnewayCalls, ToAStoppedProcessDelayNobodyAndAreRunWhenItContinues) {
    RemoteObject stopped("Notebook"), healthy("Notebook");
    ASSERT_EQ(NotedBy(stopped.object()), NotedBy(healthy.object()));
    ASSERT_TRUE(stopped.process().Stop());
    Timed to_stopped, to_healthy;
    int32_t sent = 0, accepted = 0;
    std::vector<int32_t> noted;
    for (int round = 0; round < 100; ++round) {
        for (int i = 0; i < 100; ++i, ++sent) {
            const binder_status_t status = to_stopped.Post(stopped.object(), sent);
            ASSERT_TRUE(status == STATUS_OK || status == STATUS_FAILED_TRANSACTION) << status;
            if (status == STATUS_OK) {
                ASSERT_EQ(accepted++, sent) << "accepted behind a refused one";
            }
            ASSERT_EQ(to_healthy.Post(healthy.object(), sent), STATUS_OK);
        }
        const auto batch = NotedBy(healthy.object());
        noted.insert(noted.end(), batch.begin(), batch.end());
    }
    EXPECT_EQ(noted, FromZero(sent));
    EXPECT_GT(accepted, 6'000);
    EXPECT_LT(accepted, sent);
    EXPECT_LE(to_stopped.Median(), 2 * to_healthy.Median());
    ASSERT_TRUE(stopped.process().Continue());
    EXPECT_TRUE(Eventually([&] {
        return Post(stopped.object(), kNote, {accepted, {}, {}}) == STATUS_OK;
    }));
    EXPECT_EQ(NotedBy(stopped.object()), FromZero(accepted + 1));
}

// Posts as many notes as it is asked to, to an object that it has never called before, and ends.
HOST_HELPER(Hasty) {
    return Serve(channel, [](int code, const Letter& in, Letter* out) -> binder_status_t {
        if (code == kPostMany) {
            for (int32_t i = 0; i < in.value; ++i) {
                if (Post(in.binder, kNote, {i, {}, {}}) == STATUS_OK) ++out->value;
            }
            if (!in.numbers.empty()) _exit(0);
        }
        return STATUS_OK;
    });
}

TEST(FirstContact, DelaysNoOnewayCallAndDeliversWhatWasSentAlsoIfTheSenderExits) {
    constexpr int32_t kCalls = 1'000;
    RemoteObject notebook("Notebook");
    ASSERT_EQ(NotedBy(notebook.object()), FromZero(0));
    const int before = OpenDescriptors(notebook.pid());
    for (const auto& [stopped, exits] :
         {std::pair{true, false}, std::pair{false, true}, std::pair{true, true}}) {
        SCOPED_TRACE(::testing::Message() << "stopped " << stopped << ", exits " << exits);
        auto sender = std::make_unique<RemoteObject>("Hasty");
        ASSERT_TRUE(!stopped || notebook.process().Stop());
        Letter accepted;
        EXPECT_EQ(Call(sender->object(), kPostMany,
                       {kCalls, notebook.object(), std::vector<int32_t>(exits ? 1 : 0)}, &accepted),
                  exits ? STATUS_DEAD_OBJECT : STATUS_OK);
        EXPECT_EQ(accepted.value, exits ? 0 : kCalls);
        ASSERT_TRUE(!exits || sender->process().WaitExit());
        ASSERT_TRUE(!stopped || notebook.process().Continue());
        std::vector<int32_t> noted;
        EXPECT_TRUE(Eventually([&] {
            for (int32_t number : NotedBy(notebook.object()))
                noted.push_back(number);
            return noted.size() >= kCalls;
        })) << noted.size();
        EXPECT_EQ(noted, FromZero(kCalls));
        sender.reset();
        EXPECT_TRUE(Eventually([&] { return OpenDescriptors(notebook.pid()) <= before; }))
                << "the dead sender is forgotten; now " << OpenDescriptors(notebook.pid())
                << ", before " << before;
    }
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
