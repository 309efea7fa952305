// Labels: processes memory
#include "line_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace host {
namespace {

using Outcome = LineOutput::Outcome;

struct Ends {
    int reader = -1;
    int writer = -1;
    ~Ends() {
        if (reader >= 0) close(reader);
        if (writer >= 0) close(writer);
    }
    void CloseReader() {
        close(reader);
        reader = -1;
    }
};

Ends Pipe() {
    int both[2] = {-1, -1};
    EXPECT_EQ(pipe2(both, O_CLOEXEC), 0);
    return {both[0], both[1]};
}

std::string LineOf(size_t size, char letter) {
    std::string line(size, letter);
    line.back() = '\n';
    return line;
}

// All that can be read now.
std::string Drain(int reader) {
    fcntl(reader, F_SETFL, O_NONBLOCK);
    std::string all;
    char part[8192];
    for (ssize_t n; (n = read(reader, part, sizeof(part))) > 0;) {
        all.append(part, static_cast<size_t>(n));
    }
    return all;
}

enum class Way { kPipe, kReopenedPipe, kSocket };

Ends Open(Way way) {
    if (way != Way::kSocket) return Pipe();
    int both[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, both), 0);
    return {both[0], both[1]};
}

// A pipe has two ways: with RWF_NOWAIT and, for kernels that lack it there, reopened.
class LineOutputTo : public testing::TestWithParam<Way> {
  protected:
    LineOutputTo() {
        if (GetParam() == Way::kReopenedPipe) output_.DoWithoutNoWait();
    }

    Ends ends_ = Open(GetParam());
    LineOutput output_{ends_.writer};
};

TEST_P(LineOutputTo, TakesWholeLinesWithoutWaitingAndGoesOnWhenThereIsRoom) {
    const std::string line = LineOf(101, 'x');
    size_t taken = 0;
    while (output_.Put(line) == Outcome::kTaken)
        ++taken;
    EXPECT_GT(taken, 10u);
    EXPECT_EQ(output_.Put(line), Outcome::kRefused);
    EXPECT_EQ(fcntl(ends_.writer, F_GETFL) & O_NONBLOCK, 0) << "others share the descriptor";
    std::string all = Drain(ends_.reader);
    EXPECT_EQ(output_.Put("last\n"), Outcome::kTaken);
    all += Drain(ends_.reader);
    std::string expected;
    for (size_t i = 0; i < taken; ++i)
        expected += line;
    EXPECT_EQ(all, expected + "last\n");
}

TEST_P(LineOutputTo, NeitherRaisesNorLeavesBehindSigpipeWhenTheReaderHasGone) {
    ends_.CloseReader();
    EXPECT_EQ(output_.Put("line\n"), Outcome::kRefused);
    sigset_t pending, mask;
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&pending, SIGPIPE) + sigismember(&mask, SIGPIPE), 0);
}

TEST_P(LineOutputTo, FinishesALineThatWentOutInPartBeforeTheNextOne) {
    // Larger than any of them takes in one piece: the first write is bound to be short.
    const std::string huge = LineOf(500'001, 'h');
    ASSERT_EQ(output_.Put(huge), Outcome::kTaken);
    std::string all = Drain(ends_.reader);
    while (output_.Put("next\n") == Outcome::kRefused)
        all += Drain(ends_.reader);
    all += Drain(ends_.reader);
    EXPECT_EQ(all, huge + "next\n");
}

INSTANTIATE_TEST_SUITE_P(EveryWay, LineOutputTo,
                         testing::Values(Way::kPipe, Way::kReopenedPipe, Way::kSocket));

TEST(LineOutput, AStoppedTerminalIsNotWaitedFor) {
    Ends ends{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
    ASSERT_EQ(grantpt(ends.reader) | unlockpt(ends.reader), 0);
    ends.writer = open(ptsname(ends.reader), O_RDWR | O_NOCTTY | O_CLOEXEC);
    LineOutput output(ends.writer);
    int taken = 0;
    while (output.Put("a line for a terminal that nobody reads\n") == Outcome::kTaken)
        ++taken;
    EXPECT_GT(taken, 10);
}

TEST(LineOutput, LeavesASigpipePendingThatWasThereBefore) {
    Ends ends = Pipe();
    ends.CloseReader();
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    sigset_t former;
    pthread_sigmask(SIG_BLOCK, &sigpipe, &former);
    pthread_kill(pthread_self(), SIGPIPE);
    LineOutput(ends.writer).Put("line\n");
    const timespec no_time = {};
    EXPECT_EQ(sigtimedwait(&sigpipe, nullptr, &no_time), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

TEST(LineOutput, DoesNotFollowWithAHalfLineToAnotherFileNorMindAClosedOne) {
    char path[] = "/tmp/line_output_XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    unlink(path);
    Ends ends = Pipe();
    LineOutput output(ends.writer);
    ASSERT_EQ(output.Put(LineOf(200'001, 'h')), Outcome::kTaken);
    dup2(file, ends.writer);
    EXPECT_EQ(output.Put("to the file\n"), Outcome::kTaken);
    lseek(file, 0, SEEK_SET);
    EXPECT_EQ(Drain(file), "to the file\n");
    close(file);
    close(std::exchange(ends.writer, -1));
    EXPECT_EQ(output.Put("to nobody\n"), Outcome::kClosed);
}

}  // namespace
}  // namespace host
