// Labels: memory processes
// Timeout: 300
// Native Siege.ConnectionsThatBeginWrongAreCutOneByOne: emulators leak such descriptors.
// Bytes that no process of ours sends: whoever sends them loses its connections and gets one line
// in the log, and nobody else notices.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>

#include "frame.h"
#include "mailbox.h"
#include "pool.h"
#include "siege.h"

namespace host::testing {
namespace {

constexpr int kRingSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
constexpr RefId kForged = {{0x1234, 0x5678}};

// The same frame with the mark of another protocol. Content of any other kind is what message_fuzz
// makes.
std::string Foreign(std::string frame) {
    return frame.replace(offsetof(FrameHeader, magic), sizeof(kFrameMagic), "??");
}

// A sequence of first bytes that is refused before a peer has come to be, with what comes along.
struct BadHello {
    const char* name;
    std::string bytes;
    std::vector<int> descriptors = {};
};

TEST_F(Siege, ConnectionsThatBeginWrongAreCutOneByOne) {
    const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    const UniqueFd small = MemoryFile(4096, kRingSeals);
    const UniqueFd unsealed = MemoryFile(RingMemory::kTotalBytes, F_SEAL_SEAL);
    const UniqueFd read_only = MemoryFile(RingMemory::kTotalBytes, kRingSeals | F_SEAL_WRITE);
    const UniqueFd ring = MemoryFile(RingMemory::kTotalBytes, kRingSeals);
    RawPeer peer = NewPeer();
    const std::string name = peer.name();
    const std::string stranger = std::to_string(getpid()) + "-00000000ffffffff";
    const auto control = ConnectionKind::kControl;
    const auto call = ConnectionKind::kCall;
    const auto oneway = ConnectionKind::kOneway;
    const std::vector<BadHello> cases = {
            {"another protocol's frame", Foreign(RawHello(call, name))},
            {"another version", RawHello(call, name, kProtocolVersion + 1)},
            {"a body of another size", WithNumber(RawHello(call, name), 0, 40)},
            {"a call first", RawCall{target_}.Frame().substr(0, 64)},
            {"a kind that does not exist",
             WithNumber(RawHello(call, name), sizeof(FrameHeader) + offsetof(HelloBody, kind), 9)},
            {"another process's name", RawHello(call, "1-0123456789abcdef")},
            {"no name", RawHello(call, "")},
            {"a name without an end", RawHello(call, std::string(kEndpointNameSize, '1'))},
            {"a second name", RawHello(control, stranger)},
            {"a second control connection", RawHello(control, name)},
            {"a call connection of nobody", RawHello(call, stranger)},
            {"a oneway connection of nobody", RawHello(oneway, stranger), {ring.get()}},
            {"control with a descriptor", RawHello(control, name), {null.get()}},
            {"calls with a descriptor", RawHello(call, name), {null.get()}},
            {"oneway without one", RawHello(oneway, name)},
            {"oneway with two", RawHello(oneway, name), {ring.get(), ring.get()}},
            {"oneway with ten", RawHello(oneway, name), std::vector<int>(10, ring.get())},
            {"a device for a ring", RawHello(oneway, name), {null.get()}},
            {"a ring too small", RawHello(oneway, name), {small.get()}},
            {"a ring that can shrink", RawHello(oneway, name), {unsealed.get()}},
            {"a ring nobody can write", RawHello(oneway, name), {read_only.get()}},
            {"another size announced", RawHello(oneway, name, 1, 4096), {ring.get()}},
    };
    int warnings = 0;
    for (const BadHello& bad : cases) {
        SCOPED_TRACE(bad.name);
        RawConnection connection = peer.Connect();
        connection.Send(bad.bytes, bad.descriptors);
        EXPECT_TRUE(connection.WaitForEnd());
        ExpectServing(++warnings);
    }
    // The peer itself has done nothing wrong: bad connections are cut one by one.
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    RawConnection truncated = peer.Connect();
    truncated.Send(RawHello(call, name).substr(0, 20));
    truncated.Close();
    ExpectServing(++warnings);
    peer.control().Close();
    ExpectUnhurt(warnings);
}

// What a peer sends on one kind of connection, after which everything of it is cut.
struct BadBytes {
    std::string name;
    std::string bytes;
    std::vector<int> descriptors = {};
};

class CutPeers : public Siege {
  protected:
    void ExpectAllCut(ConnectionKind kind, const std::vector<BadBytes>& cases) {
        int warnings = 0;
        for (const BadBytes& bad : cases) {
            SCOPED_TRACE(bad.name);
            RawPeer peer = NewPeer();
            RawConnection other = peer.Open(ConnectionKind::kCall);
            std::optional<RawConnection> opened;
            if (kind == ConnectionKind::kCall) opened.emplace(peer.Open(kind));
            RawConnection& used = opened ? *opened : peer.control();
            used.Send(bad.bytes, bad.descriptors);
            EXPECT_TRUE(peer.control().WaitForEnd());
            EXPECT_TRUE(used.WaitForEnd());
            EXPECT_TRUE(other.WaitForEnd());
            ExpectServing(++warnings);
        }
        ExpectUnhurt(warnings);
    }
};

TEST_F(CutPeers, MalformedControlMessagesCutThePeer) {
    const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    const std::string settled_nothing = RawBytes(SettledBody{{}, kForged});
    SettledBody settled{};
    snprintf(settled.owner, sizeof(settled.owner), "%d-0123456789abcdef", getpid());
    const auto acquire = RawFrame(FrameType::kAcquire, RawBytes(AcquireBody{target_, 0}));
    const auto release = [this](uint32_t arrivals) {
        return RawFrame(FrameType::kRelease, RawBytes(ReleaseBody{target_, arrivals, 0}));
    };
    const std::vector<BadBytes> cases = {
            {"a second hello", RawHello(ConnectionKind::kControl, "1-0123456789abcdef")},
            {"another protocol's frame", Foreign(acquire)},
            {"a call", RawCall{target_}.Frame()},
            {"a reply", RawReply(0, "")},
            {"a type that does not exist", RawFrame(static_cast<FrameType>(12), "")},
            {"a body too short", RawFrame(FrameType::kAcquire, std::string(20, '\0'))},
            {"a body where none belongs", RawFrame(FrameType::kWelcome, std::string(4, '\0'))},
            {"a body of 4 GiB", WithNumber(acquire, 0, UINT32_MAX)},
            {"a release of nothing", release(0)},
            {"a release of more than is held", acquire + release(2)},
            {"an answer nobody asked for",
             RawFrame(FrameType::kAcquired, RawBytes(AcquireBody{target_, 1}))},
            {"a settlement nobody waits for", RawFrame(FrameType::kSettled, RawBytes(settled))},
            {"a settlement without an owner", RawFrame(FrameType::kSettled, settled_nothing)},
            {"a settlement whose owner has no end",
             RawFrame(FrameType::kSettled, std::string(sizeof(SettledBody), '1'))},
            {"a descriptor", acquire, {null.get()}},
    };
    ExpectAllCut(ConnectionKind::kControl, cases);
}

TEST_F(CutPeers, MalformedCallsCutThePeer) {
    const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    const std::string good = RawCall{target_}.Frame();
    const auto with = [this](const std::string& data, const std::string& objects, uint32_t count) {
        return RawCall{target_, kEcho, data, objects, count}.Frame();
    };
    const auto at = [&](uint32_t offset) {
        return with(LetterData(0, true), ObjectEntry(kForged, offset), 1);
    };
    std::string long_owner = ObjectEntry(kForged, 20, OwnerKind::kOther, std::string(48, '1'));
    const std::string letter = LetterData(0, true);
    const std::string body = RawCall{target_}.Body();
    const auto sized = [](const std::string& bytes, size_t offset, uint32_t size) {
        return RawFrame(FrameType::kCall, WithNumber(bytes, offset, size));
    };
    constexpr size_t kData = offsetof(CallBody, data_size);
    constexpr size_t kTable = offsetof(CallBody, objects_size);
    constexpr uint32_t kHuge = 0xffffffe0;
    const std::vector<BadBytes> cases = {
            {"a reply", RawReply(0, "")},
            {"a hello", RawHello(ConnectionKind::kCall, "1-0123456789abcdef")},
            {"another protocol's frame", Foreign(good)},
            {"no depth", RawCall{target_, kEcho, letter, "", 0, 0}.Frame()},
            {"oneway", RawCall{target_, kEcho, letter, "", 0, 1, 1}.Frame()},
            {"more data than there is", sized(body, kData, kHuge)},
            {"more references than there are", sized(body, kTable, kHuge)},
            {"sizes whose sum wraps to what there is",
             sized(WithNumber(body, kTable, body.size() - sizeof(CallBody) + 32), kData, kHuge)},
            {"bytes behind the end", RawFrame(FrameType::kCall, body + "rest")},
            {"a size that is not aligned", WithNumber(good, 0, sizeof(CallBody) + 41)},
            {"a body too short", WithNumber(good, 0, sizeof(CallBody) - 4)},
            {"a count without entries", with(letter, "", 1)},
            {"entries that are not counted", with(letter, ObjectEntry(kForged), 0)},
            {"half an entry", with(letter, ObjectEntry(kForged).substr(0, 24), 1)},
            {"a count beyond all bounds", with(letter, ObjectEntry(kForged), UINT32_MAX)},
            {"an owner of no kind",
             with(letter, WithNumber(ObjectEntry(kForged), offsetof(WireObject, owner_kind), 7),
                  1)},
            {"an owner's name too long", with(letter, long_owner, 1)},
            {"an owner's name that is none",
             with(letter, ObjectEntry(kForged, 20, OwnerKind::kOther, "../../etc/passwd"), 1)},
            {"an owner named where none belongs",
             with(letter, ObjectEntry(kForged, 20, OwnerKind::kSender, "1-0123456789abcdef"), 1)},
            {"an offset that is not aligned", at(21)},
            {"an offset behind the data", at(0x7ffffffc)},
            {"an offset at which no index stands", at(0)},
            {"a descriptor", good, {null.get()}},
            {"a descriptor with half a message", good.substr(0, 30), {null.get()}},
    };
    ExpectAllCut(ConnectionKind::kCall, cases);
}

// A caller that speaks through a mailbox by hand.
class RawMailbox {
  public:
    explicit RawMailbox(RawConnection connection) : connection_(std::move(connection)) {
        UniqueFd file;
        EXPECT_TRUE(box_.Create(&file));
        connection_.Send(RawFrame(FrameType::kMailbox, ""), {file.get()});
    }

