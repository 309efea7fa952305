// Labels: memory processes
// Timeout: 300
// Peers that are connected to and do not do what an answer promises: they cost themselves, and
// their deaths are noticed all the same.

#include <filesystem>
#include <sstream>

#include "siege.h"

namespace host::testing {
namespace {

constexpr int kHandedOver = 10;

// Has the victim hand objects over in a call; what the call answers.
std::string TakeObjects(const RawPeer& peer, const RefId& target) {
    RawConnection connection = peer.Open(ConnectionKind::kCall);
    connection.Send(RawCall{target, kFlood, LetterData(kHandedOver, true), ObjectEntry({{1, 2}}), 1}
                            .Frame());
    for (auto frame = connection.Receive(); frame; frame = connection.Receive()) {
        if (frame->type == FrameType::kReply) return "served";
        connection.Send(RawReply(STATUS_OK, LetterData(0).substr(16)));
    }
    return "cut";
}

// Listens, and says that its own attempt stays where there is none.
HOST_HELPER(Yielder) {
    std::optional<RawListener> listener;
    channel.Serve([&listener](const std::string& line) {
        std::istringstream words(line);
        std::string folder, target;
        pid_t victim = 0;
        words >> folder >> victim;
        if (!listener) {
            listener.emplace(folder);
            return listener->name();
        }
        std::getline(words, target);
        RawConnection control = listener->Accept();
        control.Send(RawFrame(FrameType::kYield, ""));
        if (!control.WaitForEnd()) return std::string("kept");
        return TakeObjects(RawPeer(folder, victim, listener->name()), NameFrom(target));
    });
    return 0;
}

// Started before the victim it has the smaller name, unless the numbers have come round.
struct EarlyYielder {
    Helper early_{"Yielder"};
};

class Yielders : protected EarlyYielder, public Siege {};

TEST_F(Yielders, WhoYieldsWithoutAnAttemptOfItsOwnDiesLikeAnybody) {
    const std::string exports = victim_.Command("exports");
    RawPeer peer = NewPeer();
    const std::string victim = std::filesystem::path(peer.path()).filename();
    Helper late("Yielder");
    for (Helper* yielder : {&early_, &late}) {
        const std::string where = host_.path() + " " + std::to_string(victim_.pid());
        const std::string name = yielder->Command(where);
        SCOPED_TRACE(name + " yields to " + victim);
        yielder->Send(where + " " + WordsOf(target_));
        const RawCall to_it{target_, kEcho, LetterData(0, true),
                            ObjectEntry({{3, 4}}, kLetterObjectOffset, OwnerKind::kOther, name), 1};
        ASSERT_EQ(peer.CallOnce(to_it)->status, STATUS_OK);
        // Only the attempt of the smaller name stays: from the other one it is no answer.
        EXPECT_EQ(yielder->WaitForAnswer(), name < victim ? "served" : "cut");
        EXPECT_EQ(victim_.Command("exports") != exports, name < victim);
        yielder->process().Kill();
        EXPECT_TRUE(Eventually([&] { return victim_.Command("exports") == exports; }));
    }
    peer.control().Close();
    ExpectUnhurt(0);
}

}  // namespace
}  // namespace host::testing
