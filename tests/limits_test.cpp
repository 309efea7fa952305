// Labels: memory processes
// Timeout: 300
// Serial: while one process is flooded from all sides it must keep up with a client that it serves.
// Every limit at its value and one over it, the sender's check and the receiver's own.

#include <android/binder_manager.h>
#include <unistd.h>

#include <atomic>
#include <sstream>

#include "objects.h"
#include "pool.h"
#include "references.h"
#include "ring.h"
#include "siege.h"

namespace host::testing {
namespace {

// Interface name, value, no object and the numbers' count: what a letter takes without numbers.
constexpr size_t kEmptyLetter = 28;
// A reference of ours in the sender's reckoning: the entry, the longest name and the descriptor.
constexpr size_t kReferenceBytes = sizeof(WireObject) + kEndpointNameSize + 12;

constexpr size_t NumbersFor(size_t bytes) {
    return (bytes - kEmptyLetter) / sizeof(int32_t);
}

// Calls so often from so many threads at once; how many calls failed.
int Storm(const ndk::SpAIBinder& target, int threads, int rounds) {
    std::atomic<int> failed{0};
    InParallel(threads, [&] {
        for (int round = 0; round < rounds; ++round) {
            if (Call(target, kEcho) != STATUS_OK) failed.fetch_add(1);
        }
    });
    return failed.load();
}

// Makes calls by the layer, one command each, and answers with the status.
HOST_HELPER(LimitsCaller) {
    const ndk::SpAIBinder victim(AServiceManager_waitForService("siege/victim"));
    channel.Serve([&](const std::string& line) {
        std::istringstream words(line);
        std::string verb;
        int first = 0, second = 0;
        words >> verb >> first >> second;
        Letter letter;
        if (verb == "storm") return std::to_string(Storm(victim, first, second));
        if (verb == "objects")
            return std::to_string(CallWithObjects(victim, static_cast<size_t>(first),
                                                  static_cast<size_t>(second)));
        letter.value = first;
        if (verb == "reply") return std::to_string(Call(victim, kBig, letter));
        letter.numbers.resize(static_cast<size_t>(first));
        return std::to_string(Call(victim, kEcho, letter));
    });
    return 0;
}

class Limits : public Siege {
  protected:
    int Status(Helper* caller, const std::string& verb, size_t first, size_t second = 0) {
        return std::stoi(
                caller->Command(verb + " " + std::to_string(first) + " " + std::to_string(second)));
    }
};

TEST_F(Limits, ATransactionOfOneMebibyteIsSentAndALargerOneFailsAtTheSender) {
    Helper caller("LimitsCaller");
    const size_t most = NumbersFor(kMaxTransactionBytes);
    EXPECT_EQ(Status(&caller, "data", most), STATUS_OK);
    EXPECT_FALSE(caller.log().WaitForLine("is not sent", std::chrono::milliseconds(0)));
    EXPECT_EQ(Status(&caller, "data", most + 1), STATUS_FAILED_TRANSACTION);
    EXPECT_TRUE(caller.log().WaitForLine("A transaction of 1048580 bytes to pid " +
                                         std::to_string(victim_.pid()) + " uid " +
                                         std::to_string(getuid()) + " is not sent"));
    // An answer lacks the interface's name.
    const size_t most_back = (kMaxTransactionBytes - 12) / sizeof(int32_t);
    EXPECT_EQ(Status(&caller, "reply", most_back), STATUS_OK);
    EXPECT_EQ(Status(&caller, "reply", most_back + 1), STATUS_FAILED_TRANSACTION);
    EXPECT_TRUE(victim_.log().WaitForLine("to pid " + std::to_string(caller.pid())));
    // With references beside the data.
    constexpr size_t kObjects = 100;
    const size_t beside = NumbersFor(kMaxTransactionBytes - kObjects * (kReferenceBytes + 4));
    EXPECT_EQ(Status(&caller, "objects", kObjects, beside), STATUS_OK);
    EXPECT_EQ(Status(&caller, "objects", kObjects, beside + 1), STATUS_FAILED_TRANSACTION);
    EXPECT_EQ(Status(&caller, "objects", 1), STATUS_OK);
    EXPECT_EQ(caller.Finish(), ExitStatus({0, 0}));
    ExpectUnhurt(0);
}

// One message at a limit of the receiver's, and the same one over it.
struct Edge {
    const char* name;
    RawCall at;
    RawCall over;
};

TEST_F(Limits, AReceiverChecksTheSendersLimitsItself) {
    const std::string letter = LetterData(0, true);
    const RefId id{{1, 2}};
    const auto described = [&](size_t size) {
        return RawCall{target_, kEcho, letter,
                       ObjectEntry(id, kLetterObjectOffset, OwnerKind::kSender, "",
                                   std::string(size, 'd')),
                       1};
    };
    const auto sized = [&](size_t size) {
        return RawCall{target_, kEcho, LetterData(0, false, NumbersFor(size))};
    };
    const auto beside = [&](size_t size) {
        const std::string table = ObjectEntry(id);
        return RawCall{target_, kEcho, LetterData(0, true, NumbersFor(size - table.size())), table,
                       1};
    };
    const auto deep = [&](uint32_t depth) {
        return RawCall{target_, kEcho, LetterData(0), "", 0, depth};
    };
    const std::vector<Edge> edges = {
            {"data", sized(kMaxTransactionBytes), sized(kMaxTransactionBytes + 4)},
            {"references", beside(kMaxTransactionBytes), beside(kMaxTransactionBytes + 4)},
            {"depth", deep(kMaxNestingDepth), deep(kMaxNestingDepth + 1)},
            {"descriptor", described(kMaxDescriptorBytes), described(kMaxDescriptorBytes + 1)},
    };
    int warnings = 0;
    for (const Edge& edge : edges) {
        SCOPED_TRACE(edge.name);
        RawPeer peer = NewPeer();
        const auto answer = peer.CallOnce(edge.at);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, STATUS_OK);
        EXPECT_FALSE(peer.CallOnce(edge.over));
        EXPECT_TRUE(peer.control().WaitForEnd());
        ExpectServing(++warnings);
    }
    ExpectUnhurt(warnings);
}

TEST_F(Limits, OnewayCallsOf512KibWaitAndOneMoreCutsTheSender) {
    constexpr size_t kRecord = 4096;
    RawPeer peer = NewPeer();
    RingMemory memory;
    UniqueFd file;
    ASSERT_TRUE(memory.Create(&file));
    RingWriter writer(&memory, file.get());
    RawConnection wake_up = peer.Open(ConnectionKind::kOneway, file.get());
    const auto post = [&](VictimCode code, size_t numbers) {
        const std::string body =
                RawCall{target_, code, LetterData(0, false, numbers), "", 0, 0, 1}.Body();
        uint8_t* place = writer.Begin(body.size());
        ASSERT_NE(place, nullptr);
        memcpy(place, body.data(), body.size());
        if (writer.Publish() != WakeUp::kNone) wake_up.Send("x");
    };
    post(kBlock, 0);
    EXPECT_TRUE(Eventually([&] { return writer.Pending() == 0U; }));
    const size_t numbers = NumbersFor(kRecord - 8 - sizeof(CallBody));
    for (size_t i = 0; i < kMaxOnewayPendingBytes / kRecord; ++i)
        post(kPosted, numbers);
    EXPECT_EQ(writer.Pending(), kMaxOnewayPendingBytes);
    RingControl& control = memory.control();
    EXPECT_TRUE(Eventually([&] { return control.consumed.load() == control.produced.load(); }));
    ExpectServing(0);
    post(kPosted, 0);
    EXPECT_TRUE(peer.control().WaitForEnd());
    ExpectServing(1);
    // What was within the bound is run all the same.
    victim_.Command("unblock");
    EXPECT_TRUE(Eventually([&] { return victim_.Command("posted") == "128"; }));
    wake_up.Close();
    ExpectUnhurt(1);
}

TEST_F(Limits, AProcessHasSixtyFourConnectionsAndNoMore) {
    RawPeer peer = NewPeer();
    RingMemory memory;
    UniqueFd file;
    ASSERT_TRUE(memory.Create(&file));
    RawConnection wake_up = peer.Open(ConnectionKind::kOneway, file.get());
    std::vector<RawConnection> calls;
    while (calls.size() < kMaxConnectionsPerPeer - 2) {
        calls.push_back(peer.Open(ConnectionKind::kCall));
        calls.back().Send(RawCall{target_}.Frame());
        ASSERT_TRUE(calls.back().Receive()) << calls.size();
    }
    ExpectServing(0);
    RawConnection one_more = peer.Open(ConnectionKind::kCall);
    EXPECT_TRUE(one_more.WaitForEnd());
    ExpectServing(1);
    // The others stay, and one that ends makes room.
    calls[0].Send(RawCall{target_}.Frame());
    EXPECT_TRUE(calls[0].Receive());
    calls.pop_back();
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    calls.clear();
    wake_up.Close();
    peer.control().Close();
    ExpectUnhurt(1);
}

TEST_F(Limits, MoreCallersThanConnectionsAllSucceedAndFewConnectionsStay) {
    Helper caller("LimitsCaller");
    EXPECT_EQ(caller.Command("storm 100 50"), "0");
    const int most = before_.descriptors + static_cast<int>(kMaxIdleConnections) + 2;
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(victim_.pid()) <= most; }));
    EXPECT_EQ(caller.Finish(), ExitStatus({0, 0}));
    ExpectUnhurt(0);
}

