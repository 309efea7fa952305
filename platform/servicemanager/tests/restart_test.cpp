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

TEST(ARestartedServiceManager, LearnsEveryLivePublishersServicesAgain) {
    ScopedHost host;
    Helper publisher("Client"), client("Client"), dead("Client");
    ASSERT_EQ(publisher.Command("publish n x"), "0");
    ASSERT_EQ(publisher.Command("publish m y"), "0");
    ASSERT_EQ(dead.Command("publish gone z"), "0");
    for (int round = 0; round < 3; ++round) {
        host.KillServiceManager();
        dead.process().Kill();
        host.StartServiceManager();
        EXPECT_EQ(client.Command("wait n"), Says(publisher, "x"));
        EXPECT_EQ(client.Command("wait m"), Says(publisher, "y"));
        EXPECT_EQ(client.Command("check gone"), "null");
    }
}

TEST(ARestartedServiceManager, HasNotDisturbedRunningConnections) {
    ScopedHost host;
    Helper publisher("Client"), client("Client");
    ASSERT_EQ(publisher.Command("publish n x"), "0");
    ASSERT_EQ(client.Command("keep n"), Says(publisher, "x"));
    // Until the publisher knows of the new holder, the reference stands and falls with the service
    // manager that passed it on.
    ASSERT_TRUE(WaitForRest({publisher.pid(), client.pid()}));
    host.KillServiceManager();
    EXPECT_EQ(client.Command("ask"), Says(publisher, "x"));
    host.StartServiceManager();
    EXPECT_EQ(client.Command("ask"), Says(publisher, "x"));
    EXPECT_EQ(client.Command("wait n"), Says(publisher, "x"));
}

TEST(ARestartedServiceManager, FindsThoseWhoWaitedStillWaiting) {
    ScopedHost host;
    Helper waiter("Client"), publisher("Client");
    waiter.Send("wait n");
    EXPECT_FALSE(waiter.WaitForAnswer(milliseconds(100)));
    host.KillServiceManager();
    EXPECT_TRUE(waiter.log().WaitForLine("waitForService(n) waits"));
    host.StartServiceManager();
    EXPECT_FALSE(waiter.WaitForAnswer(milliseconds(100)));
    ASSERT_EQ(publisher.Command("publish n x"), "0");
    EXPECT_EQ(waiter.WaitForAnswer(), Says(publisher, "x"));
}

TEST(ARestartedServiceManager, KeepsANameForWhoeverCameFirst) {
    ScopedHost host;
    Helper slow("Client"), fast("Client");
    ASSERT_EQ(slow.Command("publish n slow"), "0");
    ASSERT_TRUE(slow.process().Stop());
    host.KillServiceManager();
    host.StartServiceManager();
    ASSERT_EQ(fast.Command("publish n fast"), "0");
    ASSERT_TRUE(slow.process().Continue());
    EXPECT_TRUE(slow.log().WaitForLine("n is not published again: the name is held by pid " +
                                       std::to_string(fast.pid())));
    EXPECT_EQ(slow.Command("check n"), Says(fast, "fast"));
    EXPECT_EQ(slow.log().Count("not published again"), 1);
}

TEST(ARestartedServiceManager, LearnsLaterFromAPublisherThatHasNoDescriptorForItNow) {
    ScopedHost host;
    Helper publisher("Client"), client("Client");
    ASSERT_EQ(publisher.Command("publish n x"), "0");
    // The first looks whether the old one is gone, the second is the control connection to the new
    // one, and the one for the call cannot be had.
    ASSERT_EQ(publisher.Command("fail socket 3"), "armed");
    ASSERT_TRUE(publisher.process().Stop());
    host.KillServiceManager();
    host.StartServiceManager();
    ASSERT_EQ(client.Command("check n"), "null");
    ASSERT_TRUE(publisher.process().Continue());
    EXPECT_EQ(client.Command("wait n"), Says(publisher, "x"));
    EXPECT_EQ(publisher.Command("failed"), "yes");
    EXPECT_EQ(publisher.log().Count("services stay unpublished: "), 1);
}

TEST(ARestartedServiceManager, IsFoundAgainInAFolderThatWasUnusableForAWhile) {
    ScopedHost host;
    Helper publisher("Client"), client("Client");
    ASSERT_EQ(publisher.Command("publish n x"), "0");
    chmod(host.path().c_str(), 0755);
    host.KillServiceManager();
    EXPECT_TRUE(publisher.log().WaitForLine("services stay unpublished: "));
    chmod(host.path().c_str(), 0700);
    host.StartServiceManager();
    EXPECT_EQ(client.Command("wait n"), Says(publisher, "x"));
    EXPECT_EQ(publisher.log().Count("services stay unpublished: "), 1);
}

}  // namespace
}  // namespace host::testing
