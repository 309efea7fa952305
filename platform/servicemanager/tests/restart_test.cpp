// Labels: processes
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "client_helper.h"

namespace host::testing {
namespace {

using std::chrono::milliseconds;

TEST(WithoutAServiceManager, EachCallWaitsAndSaysSoOnceWithTheFolder) {
    ScopedHost host({.declared = {"p.I/d"}, .start = false});
    const struct {
        const char* command;
        const char* purpose;
        const char* answer;
    } calls[] = {
            {"publish n x", "addService(n)", "0"},
            {"check m", "checkService(m)", "null"},
            {"get m", "getService(m)", "null"},
            {"declared p.I/d", "isDeclared(p.I/d)", "yes"},
            {"list", "ListServices", "p.I/d declared -; "},
    };
    std::vector<std::unique_ptr<Helper>> clients;
    for (const auto& call : calls) {
        clients.push_back(std::make_unique<Helper>("Client"));
        clients.back()->Send(call.command);
    }
    for (size_t i = 0; i < clients.size(); ++i) {
        EXPECT_TRUE(clients[i]->log().WaitForLine(std::string(calls[i].purpose) +
                                                  " waits: no service manager serves " +
                                                  host.path()));
    }
    // The publisher is held back until the list has been asked for.
    ASSERT_TRUE(clients[0]->process().Stop());
    host.StartServiceManager();
    for (size_t i = clients.size(); i-- > 0;) {
        if (i == 0) {
            ASSERT_TRUE(clients[0]->process().Continue());
        }
        EXPECT_EQ(clients[i]->WaitForAnswer(), calls[i].answer);
        EXPECT_EQ(clients[i]->log().Count(" waits: "), 1);
    }
}

class ARestartedServiceManager : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(publisher_.Command("publish n x"), "0"); }

    void Restart() {
        host_.KillServiceManager();
        host_.StartServiceManager();
    }

    ScopedHost host_;
    Helper publisher_{"Client"};
    Helper client_{"Client"};
};

TEST_F(ARestartedServiceManager, LearnsEveryLivePublishersServicesAgain) {
    Helper dead("Client");
    ASSERT_EQ(publisher_.Command("publish m y"), "0");
    ASSERT_EQ(dead.Command("publish gone z"), "0");
    for (int round = 0; round < 3; ++round) {
        host_.KillServiceManager();
        dead.process().Kill();
        host_.StartServiceManager();
        EXPECT_EQ(client_.Command("wait n"), Says(publisher_, "x"));
        EXPECT_EQ(client_.Command("wait m"), Says(publisher_, "y"));
        EXPECT_EQ(client_.Command("check gone"), "null");
    }
}

TEST_F(ARestartedServiceManager, HasNotDisturbedRunningConnections) {
    ASSERT_EQ(client_.Command("keep n"), Says(publisher_, "x"));
    // Until the publisher knows of the new holder, the reference stands and falls with the service
    // manager that passed it on.
    ASSERT_TRUE(WaitForRest({publisher_.pid(), client_.pid()}));
    host_.KillServiceManager();
    EXPECT_EQ(client_.Command("ask"), Says(publisher_, "x"));
    host_.StartServiceManager();
    EXPECT_EQ(client_.Command("ask"), Says(publisher_, "x"));
    EXPECT_EQ(client_.Command("wait n"), Says(publisher_, "x"));
}

TEST_F(ARestartedServiceManager, FindsThoseWhoWaitedStillWaiting) {
    client_.Send("wait m");
    EXPECT_FALSE(client_.WaitForAnswer(milliseconds(100)));
    host_.KillServiceManager();
    EXPECT_TRUE(client_.log().WaitForLine("waitForService(m) waits"));
    host_.StartServiceManager();
    EXPECT_FALSE(client_.WaitForAnswer(milliseconds(100)));
    ASSERT_EQ(publisher_.Command("publish m y"), "0");
    EXPECT_EQ(client_.WaitForAnswer(), Says(publisher_, "y"));
}

TEST_F(ARestartedServiceManager, KeepsANameForWhoeverCameFirst) {
    ASSERT_TRUE(publisher_.process().Stop());
    Restart();
    ASSERT_EQ(client_.Command("publish n fast"), "0");
    ASSERT_TRUE(publisher_.process().Continue());
    EXPECT_TRUE(publisher_.log().WaitForLine("n is not published again: the name is held by pid " +
                                             std::to_string(client_.pid())));
    EXPECT_EQ(publisher_.Command("check n"), Says(client_, "fast"));
    EXPECT_EQ(publisher_.log().Count("not published again"), 1);
}

TEST_F(ARestartedServiceManager, LearnsLaterFromAPublisherThatHasNoDescriptorForItNow) {
    // The first looks whether the old one is gone, the second is the control connection to the new
    // one, and the one for the call cannot be had.
    ASSERT_EQ(publisher_.Command("fail socket 3"), "armed");
    ASSERT_TRUE(publisher_.process().Stop());
    Restart();
    ASSERT_EQ(client_.Command("check n"), "null");
    ASSERT_TRUE(publisher_.process().Continue());
    EXPECT_EQ(client_.Command("wait n"), Says(publisher_, "x"));
    EXPECT_EQ(publisher_.Command("failed"), "yes");
    EXPECT_EQ(publisher_.log().Count("services stay unpublished: "), 1);
}

TEST_F(ARestartedServiceManager, IsFoundAgainInAFolderThatWasUnusableForAWhile) {
    chmod(host_.path().c_str(), 0755);
    host_.KillServiceManager();
    EXPECT_TRUE(publisher_.log().WaitForLine("services stay unpublished: "));
    chmod(host_.path().c_str(), 0700);
    host_.StartServiceManager();
    EXPECT_EQ(client_.Command("wait n"), Says(publisher_, "x"));
    EXPECT_EQ(publisher_.log().Count("services stay unpublished: "), 1);
}

}  // namespace
}  // namespace host::testing
