// Labels: memory processes
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "test_object.h"

namespace host::testing {
namespace {

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

HOST_HELPER(Dumped) {
    return Serve(channel, [](int, const Letter&, Letter*) { return binder_status_t{STATUS_OK}; });
}

// Everything that can be read from the descriptor, to its end.
std::string ReadAll(int fd) {
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t count = read(fd, buffer, sizeof(buffer));
        if (count <= 0) return text;
        text.append(buffer, static_cast<size_t>(count));
    }
}

struct Dumped {
    binder_status_t status;
    std::string text;
};

// Whether what is dumped is read, left unread, or has nobody to read it any more.
enum class Reader { kReads, kWaits, kGone };

enum class Into { kPipe, kSocket };

Dumped Dump(AIBinder* binder, std::vector<const char*> arguments, Reader reader = Reader::kReads,
            Into into = Into::kPipe) {
    int ends[2];
    const int failed = into == Into::kPipe
                               ? pipe2(ends, O_CLOEXEC)
                               : socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
    if (failed != 0) return {STATUS_NO_MEMORY, ""};
    Dumped dumped{STATUS_OK, ""};
    std::thread reading;
    if (reader == Reader::kGone) close(ends[0]);
    if (reader == Reader::kReads) reading = std::thread([&] { dumped.text = ReadAll(ends[0]); });
    dumped.status = AIBinder_dump(binder, ends[1], arguments.data(),
                                  static_cast<uint32_t>(arguments.size()));
    close(ends[1]);
    if (reading.joinable()) reading.join();
    if (reader != Reader::kGone) close(ends[0]);
    return dumped;
}

TEST(Dump, CarriesArgumentsThereAndTextBackAndLeavesNoDescriptorBehind) {
    RemoteObject node("Dumped");
    const ndk::SpAIBinder own = MakeObject([](int, const Letter&, Letter*) { return STATUS_OK; });
    Dump(node.object().get(), {"once"});
    const int here = OpenDescriptors(getpid());
    const int there = OpenDescriptors(node.pid());
    for (AIBinder* binder : {node.object().get(), own.get(), node.object().get()}) {
        const Dumped with = Dump(binder, {"-v", "", "\u4e2d two words"});
        EXPECT_EQ(with.status, STATUS_OK);
        EXPECT_EQ(with.text, "-v\n\n\u4e2d two words\n");
        const Dumped without = Dump(binder, {});
        EXPECT_EQ(without.status, STATUS_OK);
        EXPECT_EQ(without.text, "");
        const Dumped refused = Dump(binder, {"refuse"});
        EXPECT_EQ(refused.status, STATUS_PERMISSION_DENIED);
        EXPECT_EQ(refused.text, "");
    }
    EXPECT_TRUE(Eventually([&] {
        return OpenDescriptors(getpid()) <= here && OpenDescriptors(node.pid()) <= there;
    }));
    node.process().Kill();
    EXPECT_EQ(Dump(node.object().get(), {"x"}).status, STATUS_DEAD_OBJECT);
}

TEST(Dump, IsAppendedToAFileAndLeavesItOpen) {
    RemoteObject node("Dumped");
    const int file = memfd_create("dump", MFD_CLOEXEC);
    ASSERT_EQ(write(file, "before\n", 7), 7);
    const char* argument = "dumped";
    EXPECT_EQ(AIBinder_dump(node.object().get(), file, &argument, 1), STATUS_OK);
    ASSERT_EQ(write(file, "after\n", 6), 6);
    lseek(file, 0, SEEK_SET);
    EXPECT_EQ(ReadAll(file), "before\ndumped\nafter\n");
    close(file);
}

// Nobody is ended by SIGPIPE, and who does not take what it asked for costs the others nothing.
TEST(Dump, ThatIsNotTakenIsGivenUpAndOthersAreServedMeanwhile) {
    using std::chrono::steady_clock;
    RemoteObject node("Dumped");
    const std::vector<const char*> huge = {"bytes", "10485760"};
    signal(SIGPIPE, SIG_DFL);
    ASSERT_EQ(Dump(node.object().get(), {"once"}).status, STATUS_OK);
    const int before = OpenDescriptors(node.pid());
    std::atomic<int> given_up{0};
    std::vector<std::thread> stuck;
    for (Into into : {Into::kPipe, Into::kSocket}) {
        stuck.emplace_back([&, into] {
            const auto start = steady_clock::now();
            EXPECT_EQ(Dump(node.object().get(), huge, Reader::kWaits, into).status,
                      STATUS_TIMED_OUT);
            EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(4'900));
            ++given_up;
        });
    }
    for (Into into : {Into::kPipe, Into::kSocket}) {
        const Dumped whole = Dump(node.object().get(), huge, Reader::kReads, into);
        EXPECT_EQ(whole.status, STATUS_OK);
        EXPECT_EQ(whole.text, std::string(10'485'760, 'x'));
        EXPECT_EQ(Dump(node.object().get(), huge, Reader::kGone, into).status,
                  STATUS_FAILED_TRANSACTION);
    }
    EXPECT_EQ(given_up.load(), 0) << "all of that was served before";
    for (std::thread& thread : stuck)
        thread.join();
    EXPECT_EQ(AIBinder_ping(node.object().get()), STATUS_OK);
    // The connections of the two threads stay for a while.
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(node.pid()) <= before + 2; }));
}

}  // namespace
}  // namespace host::testing
