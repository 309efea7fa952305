// Labels: memory threads processes
#include <aidl/velmora/sample/IListener.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "node.h"

namespace calls_test {
namespace {

using aidl::velmora::sample::IListener;

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

std::shared_ptr<Node> MakeNode() {
    return ndk::SharedRefBase::make<Node>();
}

int32_t OwnPid() {
    return static_cast<int32_t>(getpid());
}

TEST(Calls, TellTheCalleeWhoCalls) {
    const RemoteNode a;
    const RemoteNode b;
    Who who;
    ASSERT_TRUE(a->who(&who).isOk());
    EXPECT_EQ(who.pid, a.pid());
    EXPECT_EQ(who.callingPid, OwnPid());
    EXPECT_EQ(who.callingUid, static_cast<int32_t>(getuid()));
    ASSERT_TRUE(a->ask(b.node(), &who).isOk());
    EXPECT_EQ(who.pid, b.pid());
    EXPECT_EQ(who.callingPid, a.pid());
}

TEST(Calls, GoBackAndForthOnTheThreadThatWaits) {
    const RemoteNode a, b;
    const auto own = MakeNode();
    int32_t calls = 0;
    ASSERT_TRUE(a->bounce(own, 20, &calls).isOk());
    EXPECT_EQ(calls, 20);
    EXPECT_EQ(own->bounce_threads(), std::set<std::thread::id>{std::this_thread::get_id()});
    // Between a and b, while this process waits for both.
    ASSERT_TRUE(a->bounce(b.node(), 9, &calls).isOk());
    EXPECT_EQ(calls, 9);
}

TEST(Calls, OfThisProcessAreDirect) {
    const auto own = MakeNode();
    const std::shared_ptr<INode> found = INode::fromBinder(own->asBinder());
    EXPECT_EQ(found, own);
    EXPECT_FALSE(found->isRemote());
    int32_t calls = 0;
    ASSERT_TRUE(found->bounce(own, 1, &calls).isOk());
    EXPECT_EQ(own->bounce_threads(), std::set<std::thread::id>{std::this_thread::get_id()});
    Who who;
    ASSERT_TRUE(found->who(&who).isOk());
    EXPECT_EQ(who.callingPid, OwnPid());
}

TEST(Objects, ArePassedToAThirdProcessAndCalledThere) {
    const RemoteNode a;
    const RemoteNode b;
    const auto own = MakeNode();
    Who who;
    // This process's object, which b gets from a.
    ASSERT_TRUE(a->keep(own).isOk());
    ASSERT_TRUE(b->askKept(a.node(), &who).isOk());
    EXPECT_EQ(who.pid, OwnPid());
    EXPECT_EQ(who.callingPid, b.pid());
    // b's own object, which comes back to it from a: called directly, inside the call from here.
    ASSERT_TRUE(a->keep(b.node()).isOk());
    ASSERT_TRUE(b->askKept(a.node(), &who).isOk());
    EXPECT_EQ(who.pid, b.pid());
    EXPECT_EQ(who.callingPid, OwnPid());
    // a's object, which this process gets from b.
    ASSERT_TRUE(b->keep(a.node()).isOk());
    std::shared_ptr<INode> kept;
    ASSERT_TRUE(b->kept(&kept).isOk());
    ASSERT_TRUE(kept->who(&who).isOk());
    EXPECT_EQ(who.pid, a.pid());
    EXPECT_EQ(who.callingPid, OwnPid());
}

TEST(Objects, ThatComeBackAreThatVeryObject) {
    const RemoteNode a;
    const RemoteNode b;
    const auto own = MakeNode();
    std::shared_ptr<INode> kept;
    ASSERT_TRUE(a->keep(own).isOk());
    ASSERT_TRUE(a->kept(&kept).isOk());
    EXPECT_EQ(kept, own);
    SpAIBinder back;
    ASSERT_TRUE(a->echo(own->asBinder(), &back).isOk());
    EXPECT_EQ(INode::fromBinder(back), own);
    ASSERT_TRUE(a->echoBy(b.node(), own->asBinder(), &back).isOk());
    EXPECT_EQ(INode::fromBinder(back), own);
    ASSERT_TRUE(a->echo(nullptr, &back).isOk());
    EXPECT_EQ(back, nullptr);
    ASSERT_TRUE(a->keep(nullptr).isOk());
    ASSERT_TRUE(a->kept(&kept).isOk());
    EXPECT_EQ(kept, nullptr);
}

TEST(Objects, OfAnotherProcessHaveOneBinderAndAProxyForEachAsker) {
    const RemoteNode a;
    const RemoteNode b;
    SpAIBinder back;
    ASSERT_TRUE(b->echo(a.node()->asBinder(), &back).isOk());
    EXPECT_EQ(back.get(), a.binder());
    EXPECT_EQ(a.LookUp().get(), a.binder());
    const std::shared_ptr<INode> proxy = INode::fromBinder(back);
    EXPECT_NE(proxy, a.node());
    EXPECT_EQ(proxy->asBinder(), a.node()->asBinder());
    EXPECT_TRUE(proxy->isRemote());
}

TEST(Objects, OfAnotherInterfaceAreSeenWithoutACall) {
    RemoteNode a;
    RemoteNode b;
    ASSERT_TRUE(b->keep(a.node()).isOk());
    ASSERT_TRUE(a.process().Stop());
    // Neither of them asks the process that stands still.
    EXPECT_EQ(IListener::fromBinder(a.LookUp()), nullptr);
    EXPECT_NE(INode::fromBinder(a.LookUp()), nullptr);
    EXPECT_EQ(IListener::fromBinder(nullptr), nullptr);
    std::shared_ptr<INode> kept;
    ASSERT_TRUE(b->kept(&kept).isOk());
    EXPECT_EQ(kept->asBinder().get(), a.binder());
    ASSERT_TRUE(a.process().Continue());
}

TEST(Objects, AnswerForTheirProcessAndTheirClass) {
    RemoteNode a;
    EXPECT_TRUE(AIBinder_isRemote(a.binder()));
    EXPECT_TRUE(AIBinder_isAlive(a.binder()));
    EXPECT_EQ(AIBinder_ping(a.binder()), STATUS_OK);
    const AIBinder_Class* const clazz = AIBinder_getClass(a.binder());
    ASSERT_NE(clazz, nullptr);
    EXPECT_STREQ(AIBinder_Class_getDescriptor(clazz), INode::descriptor);
    EXPECT_EQ(AIBinder_getUserData(a.binder()), nullptr);

    const SpAIBinder own = MakeNode()->asBinder();
    EXPECT_EQ(AIBinder_getClass(own.get()), clazz);
    EXPECT_EQ(AIBinder_ping(own.get()), STATUS_OK);
    a.process().Kill();
    EXPECT_TRUE(host::testing::Eventually([&] { return !AIBinder_isAlive(a.binder()); }));
    EXPECT_EQ(AIBinder_ping(a.binder()), STATUS_DEAD_OBJECT);
    Who who;
    EXPECT_EQ(a->who(&who).getStatus(), STATUS_DEAD_OBJECT);
}

}  // namespace
}  // namespace calls_test
