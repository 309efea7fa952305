// Labels: processes forks
#include <android/binder_manager.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "launcher.h"
#include "test_object.h"

namespace host::testing {
namespace {

enum Code { kEcho = FIRST_CALL_TRANSACTION };

binder_status_t Echo(int, const Letter& in, Letter* out) {
    out->value = in.value;
    return STATUS_OK;
}

// Sockets, memory files and event sources: what the layer opens, and what the helper was started
// with.
int Descriptors() {
    int count = 0;
    for (int fd = 3; fd < 1024; ++fd) {
        char link[64], target[128];
        snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
        const ssize_t size = readlink(link, target, sizeof(target) - 1);
        if (size <= 0) continue;
        const std::string text(target, static_cast<size_t>(size));
        for (const char* kind : {"socket:", "memfd:", "anon_inode:", "/dev/null"}) {
            if (text.find(kind) != std::string::npos) ++count;
        }
    }
    return count;
}

// What the exit status of a forked child that runs `body` is.
template <typename Body>
std::string InChild(const Body& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "killed";
}

// Commands fork this process, which both serves and calls the object named by its second argument.
std::string Fork(const std::string& command, const ndk::SpAIBinder& other) {
    if (command == "descriptors") return std::to_string(Descriptors());
    if (command == "descriptors of a child") return InChild([] { return Descriptors(); });
    if (command == "descriptors of a child's child") {
        return InChild([] { return atoi(InChild([] { return Descriptors(); }).c_str()); });
    }
    if (command == "call in a child") {
        return InChild([&] {
            // Descriptors of the child's own may have the numbers that the layer's had.
            int pair[2];
            for (int i = 0; i < 50; ++i)
                socketpair(AF_UNIX, SOCK_STREAM, 0, pair);
            const bool fail = Call(other, kEcho) != STATUS_OK && Post(other, kEcho) != STATUS_OK;
            ndk::SpAIBinder dropped(AServiceManager_checkService("nobody"));
            return fail && !dropped ? 42 : 1;
        });
    }
    if (command == "call") return std::to_string(Call(other, kEcho));
    if (command == "descriptors of a program") {
        return InChild([program = OwnProgram()]() -> int {
            const char* const line[] = {program.c_str(), "--helper=CountInherited", nullptr};
            BecomeProgram(line, environ);
        });
    }
    if (command == "leave a child behind") {
        if (fork() != 0) return "left";
        char unread;
        while (read(STDIN_FILENO, &unread, 1) > 0) {
        }
        _exit(0);
    }
    return "?";
}

HOST_HELPER(Echoer) {
    return Serve(channel, Echo);
}

HOST_HELPER(Forker) {
    const std::string at_start = std::to_string(Descriptors());
    ndk::SpAIBinder other(AServiceManager_waitForService(channel.arguments()[1].c_str()));
    Call(other, kEcho);
    Post(other, kEcho);
    return Serve(channel, Echo, [&](const std::string& command) {
        return command == "descriptors at the start" ? at_start : Fork(command, other);
    });
}

// Waits for a service manager that never comes.
HOST_HELPER(ForkingWaiter) {
    const std::string at_start = std::to_string(Descriptors());
    std::thread waiting([] { ndk::SpAIBinder(AServiceManager_waitForService("nobody")); });
    channel.Serve([&](const std::string& command) {
        return command == "descriptors at the start" ? at_start : Fork(command, {});
    });
    waiting.join();
    return 0;
}

HOST_HELPER(CountInherited) {
    return Descriptors();
}

class Forks : public ::testing::Test {
  protected:
    RemoteObject other_{"Echoer"};
    RemoteObject forker_{"Forker", {other_.name()}};

    int Number(const std::string& command) {
        return atoi(forker_.helper().Command(command).c_str());
    }
};

TEST_F(Forks, LeaveTheChildNoDescriptorOfTheLayer) {
    const int at_start = Number("descriptors at the start");
    EXPECT_GE(Number("descriptors"), at_start + 8)
            << "listener, epoll and event files, connections, a ring";
    EXPECT_EQ(Number("descriptors of a child"), at_start);
    EXPECT_EQ(Number("descriptors of a child's child"), at_start);
    EXPECT_EQ(Number("descriptors of a program"), at_start);
    EXPECT_EQ(forker_.helper().Command("call"), "0");
}

TEST(ForksOfAProcessThatWaits, LeaveTheChildNoDescriptorOfTheLayer) {
    char folder[] = "/tmp/vh-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    {
        LaunchOptions options;
        options.environment["BINDER_HOST_DIR"] = folder;
        Helper waiter("ForkingWaiter", {}, options);
        ASSERT_TRUE(waiter.log().WaitForLine("waitForService(nobody) waits"));
        const int at_start = atoi(waiter.Command("descriptors at the start").c_str());
        EXPECT_GE(atoi(waiter.Command("descriptors").c_str()), at_start + 4)
                << "listener, epoll and event files, a watch";
        EXPECT_EQ(atoi(waiter.Command("descriptors of a child").c_str()), at_start);
        waiter.process().Kill();
    }
    std::filesystem::remove_all(folder);
}

TEST_F(Forks, MakeCallsOfTheChildFailAndThoseOfTheParentGoOn) {
    EXPECT_EQ(forker_.helper().Command("call in a child"), "42");
    EXPECT_EQ(forker_.helper().Command("call"), "0");
    EXPECT_EQ(Ask(forker_.object(), kEcho, {7, {}, {}}).value, 7);
}

TEST_F(Forks, DoNotHideTheDeathOfTheParent) {
    Counter died;
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(
            [](void* counter) { static_cast<Counter*>(counter)->Add(); }));
    ASSERT_EQ(AIBinder_linkToDeath(forker_.object().get(), recipient.get(), &died), STATUS_OK);
    ASSERT_EQ(forker_.helper().Command("leave a child behind"), "left");
    forker_.process().Kill();
    EXPECT_TRUE(died.WaitFor(1));
    EXPECT_EQ(Call(forker_.object(), kEcho), STATUS_DEAD_OBJECT);
    EXPECT_EQ(Call(other_.object(), kEcho), STATUS_OK);
}

const auto* const kHost = ::testing::AddGlobalTestEnvironment(new SharedHost);

}  // namespace
}  // namespace host::testing
