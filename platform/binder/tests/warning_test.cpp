// Labels: memory
// The log's function is the process's own, and may make calls as a line arises.

#include <android/binder_parcel.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "src/peer.h"
#include "tests/parcels.h"

namespace host {
namespace {

Peer* g_peer;
std::vector<std::string> g_lines;
std::optional<binder_status_t> g_called_back;

void CallBack(const __android_log_message* line) {
    g_lines.emplace_back(line->message);
    g_called_back = g_peer->oneway.Send(RefId(), 1, *NewParcel().get());
}

TEST(Warnings, AreWrittenOnceTheChannelIsFreeForTheLoggersOwnCalls) {
    const auto peer = std::make_shared<Peer>("1-0000000000000001");
    const std::vector<int8_t> much(2 * kMaxTransactionBytes);
    const ndk::ScopedAParcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeByteArray(parcel.get(), much.data(), static_cast<int32_t>(much.size())),
              STATUS_OK);
    g_peer = peer.get();
    __android_log_set_logger(&CallBack);
    EXPECT_EQ(peer->oneway.Send(RefId(), 1, *parcel.get()), STATUS_FAILED_TRANSACTION);
    __android_log_set_logger(__android_log_stderr_logger);
    EXPECT_EQ(g_lines, std::vector<std::string>{
                               "A transaction of 2097156 bytes to pid 0 uid 0 is not sent: at most "
                               "1048576."});
    EXPECT_EQ(g_called_back, STATUS_OK);
}

}  // namespace
}  // namespace host
