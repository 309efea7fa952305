// Labels: memory processes
// Rings of shared memory, written by hand: what no writer of ours writes cuts the writer, and what
// no reader of ours says cuts the reader.

#include <unistd.h>

#include "siege.h"

namespace host::testing {
namespace {

// AddressSanitizer keeps 256 MiB of what was freed.
constexpr int64_t kMaxGrowthKib = Rounds(16 * 1024, 400 * 1024);

// The writing end of a ring, with nothing to keep it from writing nonsense.
class RawRing {
  public:
    RawRing() { EXPECT_TRUE(memory_.Create(&file_)); }

    int file() const { return file_.get(); }
    RingControl& control() { return memory_.control(); }

    // Writes a record with that header without publishing it.
    void Put(uint32_t size, uint32_t is_pad, const std::string& body) {
        const std::string record = RawBytes(size) + RawBytes(is_pad) + body;
        memcpy(memory_.data() + end_ % RingMemory::kDataBytes, record.data(), record.size());
        end_ += size;
    }
    // A whole one, as it should be.
    void PutCall(const RawCall& call) {
        const std::string body = call.Body();
        Put(static_cast<uint32_t>(RingWriter::RecordSize(body.size())), 0, body);
    }
    void Publish() { control().produced.store(end_); }
    uint64_t end() const { return end_; }

