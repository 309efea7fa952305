// Labels: processes
#include <gtest/gtest.h>
#include <signal.h>

#include "client_helper.h"

namespace host::testing {
namespace {

using std::chrono::milliseconds;

const char kDeclared[] = "test.pkg.IThing/default";
const std::string kOk = "0", kSecurity = "-1", kIllegalArgument = "-3";

class Publishing : public ::testing::Test {
  protected:
    ScopedHost host_{{.declared = {kDeclared}}};
    Helper a_{"Client"};
    Helper b_{"Client"};
};

TEST_F(Publishing, WakesEveryoneWhoWaitsAndNobodyElse) {
    Helper without_pool("Client", {"no-pool"}), other("Client");
    without_pool.Send("wait n");
    a_.Command("begin n");
    other.Send("wait m");
    EXPECT_FALSE(without_pool.WaitForAnswer(milliseconds(100)));
    ASSERT_EQ(a_.Command("publish n hello"), kOk);
    EXPECT_EQ(without_pool.WaitForAnswer(), Says(a_, "hello"));
    EXPECT_EQ(a_.Command("end"), "own hello") << "a thread of the publisher, with the very object";
    EXPECT_FALSE(other.WaitForAnswer(milliseconds(50)));
    ASSERT_EQ(a_.Command("publish m later"), kOk);
    EXPECT_EQ(other.WaitForAnswer(), Says(a_, "later"));
}

TEST_F(Publishing, RefusesANameThatAnotherLiveProcessHolds) {
    ASSERT_EQ(a_.Command("publish n first"), kOk);
    EXPECT_EQ(b_.Command("publish n second"), kIllegalArgument);
    EXPECT_TRUE(b_.log().WaitForLine("addService(n) is refused: the name is held by pid " +
                                     std::to_string(a_.pid())));
    ASSERT_TRUE(a_.process().Stop());
    EXPECT_EQ(b_.Command("publish n second"), kIllegalArgument);
    ASSERT_TRUE(a_.process().Continue());
    EXPECT_EQ(b_.Command("check n"), Says(a_, "first"));
}

TEST_F(Publishing, LetsTheHolderReplaceItsOwn) {
    ASSERT_EQ(a_.Command("publish n first"), kOk);
    ASSERT_EQ(a_.Command("publish n second"), kOk);
    EXPECT_EQ(b_.Command("check n"), Says(a_, "second"));
    // The former object's death link is gone with it: the name is withdrawn once and for all.
    a_.process().Kill();
    EXPECT_EQ(b_.Command("check n"), "null");
}

TEST_F(Publishing, IsFreeForOthersTheMomentTheHolderIsKilled) {
    for (int round = 0; round < 20; ++round) {
        Helper victim("Client", {}, {.echo_log = false});
        Helper survivor("Client", {}, {.echo_log = false});
        ASSERT_EQ(victim.Command("publish n victim"), kOk);
        ASSERT_EQ(survivor.Command("publish n survivor"), kIllegalArgument);
        victim.process().Signal(SIGKILL);
        ASSERT_EQ(survivor.Command("publish n survivor"), kOk) << round;
        ASSERT_EQ(a_.Command("check n"), Says(survivor, "survivor"));
        survivor.process().Signal(SIGKILL);
        ASSERT_EQ(a_.Command("check n"), "null");
    }
}

TEST_F(Publishing, RefusesWhatIsNoServiceOrNotDeclared) {
    EXPECT_EQ(a_.Command("publish bad:name x"), kIllegalArgument);
    EXPECT_EQ(a_.Command("publish " + std::string(128, 'n') + " x"), kIllegalArgument);
    EXPECT_EQ(a_.Command("publish " + std::string(127, 'n') + " x"), kOk);
    EXPECT_EQ(a_.Command("stable test.pkg.IThing/other x"), kIllegalArgument);
    EXPECT_EQ(a_.Command(std::string("stable ") + kDeclared + " x"), kOk);
    EXPECT_EQ(a_.Command("republish none m"), kIllegalArgument);
    EXPECT_EQ(a_.Command("check bad:name"), "null");
}

TEST_F(Publishing, RefusesTheObjectOfAnotherProcess) {
    ASSERT_EQ(a_.Command("publish n x"), kOk);
    EXPECT_EQ(b_.Command("republish n m"), kSecurity);
    EXPECT_EQ(a_.Command("republish n m"), kOk);
    EXPECT_EQ(b_.Command("check m"), Says(a_, "x"));
}

TEST_F(Publishing, IsWaitedForAWhileByGetServiceIfDeclared) {
    EXPECT_EQ(b_.Command("get n"), "null");
    const std::string thing = kDeclared;
    b_.Send("get " + thing);
    EXPECT_FALSE(b_.WaitForAnswer(milliseconds(100)));
    ASSERT_EQ(a_.Command("publish " + thing + " x"), kOk);
    EXPECT_EQ(b_.WaitForAnswer(), Says(a_, "x"));
    a_.process().Kill();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(b_.Command("get " + thing), "null");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

TEST_F(Publishing, LeavesNothingBehindInTheServiceManager) {
    const pid_t manager = host_.service_manager()->pid();
    ASSERT_EQ(a_.Command("publish n x"), kOk);
    const auto round = [&] {
        Helper guest("Client", {}, {.echo_log = false});
        guest.Command("publish guest x");
        guest.Command("publish guest y");
        guest.Command("begin never");
        guest.Command("check n");
    };
    round();
    ASSERT_TRUE(Eventually([&] { return a_.Command("check guest") == "null"; }));
    const int descriptors = OpenDescriptors(manager);
    for (int i = 0; i < 20; ++i)
        round();
    // One who died waiting is kept until the next one waits, and the first may have died before.
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(manager) <= descriptors + 1; }))
            << OpenDescriptors(manager) << " descriptors, " << descriptors << " before";
}

}  // namespace
}  // namespace host::testing
