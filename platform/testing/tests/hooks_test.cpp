// Labels: processes threads
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "host.h"

using host::testing::FailNthCall;
using host::testing::HeldUnlinks;
using host::testing::Helper;
using host::testing::PoolEnd;
using host::testing::ScopedHost;

namespace {

const AIBinder_Class* ThingClass() {
    static const AIBinder_Class* clazz = AIBinder_Class_define(
            "test.IThing", [](void* args) { return args; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
            });
    return clazz;
}

std::atomic<int> g_unlinked{0};

// Deletes a linked recipient on another thread while unlink callbacks are held.
std::string DeleteWhileHeld(AIBinder* thing) {
    AIBinder_DeathRecipient* recipient = AIBinder_DeathRecipient_new([](void*) {});
    AIBinder_DeathRecipient_setOnUnlinked(recipient, [](void*) { ++g_unlinked; });
    if (AIBinder_linkToDeath(thing, recipient, nullptr) != STATUS_OK) return "no link";
    std::thread deleter;
    {
        HeldUnlinks held;
        deleter = std::thread([recipient] { AIBinder_DeathRecipient_delete(recipient); });
        if (!held.WaitForHeld(1) || g_unlinked != 0) return "not held";
    }
    deleter.join();
    return g_unlinked == 1 ? "held and let go" : "lost";
}

std::string FailOneCall() {
    std::string error;
    ndk::SpAIBinder object;
    FailNthCall fault("socket", 1, EMFILE);
    const binder_status_t failed = host::GetContextObject(object.getR(), &error);
    const binder_status_t again = host::GetContextObject(object.getR(), &error);
    return std::string(fault.fired() ? "fired " : "not fired ") +
           (failed != STATUS_OK ? "failed " : "fine ") + (again == STATUS_OK ? "fine" : "failed");
}

std::string JoinUntilTheEnd() {
    PoolEnd end;
    std::atomic<bool> joined{false};
    std::thread pool([&joined] {
        ABinderProcess_joinThreadPool();
        joined = true;
    });
    const bool early = host::testing::Eventually([&joined] { return joined.load(); },
                                                 std::chrono::milliseconds(50));
    end.End();
    pool.join();
    return early ? "too early" : "joined and ended";
}

}  // namespace

HOST_HELPER(Publisher) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder thing(AIBinder_new(ThingClass(), nullptr));
    channel.Serve([&thing](const std::string& name) {
        return std::to_string(AServiceManager_addService(thing.get(), name.c_str()));
    });
    return 0;
}

HOST_HELPER(Hooked) {
    channel.Serve([](const std::string& command) -> std::string {
        if (command == "fail one call") return FailOneCall();
        if (command == "join") return JoinUntilTheEnd();
        const ndk::SpAIBinder thing(AServiceManager_waitForService(command.c_str()));
        return DeleteWhileHeld(thing.get());
    });
    return 0;
}

TEST(TransportHooks, HoldUnlinkCallbacksUntilTheyAreLetGo) {
    ScopedHost host;
    Helper publisher("Publisher"), hooked("Hooked");
    ASSERT_EQ(publisher.Command("thing"), "0");
    EXPECT_EQ(hooked.Command("thing"), "held and let go");
}

TEST(TransportHooks, FailTheChosenCallOnceAndNoOther) {
    ScopedHost host;
    Helper publisher("Publisher"), hooked("Hooked");
    ASSERT_EQ(publisher.Command("thing"), "0");
    EXPECT_EQ(hooked.Command("fail one call"), "fired failed fine");
}

TEST(TransportHooks, EndTheJoinedPool) {
    ScopedHost host;
    Helper hooked("Hooked");
    EXPECT_EQ(hooked.Command("join"), "joined and ended");
}

TEST(ScopedHost, RemovesItsFolderAndEndsItsServiceManager) {
    std::string path;
    pid_t manager = 0;
    {
        ScopedHost host;
        path = host.path();
        manager = host.service_manager()->pid();
        EXPECT_STREQ(getenv("BINDER_HOST_DIR"), path.c_str());
        Helper publisher("Publisher");
        ASSERT_EQ(publisher.Command("thing"), "0");
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(host::testing::ProcessState(manager), 0);
}
