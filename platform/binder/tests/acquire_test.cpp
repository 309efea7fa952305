// Labels: memory
// Requests to owners, to be entered for what others have passed on: bounded whoever asks, and
// whatever the owner does.

#include <gtest/gtest.h>
#include <log_capture.h>

#include <cstdio>

#include "src/peer.h"

namespace host {
namespace {

std::shared_ptr<Peer> NewPeer() {
    static int next = 0;
    char name[kEndpointNameSize];
    snprintf(name, sizeof(name), "%d-%016x", ++next, 0);
    return std::make_shared<Peer>(name);
}

class Acquire : public ::testing::Test {
  protected:
    // A peer and its stand-ins keep each other until its death. No housekeeper runs in this test.
    ~Acquire() override { owner_->Die(); }

    // A reference to an object of the owner that is new here, as `from` passes it on.
    BinderRef Pass(const std::shared_ptr<Peer>& from) {
        const RefId id{{++last_}};
        bool entered = false;
        BinderRef proxy = owner_->proxies.ArriveUncounted(
                {id, ""}, [&] { return new ProxyBinder(owner_, id, ""); }, &entered);
        owner_->SendAcquire(AsProxy(proxy.get()), from);
        return proxy;
    }
    bool Answer(uint32_t number, bool granted) { return owner_->OnAcquired({{number}}, granted); }
    size_t SilentOwners() const { return log_.Texts("arrive as dead ones").size(); }
    size_t Cuts() const { return log_.Texts("Cutting off").size(); }

    const testing::LogCapture log_;
    const std::shared_ptr<Peer> owner_ = NewPeer();
    std::shared_ptr<Peer> passer_ = NewPeer();
    uint32_t last_ = 0;
};

TEST_F(Acquire, AsksAnOwnerForNoMoreThanItCouldGrant) {
    while (last_ < kMaxReferencesPerPeer) {
        if (last_ % kMaxPassedOn == 0) passer_ = NewPeer();
        Pass(passer_);
    }
    EXPECT_EQ(SilentOwners(), 0U);
    passer_ = NewPeer();
    const BinderRef refused = Pass(passer_);
    EXPECT_TRUE(AsProxy(refused.get())->IsDead());
    EXPECT_TRUE(AsProxy(Pass(passer_).get())->IsDead());
    EXPECT_EQ(SilentOwners(), 1U);
    EXPECT_EQ(Cuts(), 0U) << "nobody has done anything wrong";
    // One that is asked for by somebody else is waited for.
    bool entered = false;
    const BinderRef first = owner_->proxies.ArriveUncounted(
            {{{1}}, ""}, [&]() -> ProxyBinder* { return nullptr; }, &entered);
    owner_->SendAcquire(AsProxy(first.get()), passer_);
    EXPECT_FALSE(AsProxy(first.get())->IsDead());
    ASSERT_TRUE(Answer(1, true));
    EXPECT_FALSE(AsProxy(first.get())->IsDead());
    EXPECT_FALSE(AsProxy(Pass(passer_).get())->IsDead()) << "there is room again";
}

// In league with who passes on, it knows the names that it is asked for.
TEST_F(Acquire, CutsAnOwnerThatAnswersWithoutReading) {
    constexpr size_t kRequests =
            kMaxControlBacklogBytes / (sizeof(FrameHeader) + sizeof(AcquireBody));
    while (last_ < 2 * kRequests) {
        if (last_ % kMaxPassedOn == 0) passer_ = NewPeer();
        Pass(passer_);
        if (Cuts() != 0) break;
        ASSERT_TRUE(Answer(last_, false));
    }
    EXPECT_EQ(Cuts(), 1U);
    EXPECT_NEAR(last_, kRequests, 2);
    EXPECT_EQ(SilentOwners(), 0U);
}

}  // namespace
}  // namespace host
