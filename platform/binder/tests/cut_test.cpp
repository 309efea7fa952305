// Labels: memory
// Between the moment at which a peer is cut off and its death here.

#include <gtest/gtest.h>
#include <log_capture.h>

#include "src/call_connection.h"
#include "src/oneway_receiver.h"
#include "src/peer.h"

namespace host {
namespace {

// No housekeeper runs in this test: the death that follows a cut stays away.
TEST(APeerThatIsCut, BringsInNoFurtherConnection) {
    const testing::LogCapture log;
    const auto peer = std::make_shared<Peer>("1-0000000000000001");
    const auto first = std::make_shared<CallConnection>(peer, UniqueFd(), false);
    const auto second = std::make_shared<CallConnection>(peer, UniqueFd(), false);
    EXPECT_TRUE(peer->AddAccepted(first));
    peer->Cut("it has earned it");
    EXPECT_FALSE(peer->IsDead());
    EXPECT_FALSE(peer->AddAccepted(second));
    EXPECT_FALSE(peer->SetReceiver(std::make_shared<OnewayReceiver>(peer, UniqueFd())));
    peer->Cut("once more");
    EXPECT_EQ(log.Texts().size(), 1U);
    peer->Die();
}

}  // namespace
}  // namespace host
