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

// The two ways into a pipe: with RWF_NOWAIT and, for kernels that lack it there, reopened.
class LineOutputToAPipe : public testing::TestWithParam<bool> {
  protected:
    LineOutputToAPipe() {
        if (!GetParam()) output_.DoWithoutNoWait();
    }

    int FillWith(const std::string& line) {
        int taken = 0;
        while (output_.Put(line) == Outcome::kTaken)
            ++taken;
        return taken;
    }

    Ends ends_ = Pipe();
    LineOutput output_{ends_.writer};
};

TEST_P(LineOutputToAPipe, RefusesWholeLinesWhenFullAndGoesOnWhenThereIsRoom) {
    const std::string line = LineOf(100, 'x');
    const int taken = FillWith(line);
    EXPECT_GT(taken, 100);
    EXPECT_EQ(output_.Put(line), Outcome::kRefused);
    EXPECT_EQ(fcntl(ends_.writer, F_GETFL) & O_NONBLOCK, 0) << "others share the descriptor";
    const std::string all = Drain(ends_.reader);
    EXPECT_EQ(all.size(), static_cast<size_t>(taken) * line.size());
    EXPECT_EQ(output_.Put("next\n"), Outcome::kTaken);
    EXPECT_EQ(Drain(ends_.reader), "next\n");
}

TEST_P(LineOutputToAPipe, FinishesALineThatWentOutInPartBeforeTheNextOne) {
    // Larger than a pipe takes in one piece: the first write is bound to be short.
    const std::string huge = LineOf(200'001, 'h');
    ASSERT_EQ(output_.Put(huge), Outcome::kTaken);
    std::string all = Drain(ends_.reader);
    EXPECT_LT(all.size(), huge.size());
    while (output_.Put("next\n") == Outcome::kRefused)
        all += Drain(ends_.reader);
    all += Drain(ends_.reader);
    EXPECT_EQ(all, huge + "next\n");
}

TEST_P(LineOutputToAPipe, NeitherRaisesNorLeavesBehindSigpipeWhenTheReaderHasGone) {
    ends_.CloseReader();
    EXPECT_EQ(output_.Put("line\n"), Outcome::kRefused);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
}

INSTANTIATE_TEST_SUITE_P(BothWays, LineOutputToAPipe, testing::Bool(),
                         [](const auto& info) { return info.param ? "Direct" : "Reopened"; });

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

TEST(LineOutput, KeepsLinesOfAFullStreamSocketWhole) {
    int both[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, both), 0);
    Ends ends{both[0], both[1]};
    LineOutput output(ends.writer);
    const std::string line = LineOf(3'001, 's');
    size_t taken = 0;
    while (output.Put(line) == Outcome::kTaken)
        ++taken;
    std::string all = Drain(ends.reader);
    ASSERT_EQ(output.Put("last\n"), Outcome::kTaken);
    all += Drain(ends.reader);
    EXPECT_EQ(all.size(), taken * line.size() + 5);
    for (size_t end = line.size() - 1; end < all.size() - 5; end += line.size()) {
        ASSERT_EQ(all[end], '\n') << end;
    }
    ends.CloseReader();
    EXPECT_EQ(output.Put(line), Outcome::kRefused);  // Without SIGPIPE.
}

TEST(LineOutput, AStoppedTerminalIsNotWaitedFor) {
    Ends ends;
    ends.reader = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(ends.reader, 0);
    ASSERT_EQ(grantpt(ends.reader) | unlockpt(ends.reader), 0);
    ends.writer = open(ptsname(ends.reader), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(ends.writer, 0);
    LineOutput output(ends.writer);
    int taken = 0;
    while (output.Put("a line for a terminal that nobody reads\n") == Outcome::kTaken)
        ++taken;
    EXPECT_GT(taken, 10);
}

TEST(LineOutput, FilesGetLinesAndAHalfLineDoesNotFollowToAnotherFile) {
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
}

TEST(LineOutput, AClosedDescriptorTakesNothingAndIsNoError) {
    const int closed = Pipe().writer;
    EXPECT_EQ(LineOutput(closed).Put("line\n"), Outcome::kClosed);
}

}  // namespace
}  // namespace host