TEST_F(Limits, APeerHolds262144ObjectsAndNoMore) {
    constexpr size_t kAtOnce = 8192;
    static_assert(kMaxReferencesPerPeer % kAtOnce == 0);
    const std::string exports = victim_.Command("exports");
    RawPeer peer = NewPeer();
    RawConnection connection = peer.Open(ConnectionKind::kCall);
    for (size_t held = 0; held < kMaxReferencesPerPeer; held += kAtOnce)
        ASSERT_EQ(TakeObjects(&connection, target_, kAtOnce), STATUS_OK) << held;
    // Neither as one that a third process has passed on, nor by a call.
    peer.control().Send(RawFrame(FrameType::kAcquire, RawBytes(AcquireBody{target_, 0})));
    auto answer = peer.control().Receive();
    while (answer && answer->type == FrameType::kRelease)
        answer = peer.control().Receive();
    ASSERT_TRUE(answer && answer->type == FrameType::kAcquired);
    EXPECT_EQ(answer->body, RawBytes(AcquireBody{target_, 0}));
    EXPECT_TRUE(victim_.log().WaitForLine("it holds 262144"));
    EXPECT_EQ(TakeObjects(&connection, target_, 1), STATUS_FAILED_TRANSACTION);
    ExpectServing(1);
    peer.control().Close();
    EXPECT_TRUE(Eventually([&] { return victim_.Command("exports") == exports; }));
    ExpectServing(1);
}

TEST_F(Limits, ControlMessagesThatPileUpUnreadCutWhoDoesNotReadThem) {
    constexpr size_t kAnswer = sizeof(FrameHeader) + sizeof(AcquireBody);
    RawPeer peer = NewPeer();
    const std::string ask = RawFrame(FrameType::kAcquire, RawBytes(AcquireBody{{{8, 9}}, 0}));
    std::string many;
    for (size_t i = 0; i < 4096; ++i)
        many += ask;
    const size_t rounds = kMaxControlBacklogBytes / (4096 * kAnswer);
    for (size_t i = 0; i < rounds; ++i)
        ASSERT_TRUE(peer.control().Send(many));
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    ExpectServing(0);
    // What the socket holds comes on top.
    for (size_t i = 0; i < 64 && peer.control().Send(many); ++i) {
    }
    EXPECT_TRUE(peer.control().WaitForEnd());
    ExpectUnhurt(1);
}

}  // namespace
}  // namespace host::testing
