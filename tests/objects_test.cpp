// Labels: memory processes
// Objects on their way between processes, and who calls them.

#include <unistd.h>

#include "test_object.h"

namespace host::testing {
namespace {

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

enum Code {
    kWho = FIRST_CALL_TRANSACTION,  // the numbers of the process, of its caller and of that's user
    kAsk,                           // what the binder answers to kWho
    kKeep,
    kGiveKept,
    kAskKept,  // what the one that the binder has kept answers to kWho
};

Handler Keeper() {
    return [kept = ndk::SpAIBinder()](int code, const Letter& in, Letter* out) mutable {
        Letter theirs;
        switch (code) {
            case kWho:
                out->numbers = {getpid(), AIBinder_getCallingPid(),
                                static_cast<int32_t>(AIBinder_getCallingUid())};
                return binder_status_t{STATUS_OK};
            case kAsk:
                return Call(in.binder, kWho, {}, out);
            case kKeep:
                kept = in.binder;
                return binder_status_t{STATUS_OK};
            case kAskKept:
                Call(in.binder, kGiveKept, {}, &theirs);
                return Call(theirs.binder, kWho, {}, out);
            default:
                out->binder = kept;
                return binder_status_t{STATUS_OK};
        }
    };
}

HOST_HELPER(Keeper) {
    return Serve(channel, Keeper());
}

std::vector<int32_t> Who(const ndk::SpAIBinder& target, int code,
                         const ndk::SpAIBinder& other = {}) {
    return Ask(target, code, {0, other, {}}).numbers;
}

// What the object hands out that was given this to keep.
ndk::SpAIBinder ThereAndBack(const ndk::SpAIBinder& keeper, const ndk::SpAIBinder& object) {
    EXPECT_EQ(Call(keeper, kKeep, {0, object, {}}), STATUS_OK);
    return Ask(keeper, kGiveKept).binder;
}

TEST(Objects, ArePassedToAThirdProcessAndToldWhoCallsThem) {
    const int32_t here = getpid(), user = static_cast<int32_t>(getuid());
    RemoteObject first("Keeper"), second("Keeper");
    const int32_t a = first.pid(), b = second.pid();
    const ndk::SpAIBinder own = MakeObject(Keeper());
    using Numbers = std::vector<int32_t>;
    EXPECT_EQ(Who(first.object(), kWho), (Numbers{a, here, user}));
    EXPECT_EQ(Who(first.object(), kAsk, second.object()), (Numbers{b, a, user}));
    EXPECT_EQ(ThereAndBack(first.object(), {}), nullptr);
    EXPECT_EQ(ThereAndBack(first.object(), own), own) << "what comes back is that very object";
    EXPECT_EQ(Who(second.object(), kAskKept, first.object()), (Numbers{here, b, user}));
    // The second one's own object, which comes back to it: called inside the call from here.
    ThereAndBack(first.object(), second.object());
    EXPECT_EQ(Who(second.object(), kAskKept, first.object()), (Numbers{b, here, user}));
    // The first one's, from the second, is the one that this process has already.
    const ndk::SpAIBinder back = ThereAndBack(second.object(), first.object());
    EXPECT_EQ(back, first.object());
    EXPECT_EQ(Who(back, kWho), (Numbers{a, here, user}));
}

TEST(Objects, AnswerForTheirProcessAndTheirClassWithoutACall) {
    // A class is for ever.
    static const AIBinder_Class* const other = AIBinder_Class_define(
            "test.IOther", [](void* args) { return args; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                return binder_status_t{STATUS_OK};
            });
    RemoteObject remote("Keeper");
    AIBinder* const binder = remote.object().get();
    ASSERT_EQ(AIBinder_ping(binder), STATUS_OK);
    ASSERT_TRUE(remote.process().Stop());
    EXPECT_FALSE(AIBinder_associateClass(binder, other));
    EXPECT_EQ(AIBinder_getClass(binder), nullptr);
    const ndk::SpAIBinder own = MakeObject(Keeper());
    EXPECT_TRUE(AIBinder_associateClass(binder, AIBinder_getClass(own.get())));
    EXPECT_EQ(AIBinder_getClass(binder), AIBinder_getClass(own.get()));
    EXPECT_EQ(AIBinder_getUserData(binder), nullptr);
    EXPECT_TRUE(AIBinder_isRemote(binder) && AIBinder_isAlive(binder));
    ASSERT_TRUE(remote.process().Continue());
    remote.process().Kill();
    EXPECT_TRUE(Eventually([&] { return !AIBinder_isAlive(binder); }));
    EXPECT_EQ(AIBinder_ping(binder), STATUS_DEAD_OBJECT);
}

}  // namespace
}  // namespace host::testing
