// Labels: processes threads
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

using host::testing::Eventually;
using host::testing::ExitStatus;
using host::testing::Helper;
using std::chrono::milliseconds;

HOST_HELPER(Talker) {
    channel.Serve([](const std::string& command) -> std::string {
        if (command == "silence") pause();
        if (command == "exit") _exit(7);
        return "heard " + command;
    });
    return 3;
}

// Starts a Talker of its own and tells its pid.
HOST_HELPER(Parent) {
    Helper child("Talker");
    channel.Serve([&child](const std::string&) { return std::to_string(child.pid()); });
    return 0;
}

TEST(Helper, FailsTheTestIfNoAnswerComes) {
    Helper helper("Talker");
    EXPECT_NONFATAL_FAILURE(helper.Command("silence", milliseconds(20)),
                            "does not answer: silence");
    Helper ended("Talker");
    EXPECT_NONFATAL_FAILURE(ended.Command("exit"), "does not answer: exit");
    EXPECT_EQ(ended.process().WaitExit(), (ExitStatus{7, 0}));
    EXPECT_NONFATAL_FAILURE(ended.Send("more"), "is gone: more");
}

TEST(Helper, DoesNotOutliveAKilledParent) {
    Helper parent("Parent");
    const pid_t child = atoi(parent.Command("child").c_str());
    ASSERT_GT(child, 0);
    parent.process().Signal(SIGKILL);
    EXPECT_TRUE(Eventually([child] {
        const char state = host::testing::ProcessState(child);
        return state == 0 || state == 'Z';
    }));
}

TEST(ScopedHost, RemovesItsFolderAndEndsItsServiceManager) {
    std::string path;
    pid_t manager = 0;
    {
        host::testing::ScopedHost host;
        path = host.path();
        manager = host.service_manager()->pid();
        EXPECT_STREQ(getenv("BINDER_HOST_DIR"), path.c_str());
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(host::testing::ProcessState(manager), 0);
}
