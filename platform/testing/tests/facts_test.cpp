// Labels: threads
#include <fcntl.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <signal.h>
#include <unistd.h>

#include <mutex>
#include <thread>

namespace host::testing {
namespace {

TEST(ProcessFacts, CountDescriptorsAndThreads) {
    const int descriptors = OpenDescriptors(getpid());
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(OpenDescriptors(getpid()), descriptors + 1);
    close(fd);
    EXPECT_EQ(OpenDescriptors(getpid()), descriptors);

    // A sanitizer starts a thread of its own with the first one, which is counted a little longer
    // than it takes to join it.
    pid_t first = 0;
    std::thread([&first] { first = gettid(); }).join();
    EXPECT_TRUE(Eventually([first] { return tgkill(getpid(), first, 0) != 0; }));
    const int threads = Threads(getpid());
    std::mutex mutex;
    mutex.lock();
    std::thread thread([&mutex] { std::lock_guard lock(mutex); });
    EXPECT_EQ(Threads(getpid()), threads + 1);
    mutex.unlock();
    thread.join();
    EXPECT_TRUE(Eventually([&] { return Threads(getpid()) == threads; }));
}

TEST(ProcessFacts, GrowWithMemoryAndWaitingAndSayThatAProcessIsGone) {
    constexpr pid_t kNobody = 1 << 30;
    const int64_t before = ResidentKib(getpid());
    std::vector<char> memory(64 << 20, 'x');
    EXPECT_GE(ResidentKib(getpid()), before + (60 << 10)) << memory.back();
    const int64_t switches = ContextSwitches(getpid());
    int calls = 0;
    EXPECT_TRUE(Eventually([&calls] { return ++calls == 5; }));
    EXPECT_GE(ContextSwitches(getpid()), switches + 4);
    for (int64_t count : {int64_t{OpenDescriptors(kNobody)}, int64_t{Threads(kNobody)},
                          ResidentKib(kNobody), ContextSwitches(kNobody)})
        EXPECT_EQ(count, -1);
}

}  // namespace
}  // namespace host::testing
