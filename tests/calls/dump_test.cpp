// Labels: memory processes
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <thread>

#include "node.h"

namespace calls_test {
namespace {

[[maybe_unused]] const auto* const kHost = ::testing::AddGlobalTestEnvironment(new CallsHost());

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

// Into a pipe that another thread reads.
Dumped Dump(AIBinder* binder, std::vector<const char*> arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {STATUS_NO_MEMORY, ""};
    Dumped dumped{STATUS_OK, ""};
    std::thread reader([&] { dumped.text = ReadAll(ends[0]); });
    dumped.status = AIBinder_dump(binder, ends[1], arguments.data(),
                                  static_cast<uint32_t>(arguments.size()));
    close(ends[1]);
    reader.join();
    close(ends[0]);
    return dumped;
}

TEST(Dump, CarriesArgumentsThereAndTextBackAndLeavesNoDescriptorBehind) {
    RemoteNode node;
    const SpAIBinder own = ndk::SharedRefBase::make<Node>()->asBinder();
    Dump(node.binder(), {"once"});
    const int here = host::testing::OpenDescriptors(getpid());
    const int there = host::testing::OpenDescriptors(node.pid());
    for (AIBinder* binder : {node.binder(), own.get(), node.binder()}) {
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
    EXPECT_TRUE(host::testing::Eventually([&] {
        return host::testing::OpenDescriptors(getpid()) <= here &&
               host::testing::OpenDescriptors(node.pid()) <= there;
    }));
    node.process().Kill();
    EXPECT_EQ(Dump(node.binder(), {"x"}).status, STATUS_DEAD_OBJECT);
}

TEST(Dump, IsAppendedToAFileAndLeavesItOpen) {
    const RemoteNode node;
    const int file = memfd_create("dump", MFD_CLOEXEC);
    ASSERT_EQ(write(file, "before\n", 7), 7);
    const char* argument = "dumped";
    EXPECT_EQ(node->dump(file, &argument, 1), STATUS_OK);
    ASSERT_EQ(write(file, "after\n", 6), 6);
    lseek(file, 0, SEEK_SET);
    EXPECT_EQ(ReadAll(file), "before\ndumped\nafter\n");
    close(file);
}

}  // namespace
}  // namespace calls_test
