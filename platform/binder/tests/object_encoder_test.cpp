// Labels: memory
// What a message may carry to a peer that never says what became of it.

#include <android/binder_parcel.h>
#include <gtest/gtest.h>
#include <log_capture.h>

#include "src/objects.h"
#include "src/peer.h"
#include "tests/parcels.h"

namespace host {
namespace {

// A message that passes on so many objects of the owner that it never passed on before.
binder_status_t PassOn(Peer* to, const std::shared_ptr<Peer>& owner, uint32_t count) {
    static uint32_t next = 0;
    ndk::ScopedAParcel parcel = NewParcel();
    for (uint32_t i = 0; i < count; ++i) {
        const BinderRef proxy(new ProxyBinder(owner, {{++next}}, ""));
        EXPECT_EQ(AParcel_writeStrongBinder(parcel.get(), proxy.get()), STATUS_OK);
    }
    ObjectEncoder encoder(to, Direction::kOneway);
    Buffer table;
    return encoder.Encode(*parcel.get(), &table);
}

TEST(ObjectEncoder, RefusesToPassOnMoreThanAPeerMayLeaveUnsettledAndSaysSoOnce) {
    constexpr uint32_t kAtOnce = 8192;
    constexpr char kRefusal[] = "No further reference is passed on";
    static_assert(kMaxPassedOn % kAtOnce == 0);
    const auto owner = std::make_shared<Peer>("1-0000000000000001");
    const auto to = std::make_shared<Peer>("2-0000000000000002");
    const testing::LogCapture log;
    for (size_t kept = 0; kept < kMaxPassedOn; kept += kAtOnce)
        ASSERT_EQ(PassOn(to.get(), owner, kAtOnce), STATUS_OK) << kept;
    EXPECT_EQ(log.Texts(kRefusal).size(), 0U);
    // The peer lives: it is not dead because it is slow.
    EXPECT_EQ(PassOn(to.get(), owner, 1), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(PassOn(to.get(), owner, 1), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(log.Texts(kRefusal).size(), 1U);
    to->keeps.Close();
    EXPECT_EQ(PassOn(to.get(), owner, 1), STATUS_DEAD_OBJECT);
}

}  // namespace
}  // namespace host
