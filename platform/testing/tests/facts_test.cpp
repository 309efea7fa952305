// Labels: threads
#include <fcntl.h>
#include <gtest/gtest.h>
#include <host_testing.h>
#include <unistd.h>

#include <future>
#include <thread>
#include <vector>

namespace host::testing {
namespace {

TEST(ProcessFacts, GrowWithWhatAProcessHasAndSayThatItIsGone) {
    const int descriptors = OpenDescriptors(getpid()), threads = Threads(getpid());
    const int64_t resident = ResidentKib(getpid()), switches = ContextSwitches(getpid());
    const std::vector<char> memory(64 << 20, 'x');
    EXPECT_GE(ResidentKib(getpid()), resident + (60 << 10)) << memory.back();
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(OpenDescriptors(getpid()), descriptors + 1);
    close(fd);
    EXPECT_EQ(OpenDescriptors(getpid()), descriptors);
    std::promise<void> leave;
    std::thread thread([&leave] { leave.get_future().wait(); });
    const int more = Threads(getpid());
    EXPECT_GT(more, threads);  // a sanitizer may start one of its own with the first
    leave.set_value();
    thread.join();
    EXPECT_TRUE(Eventually([&] { return Threads(getpid()) == more - 1; }));
    int calls = 0;
    EXPECT_TRUE(Eventually([&calls] { return ++calls == 5; }));
    EXPECT_GE(ContextSwitches(getpid()), switches + 4);
    constexpr pid_t kNobody = 1 << 30;
    for (int64_t count : {int64_t{OpenDescriptors(kNobody)}, int64_t{Threads(kNobody)},
                          ResidentKib(kNobody), ContextSwitches(kNobody)})
        EXPECT_EQ(count, -1);
}

}  // namespace
}  // namespace host::testing