    Mailbox& box() { return box_; }
    RawConnection& connection() { return connection_; }

    void Put(const std::string& frame) {
        memcpy(box_.place(), frame.data(), std::min(frame.size(), Mailbox::kMaxFrame));
        box_.Put(frame.size());
    }
    void Knock() { connection_.Send(RawFrame(FrameType::kKnock, "")); }

    // What the victim has put for a mailbox that is looked into.
    Mailbox::Taken Take() {
        auto taken = Mailbox::Taken::kNothing;
        taken_.Clear();
        Eventually([&] { return (taken = box_.Take(&taken_)) != Mailbox::Taken::kNothing; });
        return taken;
    }
    bool TakesAnAnswer() {
        if (Take() != Mailbox::Taken::kFrame || taken_.size() < sizeof(FrameHeader)) return false;
        const auto header = CopyOut<FrameHeader>(taken_.data());
        return header.type == static_cast<uint16_t>(FrameType::kReply) &&
               taken_.size() == sizeof(header) + header.body_size;
    }
    bool ReceivesAnAnswer() {
        const auto answer = connection_.Receive();
        return answer && answer->type == FrameType::kReply;
    }

  private:
    Mailbox box_;
    RawConnection connection_;
    Buffer taken_;
};

TEST_F(Siege, AnswersGoWhereTheirCallerLooks) {
    RawPeer peer = NewPeer();
    const std::string call = RawCall{target_}.Frame();
    {
        RawMailbox mailbox(peer.Open(ConnectionKind::kCall));
        mailbox.connection().Send(call);
        EXPECT_TRUE(mailbox.ReceivesAnAnswer()) << "nobody looks";
        mailbox.box().Look(Mailbox::Watch::kAwake);
        mailbox.connection().Send(call);
        EXPECT_TRUE(mailbox.TakesAnAnswer());
        mailbox.Put(call);
        mailbox.Knock();
        EXPECT_TRUE(mailbox.TakesAnAnswer());
        mailbox.connection().Send(RawCall{target_, kBig, LetterData(4096)}.Frame());
        EXPECT_EQ(mailbox.Take(), Mailbox::Taken::kSocket) << "too large for the mailbox";
        EXPECT_TRUE(mailbox.ReceivesAnAnswer());
        // Knocks for nothing, alone and ahead of a call.
        mailbox.Knock();
        mailbox.connection().Send(RawFrame(FrameType::kKnock, "") + call);
        EXPECT_TRUE(mailbox.TakesAnAnswer());
        mailbox.box().LookAway();
        mailbox.Put(call);
        mailbox.Knock();
        EXPECT_TRUE(mailbox.ReceivesAnAnswer());
    }
    peer.control().Close();
    ExpectUnhurt(0);
}

TEST_F(CutPeers, MisusedMailboxesCutThePeer) {
    const UniqueFd small = MemoryFile(4096, kRingSeals);
    const UniqueFd unsealed = MemoryFile(2 * 4096, F_SEAL_SEAL);
    const std::string offer = RawFrame(FrameType::kMailbox, "");
    ExpectAllCut(ConnectionKind::kCall, {
                                                {"an offer of nothing", offer},
                                                {"memory too small", offer, {small.get()}},
                                                {"memory that can shrink", offer, {unsealed.get()}},
                                                {"a knock", RawFrame(FrameType::kKnock, "")},
                                        });
    const std::string call = RawCall{target_}.Frame();
    const std::vector<std::pair<std::string, std::function<void(RawMailbox*)>>> cases = {
            {"a second offer",
             [&](RawMailbox* mailbox) { mailbox->connection().Send(offer, {unsealed.get()}); }},
            {"a frame larger than its place",
             [&](RawMailbox* mailbox) { mailbox->Put(std::string(Mailbox::kMaxFrame + 1, '1')); }},
            {"a frame that is none", [&](RawMailbox* mailbox) { mailbox->Put("not a frame"); }},
            {"a frame and more", [&](RawMailbox* mailbox) { mailbox->Put(call + offer); }},
            {"an answer to nothing", [&](RawMailbox* mailbox) { mailbox->Put(RawReply(0, "")); }},
    };
    int warnings = 4;
    for (const auto& [name, misuse] : cases) {
        SCOPED_TRACE(name);
        RawPeer peer = NewPeer();
        RawMailbox mailbox(peer.Open(ConnectionKind::kCall));
        misuse(&mailbox);
        mailbox.Knock();
        EXPECT_TRUE(peer.control().WaitForEnd());
        ExpectServing(++warnings);
    }
    ExpectUnhurt(warnings);
}

// The end of such a connection may be there before the victim has begun to watch it.
TEST_F(Siege, CallsWhoseCallersAreGoneAtOnceRunOnceAtMost) {
    constexpr int kCallers = 2000;
    RawPeer peer = NewPeer();
    for (int i = 0; i < kCallers; ++i)
        EXPECT_TRUE(peer.Open(ConnectionKind::kCall).Send(RawCall{target_, kPosted}.Frame()));
    peer.control().Close();
    ExpectUnhurt(0);
    const int ran = std::stoi(victim_.Command("posted"));
    EXPECT_GT(ran, 0);
    EXPECT_LE(ran, kCallers);
}

TEST_F(Siege, ForgedAndStaleReferencesReachNothingAndCutNobody) {
    RawPeer peer = NewPeer();
    EXPECT_EQ(peer.CallOnce({kForged})->status, STATUS_DEAD_OBJECT);
    RefId near = target_;
    near.bits[3] ^= 1;
    EXPECT_EQ(peer.CallOnce({near})->status, STATUS_DEAD_OBJECT);
    RefId elsewhere = target_;
    for (uint32_t place : {target_.place ^ 1, UINT32_MAX}) {
        elsewhere.place = place;
        EXPECT_EQ(peer.CallOnce({elsewhere})->status, STATUS_DEAD_OBJECT);
    }
    EXPECT_EQ(peer.CallOnce({target_, kEcho, LetterData(7).replace(4, 4, "evil")})->status,
              STATUS_BAD_TYPE);
    EXPECT_EQ(peer.CallOnce({target_, 99})->status, STATUS_UNKNOWN_TRANSACTION);
    // An object that the victim is said to own arrives as one that is dead, and may be dropped.
    RawCall own{target_, kKeep, LetterData(0, true),
                ObjectEntry(kForged, kLetterObjectOffset, OwnerKind::kReceiver), 1};
    EXPECT_EQ(peer.CallOnce(own)->status, STATUS_OK);
    // So does one of a process that never was.
    RawCall nobody{target_, kKeep, LetterData(0, true),
                   ObjectEntry(kForged, kLetterObjectOffset, OwnerKind::kOther,
                               "999999999-0123456789abcdef"),
                   1};
    EXPECT_EQ(peer.CallOnce(nobody)->status, STATUS_OK);
    peer.control().Send(RawFrame(FrameType::kAcquire, RawBytes(AcquireBody{kForged, 1})));
    // The reference to nobody's object is settled first: nobody waits for it.
    auto settled = peer.control().Receive();
    ASSERT_TRUE(settled && settled->type == FrameType::kSettled);
    auto answer = peer.control().Receive();
    ASSERT_TRUE(answer && answer->type == FrameType::kAcquired);
    AcquireBody refused;
    memcpy(&refused, answer->body.data(), sizeof(refused));
    EXPECT_EQ(refused.granted, 0U);
    // A release of what is not held at all, and answers to nothing that change nothing.
    peer.control().Send(RawFrame(FrameType::kRelease, RawBytes(ReleaseBody{kForged, 5, 0})) +
                        RawFrame(FrameType::kYield, "") + RawFrame(FrameType::kWelcome, ""));
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    peer.control().Close();
    ExpectUnhurt(0);
}

TEST_F(Siege, WhatAPeerSaysFalselyOfAnothersObjectDoesNotStickToIt) {
    const Bystander owner("owner");
    Bystander finder("finder");
    RawPeer peer(host_.path(), finder.process.pid());
    ASSERT_TRUE(peer.Begin());
    const std::string lie = ObjectEntry(owner.object.id, kLetterObjectOffset, OwnerKind::kOther,
                                        owner.object.owner, "test.IOther");
    const RawCall call{finder.object.id, kKeep, LetterData(0, true), lie, 1};
    EXPECT_EQ(peer.CallOnce(call)->status, STATUS_OK);
    EXPECT_EQ(finder.process.Command("owner"), "0");
    EXPECT_EQ(peer.CallOnce(call)->status, STATUS_OK);
    EXPECT_EQ(finder.process.Command("owner"), "0");
}

// The victim calls an object of the peer, which answers badly.
TEST_F(Siege, BadAnswersCutWhoGivesThem) {
    const UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
    const int all = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    const UniqueFd sealed = MemoryFile(100, all);
    const UniqueFd unsealed = MemoryFile(100, F_SEAL_SHRINK | F_SEAL_GROW);
    const std::string size = RawBytes(uint64_t{100});
    const std::string larger = RawBytes(uint64_t{1} << 40);
    const auto memory = kReplyCarriesMemory;
    const std::string reply = RawReply(0, LetterData(1).substr(16));
    struct Case {
        const char* name;
        VictimCode code;
        std::string bytes;
        std::vector<int> descriptors = {};
    };
    const std::vector<Case> cases = {
            {"a welcome", kCallBack, RawFrame(FrameType::kWelcome, "")},
            {"a size that is wrong", kCallBack,
             WithNumber(reply, 0, sizeof(ReplyBody) + 400) + std::string(400, '\0')},
            {"a descriptor nobody asked for", kCallBack, reply, {null.get()}},
            {"a call back that is not nested", kCallBack, RawCall{target_}.Frame()},
            {"a dump that is not sealed", kDumpIt, RawReply(0, size, memory), {unsealed.get()}},
            {"a dump of another size", kDumpIt, RawReply(0, larger, memory), {sealed.get()}},
            {"a dump in a device", kDumpIt, RawReply(0, size, memory), {null.get()}},
            {"two dumps at once", kDumpIt, RawReply(0, size, memory), {sealed.get(), sealed.get()}},
            {"a dump without its size", kDumpIt, RawReply(0, "", memory), {sealed.get()}},
    };
    int warnings = 0;
    for (const Case& bad : cases) {
        SCOPED_TRACE(bad.name);
        RawPeer peer = NewPeer();
        RawConnection connection = peer.Open(ConnectionKind::kCall);
        connection.Send(Handing(target_, bad.code).Frame());
        auto call_back = connection.Receive();
        ASSERT_TRUE(call_back && call_back->type == FrameType::kCall);
        connection.Send(bad.bytes, bad.descriptors);
        EXPECT_TRUE(peer.control().WaitForEnd());
        ExpectServing(++warnings);
    }
    ExpectUnhurt(warnings);
}

TEST_F(Siege, TwoThousandSilentConnectionsPushOutTheOldestBeyondSixtyFourAndDisturbNobody) {
    constexpr int kConnections = 2000;
    constexpr int kBurst = 100;
    constexpr int kMost = static_cast<int>(kMaxNewcomers);
    RawPeer peer(host_.path(), victim_.pid());
    std::vector<RawConnection> silent;
    while (silent.size() < kMost)
        silent.push_back(peer.Connect());
    ExpectServing(0);
    silent.push_back(peer.Connect());
    EXPECT_TRUE(silent[0].WaitForEnd());
    ExpectServing(1);
    EXPECT_FALSE(silent[1].WaitForEnd(std::chrono::milliseconds(0)));
    while (silent.size() < kConnections) {
        silent.push_back(peer.Connect());
        // In bursts, so that no line of the log finds its pipe full.
        const int gone = static_cast<int>(silent.size()) - kMost;
        if (silent.size() % kBurst != 0) continue;
        EXPECT_TRUE(Eventually([&] { return Warnings() >= gone; }));
    }
    // The healthy client's own connections are new for a moment, too, and push one out.
    ExpectServing(kConnections - kMost, 2);
    const int gone = Warnings();
    // A client that comes now is served: it pushes out one of those that say nothing.
    ASSERT_TRUE(peer.Begin());
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    EXPECT_FALSE(silent.back().WaitForEnd(std::chrono::milliseconds(0)));
    ExpectServing(gone, 2);
    const int warnings = Warnings();
    silent.clear();
    peer.control().Close();
    ExpectUnhurt(warnings);
}

}  // namespace
}  // namespace host::testing
