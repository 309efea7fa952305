// Labels: threads
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>
#include <thread>

#define LOG_TAG "facts"
#include <host_testing.h>

namespace host::testing {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;

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

TEST(LogCapture, RecordsBothRoutesInOrderAndGivesThemBack) {
    const auto self = static_cast<pid_t>(syscall(SYS_gettid));
    {
        LogCapture capture;
        __android_log_print(ANDROID_LOG_DEBUG, "tag", "number %d\nand more", 5);
        std::thread([] { LOG(WARNING) << "streamed"; }).join();
        const std::vector<LogLine> lines = capture.lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_TRUE(lines[0].route == LogRoute::kPrint && lines[0].tag == "tag" &&
                    lines[0].text == "number 5\nand more" && lines[0].thread == self);
        EXPECT_TRUE(lines[1].route == LogRoute::kBase && lines[1].tag == "facts" &&
                    lines[1].priority == ANDROID_LOG_WARN && lines[1].thread != self);
        EXPECT_THAT(capture.Texts("stream"), ElementsAre("streamed"));
        EXPECT_FALSE(capture.WaitForText("nothing", milliseconds(5)));
        capture.Clear();
        EXPECT_TRUE(capture.lines().empty());
    }
    ::testing::internal::CaptureStderr();
    __android_log_print(ANDROID_LOG_INFO, "tag", "printed afterwards");
    LOG(INFO) << "streamed afterwards";
    const std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("printed afterwards"), std::string::npos);
    EXPECT_NE(text.find("streamed afterwards"), std::string::npos);
}

}  // namespace
}  // namespace host::testing
