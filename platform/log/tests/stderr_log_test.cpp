// Labels: processes threads memory
#define LOG_TAG "velmora_hal"

#include <android-base/logging.h>
#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;

std::vector<std::string> ReadLines(int reader) {
    std::string all;
    char part[4096];
    for (ssize_t n; (n = read(reader, part, sizeof(part))) > 0;) {
        all.append(part, static_cast<size_t>(n));
    }
    std::vector<std::string> lines;
    std::istringstream text(all);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    if (!all.empty() && all.back() != '\n') lines.back() += "(no end)";
    return lines;
}

// Runs the body in a forked child whose standard error is a pipe and returns the lines that it
// wrote. Nothing is logged outside of children, so that each of them reads ANDROID_LOG_TAGS anew.
std::vector<std::string> LinesOfChild(const char* tags, const std::function<void()>& body) {
    int both[2];
    if (pipe2(both, O_CLOEXEC) != 0) return {"no pipe"};
    const pid_t child = fork();
    if (child == 0) {
        dup2(both[1], STDERR_FILENO);
        if (tags != nullptr) setenv("ANDROID_LOG_TAGS", tags, 1);
        body();
        _exit(0);
    }
    close(both[1]);
    std::vector<std::string> lines = ReadLines(both[0]);
    close(both[0]);
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0) lines.push_back("child ended with " + std::to_string(status));
    return lines;
}

constexpr const char* kPrefix = "[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3}";

TEST(StderrLog, ALineShowsTimePriorityTagAndTheWritersNumbersAlsoInAForkedChild) {
    const std::vector<std::string> lines = LinesOfChild(nullptr, [] {
        LOG(INFO) << getpid() << " " << gettid();
        std::thread([] {
            LOG(INFO) << getpid() << " " << gettid();
            const pid_t child = fork();
            LOG(INFO) << getpid() << " " << gettid();
            if (child == 0) _exit(0);
            waitpid(child, nullptr, 0);
        }).join();
    });
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_THAT(lines,
                Each(MatchesRegex(std::string(kPrefix) + " +[0-9]+ +[0-9]+ I velmora_hal: .*")));
    for (const std::string& line : lines) {
        int pid[2] = {}, thread[2] = {};
        std::sscanf(line.c_str(), "%*s %*s %d %d I velmora_hal: %d %d", &pid[0], &thread[0],
                    &pid[1], &thread[1]);
        EXPECT_TRUE(pid[0] == pid[1] && thread[0] == thread[1]) << line;
    }
}

TEST(StderrLog, EveryLineOfATextHasAPrefixSoThatNoTextForgesALine) {
    const std::vector<std::string> lines = LinesOfChild(nullptr, [] {
        LOG(INFO) << "from a peer\n01-01 00:00:00.000     1     1 F velmora_hal: forged\r\n\rend";
    });
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_THAT(lines, Each(MatchesRegex(std::string(kPrefix) + " .* I velmora_hal: .*")));
    EXPECT_THAT(lines[1], HasSubstr("I velmora_hal: 01-01 00:00:00.000     1     1 F velmora_hal"));
}

TEST(StderrLog, TagsOfTheEnvironmentSilenceBothRoutesBeforeTheyAreFormatted) {
    const std::vector<std::string> lines = LinesOfChild("velmora_hal:W *:S", [] {
        int evaluated = 0;
        android::base::SetMinimumLogSeverity(android::base::VERBOSE);
        LOG(INFO) << "silenced " << ++evaluated;
        LOG(WARNING) << "passes " << evaluated;
        if (__android_log_print(ANDROID_LOG_INFO, LOG_TAG, "silenced") != -EPERM) _exit(1);
        if (__android_log_print(ANDROID_LOG_FATAL, "other", "silenced") != -EPERM) _exit(2);
        if (__android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "passes") != 1) _exit(3);
    });
    EXPECT_THAT(lines, ElementsAre(EndsWith("W velmora_hal: passes 0"),
                                   EndsWith("E velmora_hal: passes")));
}

TEST(StderrLog, ABadFilterIsOneWarningAndIgnored) {
    const std::vector<std::string> lines = LinesOfChild("velmora_hal:Q *:S", [] {
        __android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, "first");
        __android_log_print(ANDROID_LOG_VERBOSE, LOG_TAG, "second");
    });
    EXPECT_THAT(lines,
                ElementsAre(AllOf(HasSubstr(" W host_log: ANDROID_LOG_TAGS is ignored"),
                                  EndsWith("velmora_hal:Q *:S")),
                            EndsWith("V velmora_hal: first"), EndsWith("V velmora_hal: second")));
}

TEST(StderrLog, AFullPipeDropsWholeLinesAndTheNumberIsLoggedLater) {
    constexpr size_t kLines = 5'000;
    const std::vector<std::string> lines = LinesOfChild(nullptr, [] {
        const int former = dup(STDERR_FILENO);
        int unread[2];
        if (pipe2(unread, O_CLOEXEC) != 0) _exit(1);
        fcntl(unread[0], F_SETFL, O_NONBLOCK);
        dup2(unread[1], STDERR_FILENO);
        for (size_t i = 0; i < kLines; ++i)
            LOG(INFO) << "number " << i;
        const std::vector<std::string> kept = ReadLines(unread[0]);
        LOG(INFO) << "after";
        LOG(INFO) << "and on";
        const std::vector<std::string> later = ReadLines(unread[0]);
        dup2(former, STDERR_FILENO);
        dprintf(STDERR_FILENO, "%zu\n%s\n", kept.size(), kept.back().c_str());
        for (const std::string& line : later)
            dprintf(STDERR_FILENO, "%s\n", line.c_str());
    });
    ASSERT_THAT(lines, SizeIs(5));
    const size_t kept = std::stoul(lines[0]);
    EXPECT_GT(kept, 100U);
    EXPECT_THAT(lines[1], EndsWith("number " + std::to_string(kept - 1)));
    EXPECT_THAT(lines[2], EndsWith("W host_log: lines dropped because standard error did not take "
                                   "them: " +
                                   std::to_string(kLines - kept)));
    EXPECT_THAT(lines[3], EndsWith("I velmora_hal: after"));
    EXPECT_THAT(lines[4], EndsWith("I velmora_hal: and on"));
}

TEST(StderrLog, ManyThreadsWriteWholeLinesEachInItsOwnOrder) {
    const std::vector<std::string> lines = LinesOfChild(nullptr, [] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 100; ++i) {
                    if (i % 2 == 0) {
                        LOG(INFO) << "thread " << t << " line " << i;
                    } else {
                        __android_log_print(ANDROID_LOG_INFO, LOG_TAG, "thread %d line %d", t, i);
                    }
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    });
    int next[4] = {};
    for (const std::string& line : lines) {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "%*s %*s %*d %*d I velmora_hal: thread %d line %d",
                              &thread, &number),
                  2)
                << line;
        EXPECT_EQ(number, next[thread]++);
    }
    EXPECT_THAT(next, Each(100));
}

}  // namespace
