// Labels: memory processes
// Timeout: 300
// Peers that are connected to and do not do what an answer promises: they cost themselves, and
// their deaths are noticed all the same.

#include <chrono>
#include <filesystem>
#include <sstream>

#include "siege.h"

namespace host::testing {
namespace {

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
        const RawPeer peer(folder, victim, listener->name());
        RawConnection connection = peer.Open(ConnectionKind::kCall);
        return std::string(TakeObjects(&connection, NameFrom(target), 10) ? "served" : "cut");
    });
    return 0;
}

// Listens, but for six seconds has no descriptor for anybody, as it seems. Arguments: folder.
// Answers with its name, then with what has come of the call that was accepted meanwhile.
HOST_HELPER(Starving) {
    using Clock = std::chrono::steady_clock;
    RawListener listener(channel.arguments()[0]);
    std::optional<RawConnection> control;
    channel.Serve([&](const std::string& line) -> std::string {
        if (line == "name") return listener.name();
        const auto end = Clock::now() + std::chrono::seconds(6);
        while (Clock::now() < end) {
            UniqueFd unwanted;
            listener.Accept(&unwanted);
        }
        UniqueFd file;
        std::optional<RawConnection> wake_up;
        while (!control || !wake_up) {
            UniqueFd received;
            RawConnection connection = listener.Accept(&received);
            if (connection.fd() < 0) return "forgotten";
            if (!received.ok()) connection.Send(RawFrame(FrameType::kWelcome, ""));
            (received.ok() ? wake_up : control).emplace(std::move(connection));
            if (received.ok()) file = std::move(received);
        }
        RingMemory memory;
        return memory.Map(file.get()) && memory.control().produced.load() > 0 ? "called" : "left";
    });
    return 0;
}

TEST_F(Siege, ALivingProcessThatTakesNoConnectionForSecondsGetsWhatWasAcceptedForIt) {
    Helper starving("Starving", {host_.path()});
    RawPeer peer = NewPeer();
    const std::string name = starving.Command("name");
    starving.Send("serve");
    EXPECT_EQ(peer.CallOnce(PassingOn(target_, {{{{3, 4}}, name}}, kPostTo))->status, STATUS_OK);
    EXPECT_TRUE(victim_.log().WaitForLine("No control connection is taken by pid " +
                                          std::to_string(starving.pid())));
    EXPECT_EQ(starving.WaitForAnswer(), "called");
    EXPECT_EQ(victim_.log().Count("pid " + std::to_string(starving.pid()) + " uid"), 1);
    starving.process().Kill();
    peer.control().Close();
    ExpectUnhurt(0);
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
        ASSERT_EQ(peer.CallOnce(PassingOn(target_, {{{{3, 4}}, name}}))->status, STATUS_OK);
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
