// Labels: processes threads
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

using host::testing::Child;
using host::testing::Eventually;
using host::testing::ExitStatus;
using host::testing::Helper;
using host::testing::LaunchOptions;
using host::testing::LaunchProgram;
using std::chrono::milliseconds;
using testing::ElementsAre;

HOST_HELPER(Talker) {
    channel.Serve([&channel](const std::string& command) -> std::string {
        if (command == "arguments") return std::to_string(channel.arguments().size());
        if (command == "environment") return getenv("BINDER_TEST_WORD");
        if (command == "print") {
            printf("on standard output\n");
            fflush(stdout);
            fprintf(stderr, "one\ntwo");
            return "printed";
        }
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

TEST(Helper, AnswersCommandsWithItsArgumentsAndEnvironment) {
    LaunchOptions options;
    options.environment["BINDER_TEST_WORD"] = "word";
    Helper helper("Talker", {"a", "b"}, options);
    EXPECT_EQ(helper.Command("this"), "heard this");
    EXPECT_EQ(helper.Command("arguments"), "2");
    EXPECT_EQ(helper.Command("environment"), "word");
    EXPECT_EQ(helper.Finish(), (ExitStatus{3, 0}));
}

TEST(Helper, PrintsIntoItsLogAndNotIntoItsAnswers) {
    Helper helper("Talker");
    EXPECT_EQ(helper.Command("print"), "printed");
    EXPECT_TRUE(helper.log().WaitForLine("on standard output"));
    helper.Finish();
    ASSERT_TRUE(helper.log().WaitForEnd());
    EXPECT_THAT(helper.log().lines(), ElementsAre("on standard output", "one", "two"));
    EXPECT_EQ(helper.log().Count("o"), 3);
    EXPECT_FALSE(helper.log().WaitForLine("three"));
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

TEST(Helper, IsKilledStoppedAndContinued) {
    Helper helper("Talker");
    ASSERT_TRUE(helper.process().Stop());
    EXPECT_EQ(host::testing::ProcessState(helper.pid()), 'T');
    helper.Send("later");
    EXPECT_FALSE(helper.WaitForAnswer(milliseconds(20)));
    ASSERT_TRUE(helper.process().Continue());
    EXPECT_EQ(helper.WaitForAnswer(), "heard later");
    EXPECT_FALSE(helper.process().WaitExit(milliseconds(1)));
    helper.process().Kill();
    EXPECT_EQ(helper.process().WaitExit(), (ExitStatus{-1, SIGKILL}));
    EXPECT_EQ(host::testing::ProcessState(helper.pid()), 0);
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

TEST(Child, TellsThatAProgramCannotBeExecuted) {
    const std::unique_ptr<Child> child = LaunchProgram({"/no/such/program"});
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(child->WaitExit(), (ExitStatus{127, 0}));
}

TEST(Child, LeavesNoDescriptorOrThreadBehind) {
    const int descriptors = host::testing::OpenDescriptors(getpid());
    const int threads = host::testing::Threads(getpid());
    for (int i = 0; i < 5; ++i)
        Helper("Talker").Command("x");
    EXPECT_EQ(host::testing::OpenDescriptors(getpid()), descriptors);
    EXPECT_EQ(host::testing::Threads(getpid()), threads);
}