  private:
    RingMemory memory_;
    UniqueFd file_;
    uint64_t end_ = 0;
};

RawCall Oneway(const RefId& target, uint32_t code = kPosted) {
    return {target, code, LetterData(1), "", 0, 0, FLAG_ONEWAY};
}

TEST_F(Siege, AMalformedRingCutsWhoWroteIt) {
    const std::string good = Oneway(target_).Body();
    const auto record = [](const std::string& body) {
        return [body](RawRing& ring) {
            ring.Put(static_cast<uint32_t>(RingWriter::RecordSize(body.size())), 0, body);
        };
    };
    RawCall two_way = Oneway(target_);
    two_way.flags = 0;
    RawCall deep = Oneway(target_);
    deep.depth = 1;
    RawCall counted = Oneway(target_);
    counted.object_count = 1;
    const std::string larger = WithNumber(good, offsetof(CallBody, data_size), 0xfffffff0);

    struct Case {
        const char* name;
        std::function<void(RawRing&)> write;
    };
    const std::vector<Case> cases = {
            {"a position behind the ring",
             [](RawRing& ring) { ring.Put(RingMemory::kDataBytes + 8, 0, ""); }},
            {"a position before the start", [](RawRing& ring) { ring.Put(0xfffffff8, 0, ""); }},
            {"a position within a header", [](RawRing& ring) { ring.Put(4, 0, ""); }},
            {"a record of no size",
             [&](RawRing& ring) {
                 ring.PutCall(Oneway(target_));
                 ring.Put(0, 0, "");
                 ring.control().produced.store(ring.end() + 64);
             }},
            {"a size that is not aligned", [&](RawRing& ring) { ring.Put(84, 0, good); }},
            {"a record longer than what was written",
             [&](RawRing& ring) {
                 ring.Put(4096, 0, good);
                 ring.control().produced.store(64);
             }},
            {"pads without a record",
             [](RawRing& ring) {
                 for (int i = 0; i < 4; ++i)
                     ring.Put(8, 1, "");
             }},
            {"a record without a call", record("12345678")},
            {"a two-way call", record(two_way.Body())},
            {"a call with a depth", record(deep.Body())},
            {"more data than there is", record(larger)},
            {"references that are not there", record(counted.Body())},
    };
    int warnings = 0;
    for (const Case& bad : cases) {
        SCOPED_TRACE(bad.name);
        RawPeer peer = NewPeer();
        RawRing ring;
        RawConnection wake_up = peer.Open(ConnectionKind::kOneway, ring.file());
        bad.write(ring);
        if (ring.control().produced.load() == 0) ring.Publish();
        wake_up.Send("x");
        EXPECT_TRUE(peer.control().WaitForEnd());
        ExpectServing(++warnings);
    }
    ExpectUnhurt(warnings);
}

TEST_F(Siege, ASecondRingAndADescriptorOnTheWakeUpSocketAreCut) {
    const UniqueFd extra = MemoryFile(1, 0);
    RawPeer peer = NewPeer();
    RawRing ring;
    RawConnection wake_up = peer.Open(ConnectionKind::kOneway, ring.file());
    ring.PutCall(Oneway(target_));
    ring.Publish();
    wake_up.Send("x");
    EXPECT_TRUE(Eventually([&] { return victim_.Command("posted") == "1"; }));
    RawConnection second = peer.Open(ConnectionKind::kOneway, ring.file());
    EXPECT_TRUE(second.WaitForEnd());
    ExpectServing(1);
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    wake_up.Send("x", {extra.get()});
    EXPECT_TRUE(peer.control().WaitForEnd());
    ExpectUnhurt(2);
}

// Calls to objects that are gone leave nothing behind, however many come, and take no thread away
// from others; nor do wake-ups without a call.
TEST_F(Siege, AFloodOfOnewayCallsToNobodyCostsNoMemory) {
    RawPeer peer = NewPeer();
    RawRing ring;
    RawConnection wake_up = peer.Open(ConnectionKind::kOneway, ring.file());
    const int64_t before = ResidentKib(victim_.pid());
    const RefId nobody{{5, 6}};
    constexpr uint64_t kFlood = 32 * RingMemory::kDataBytes;
    const size_t size = RingWriter::RecordSize(Oneway(nobody).Body().size());
    while (ring.end() < kFlood) {
        const size_t to_end = RingMemory::kDataBytes - ring.end() % RingMemory::kDataBytes;
        const size_t wanted = to_end < size ? to_end : size;
        const bool room = Eventually([&] {
            const uint64_t consumed = ring.control().consumed.load();
            return ring.end() + wanted - consumed <= RingMemory::kDataBytes;
        });
        ASSERT_TRUE(room) << "the victim has stopped reading";
        if (to_end < size) {
            ring.Put(static_cast<uint32_t>(to_end), 1, "");
        } else {
            ring.PutCall(Oneway(nobody));
        }
        ring.Publish();
        // More than was asked for now and then, but no more than the socket takes.
        const bool asked = ring.control().sleeping.exchange(0) != 0;
        if (ring.end() % (kFlood / 64) < size) wake_up.Send(std::string(100, 'x'));
        if (asked) wake_up.Send("x");
    }
    wake_up.Send("x");
    EXPECT_TRUE(Eventually([&] { return ring.control().finished.load() > kFlood / 2; }));
    EXPECT_LT(ResidentKib(victim_.pid()) - before, kMaxGrowthKib);
    ring.PutCall(Oneway(target_));
    ring.Publish();
    wake_up.Send("x");
    EXPECT_TRUE(Eventually([&] { return victim_.Command("posted") == "1"; }));
    ExpectServing(0);
    peer.control().Close();
    wake_up.Close();
    ExpectUnhurt(0);
}

// The victim writes, and the reader moves its positions to where they cannot be.
TEST_F(Siege, AReaderWithImpossiblePositionsIsCut) {
    struct Case {
        const char* name;
        std::function<void(RingControl&)> spoil;
    };
    const std::vector<Case> cases = {
            {"more finished than sent", [](RingControl& c) { c.finished.store(1 << 30); }},
            {"more consumed than sent", [](RingControl& c) { c.consumed.store(1 << 30); }},
            {"consumed before the start", [](RingControl& c) { c.consumed.store(UINT64_MAX); }},
    };
    int warnings = 0;
    for (const Case& bad : cases) {
        SCOPED_TRACE(bad.name);
        RawListener listener(host_.path());
        RawPeer peer(host_.path(), victim_.pid(), listener.name());
        ASSERT_TRUE(peer.Begin());
        const RawCall post = Handing(target_, kPostTo);
        ASSERT_EQ(peer.CallOnce(post)->status, STATUS_OK);
        UniqueFd file;
        RawConnection wake_up = listener.Accept(&file);
        RingMemory memory;
        ASSERT_TRUE(memory.Map(file.get()));
        EXPECT_GT(memory.control().produced.load(), 0U);
        bad.spoil(memory.control());
        peer.CallOnce(post);
        EXPECT_TRUE(peer.control().WaitForEnd());
        ExpectServing(++warnings);
    }
    ExpectUnhurt(warnings);
}

}  // namespace
}  // namespace host::testing
