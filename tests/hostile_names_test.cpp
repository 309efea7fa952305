// Labels: memory processes
// Timeout: 300
// References whose owners are named by somebody who makes the names up: they cost the receiver
// neither descriptors nor time, and who passes them on gets one line in the log.

#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "siege.h"

namespace host::testing {
namespace {

constexpr char kRefused[] = "name owners that are not looked for";

// Commands: "listen FOLDER", one more socket, whose name it answers; "link FOLDER N", so many more
// names for the first one; "fill FOLDER", its queue; "call FOLDER VICTIM TARGET", under its name;
// "accept", takes what waits there and keeps it; how many.
HOST_HELPER(Names) {
    std::vector<std::unique_ptr<RawListener>> listeners;
    std::vector<RawConnection> taken;
    std::vector<UniqueFd> waiting;
    channel.Serve([&](const std::string& line) {
        std::istringstream words(line);
        std::string verb, folder;
        int count = 0;
        words >> verb >> folder >> count;
        if (verb == "listen") {
            listeners.push_back(std::make_unique<RawListener>(folder));
            return listeners.back()->name();
        }
        if (verb == "fill") {
            while (listeners[0]->Knock(&waiting)) {
            }
            return std::to_string(waiting.size());
        }
        if (verb == "call") {
            std::string target;
            std::getline(words >> std::ws, target);
            const RawPeer peer(folder, count, listeners[0]->name());
            const auto answer = peer.CallOnce({NameFrom(target)});
            return answer ? std::to_string(answer->status) : std::string("cut");
        }
        for (int i = 0; i < count; ++i) {
            const std::string link = folder + "/" + NextPeerName();
            if (symlink(listeners[0]->name().c_str(), link.c_str()) != 0) return std::string("no");
        }
        while (verb == "accept" && listeners[0]->IsConnectedTo())
            taken.push_back(listeners[0]->AcceptUnread());
        return std::to_string(taken.size());
    });
    return 0;
}

class ForgedNames : public Siege {
  protected:
    // One call with a reference to an object of each owner.
    binder_status_t PassOn(const RawPeer& peer, const std::vector<std::string>& owners) {
        std::vector<ForeignObject> objects;
        for (const std::string& owner : owners)
            objects.push_back({{{static_cast<uint32_t>(objects.size())}}, owner});
        auto answer = peer.CallOnce(PassingOn(target_, objects));
        return answer ? answer->status : STATUS_DEAD_OBJECT;
    }

    int Refusals() { return victim_.log().Count(kRefused); }

    Helper names_{"Names"};
};

TEST_F(ForgedNames, AThousandLinksToOneSocketAreNoThousandPeers) {
    RawPeer peer = NewPeer();
    const std::string real = names_.Command("listen " + host_.path());
    ASSERT_EQ(names_.Command("link " + host_.path() + " 1000"), "0");
    std::vector<std::string> links;
    for (const auto& entry : std::filesystem::directory_iterator(host_.path())) {
        const std::string name = entry.path().filename();
        if (PidOfEndpointName(name) == names_.pid() && name != real) links.push_back(name);
    }
    ASSERT_EQ(links.size(), 1000U);
    // The first few meet the socket; then its queue is full, and nobody can tell whose it is.
    ASSERT_EQ(PassOn(peer, links), STATUS_OK);
    EXPECT_TRUE(victim_.log().WaitForLine(kRefused));
    ExpectServing(1);
    ExpectNoSpinning([&] {
        for (int i = 0; i < 2000; ++i)
            ASSERT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    });
    EXPECT_GE(std::stoi(names_.Command("accept")), 1);
    peer.control().Close();
    ExpectUnhurt(1);
    EXPECT_EQ(Refusals(), 1);
}

TEST_F(ForgedNames, AProcessThatListensUnderManyNamesIsOnePeer) {
    constexpr int kNames = 100;
    RawPeer peer = NewPeer();
    std::vector<std::string> owners;
    for (int i = 0; i < kNames; ++i)
        owners.push_back(names_.Command("listen " + host_.path()));
    ASSERT_EQ(PassOn(peer, owners), STATUS_OK);
    EXPECT_TRUE(victim_.log().WaitForLine(kRefused));
    // The peer's own, and one to the first of the names.
    EXPECT_TRUE(Eventually([&] {
        return OpenDescriptors(victim_.pid()) <= before_.descriptors + 2;
    })) << OpenDescriptors(victim_.pid())
        << " descriptors, before " << before_.descriptors;
    EXPECT_GE(std::stoi(names_.Command("accept")), 1) << "the first name is as good as any";
    names_.process().Kill();
    peer.control().Close();
    ExpectUnhurt(1);
    EXPECT_EQ(Refusals(), 1);
}

// Whoever is only named has not shown whose it is.
TEST_F(ForgedNames, NobodyIsServedUnderANameThatOthersHaveGiven) {
    RawPeer peer = NewPeer();
    const std::string name = names_.Command("listen " + host_.path());
    EXPECT_GE(std::stoi(names_.Command("fill " + host_.path())), 1);
    ASSERT_EQ(PassOn(peer, {name}), STATUS_OK);
    EXPECT_EQ(names_.Command("call " + host_.path() + " " + std::to_string(victim_.pid()) + " " +
                             WordsOf(target_)),
              "cut");
    EXPECT_TRUE(victim_.log().WaitForLine("pid " + std::to_string(names_.pid()) + " uid"));
    names_.process().Kill();
    peer.control().Close();
    ExpectUnhurt(0);
}

}  // namespace
}  // namespace host::testing
