// Labels: memory processes
// Timeout: 300
// Peers that pass on references of others, many or the same again and again: what the owner does
// with that, or leaves undone, is no harm to it.

#include "peer.h"
#include "siege.h"

namespace host::testing {
namespace {

// Hands the victim an object by hand, and serves one call to it, but never says who holds it.
// Arguments: folder, victim, its object; answers with its own name, then with what it has served.
HOST_HELPER(SilentOwner) {
    const auto& arguments = channel.arguments();
    RawListener listener(arguments[0]);
    RawPeer peer(arguments[0], std::stoi(arguments[1]), listener.name());
    if (!peer.Begin()) return 1;
    const RawCall give = Handing(NameFrom(arguments[2]), kKeep, 0, {{5, 6}});
    channel.Serve([&](const std::string& line) -> std::string {
        if (line == "give") return peer.CallOnce(give) ? listener.name() : "cut";
        RawConnection calls = listener.Accept();
        const auto call = calls.Receive();
        calls.Send(RawReply(STATUS_OK, LetterData(0).substr(16)));
        return call && call->type == FrameType::kCall ? "called" : "nothing";
    });
    return 0;
}

class PassedOn : public Siege {
  protected:
    std::optional<int32_t> Pass(const std::vector<ForeignObject>& objects) {
        const auto answer = passer_.CallOnce(PassingOn(target_, objects));
        return answer ? std::optional(answer->status) : std::nullopt;
    }

    RawPeer passer_ = NewPeer();
};

TEST_F(PassedOn, WhatAStoppedOwnerDoesNotAnswerIsCountedAgainstWhoPassesItOn) {
    constexpr size_t kAtOnce = 8192;
    static_assert(kMaxPassedOn % kAtOnce == 0);
    Bystander bystander("owner");
    Helper& owner = bystander.process;
    ASSERT_EQ(owner.Command("siege/victim"), "0");
    ASSERT_TRUE(owner.process().Stop());
    // Again and again the same: one of them is enough to keep.
    ASSERT_EQ(Pass(std::vector<ForeignObject>(kAtOnce, bystander.object)), STATUS_OK);
    for (size_t i = 1; i < kAtOnce; ++i) {
        const auto settled = passer_.control().Receive();
        ASSERT_TRUE(settled && settled->type == FrameType::kSettled) << i;
    }
    // With those before the first.
    auto others = [&, next = uint32_t{0}](size_t count) mutable {
        std::vector<ForeignObject> objects;
        while (objects.size() < count)
            objects.push_back({{{++next, 1}}, bystander.object.owner});
        return objects;
    };
    ASSERT_EQ(Pass(others(kAtOnce - 1)), STATUS_OK);
    for (size_t passed = kAtOnce; passed < kMaxPassedOn; passed += kAtOnce)
        ASSERT_EQ(Pass(others(kAtOnce)), STATUS_OK) << passed;
    ExpectServing(0);
    Pass(others(1));
    EXPECT_TRUE(passer_.control().WaitForEnd());
    ExpectServing(1);
    // The owner has done nothing, neither good nor bad.
    ASSERT_TRUE(owner.process().Continue());
    EXPECT_EQ(owner.Command("siege/victim"), "0");
    EXPECT_EQ(victim_.log().Count("pid " + std::to_string(owner.pid())), 0);
    EXPECT_EQ(owner.Finish(), ExitStatus({0, 0}));
    ExpectUnhurt(1);
}

TEST_F(PassedOn, WhatIsHeldAlreadyIsCalledWithoutAskingTheOwnerAgain) {
    Helper owner("SilentOwner", {host_.path(), std::to_string(victim_.pid()), WordsOf(target_)});
    const std::string name = owner.Command("give");
    owner.Send("serve");
    RawConnection calls = passer_.Open(ConnectionKind::kCall);
    calls.Send(PassingOn(target_, {{{{5, 6}}, name}}, kCallBack).Frame());
    const auto answer = calls.Receive();
    ASSERT_TRUE(answer && answer->type == FrameType::kReply);
    EXPECT_EQ(owner.WaitForAnswer(), "called");
    const auto settled = passer_.control().Receive();
    EXPECT_TRUE(settled && settled->type == FrameType::kSettled);
    owner.process().Kill();
    calls.Close();
    passer_.control().Close();
    ExpectUnhurt(0);
}

}  // namespace
}  // namespace host::testing
