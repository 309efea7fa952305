// Labels: memory processes
// Who asks for a dump and does not take it costs the process that dumps nothing, and nobody is
// ended by SIGPIPE.

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sstream>
#include <thread>

#include "siege.h"

namespace host::testing {
namespace {

constexpr char kDumper[] = "siege/dumper";
constexpr size_t kHuge = 10 * 1024 * 1024;

const AIBinder_Class* DumperClass() {
    static AIBinder_Class* clazz = [] {
        AIBinder_Class* made = AIBinder_Class_define(
                "test.IDumper", [](void* args) { return args; }, [](void*) {},
                [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                    return STATUS_OK;
                });
        // Ten mebibytes, each 4 KiB of one letter.
        AIBinder_Class_setOnDump(made,
                                 [](AIBinder*, int fd, const char**, uint32_t) -> binder_status_t {
                                     const std::string block(4096, 'd');
                                     for (size_t done = 0; done < kHuge; done += block.size()) {
                                         if (write(fd, block.data(), block.size()) < 0)
                                             return STATUS_NO_MEMORY;
                                     }
                                     return STATUS_OK;
                                 });
        return made;
    }();
    return clazz;
}

HOST_HELPER(Dumper) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder object(AIBinder_new(DumperClass(), nullptr));
    if (AServiceManager_addService(object.get(), kDumper) != EX_NONE) return 1;
    channel.Serve([](const std::string& line) { return line; });
    return 0;
}

using Clock = std::chrono::steady_clock;

// Dumps into a pipe or a pair of sockets that is read, not read, or closed; the status, the bytes
// that were read and the milliseconds it took.
std::string DumpInto(AIBinder* dumper, const std::string& kind, const std::string& reader) {
    int ends[2];
    const bool made =
            kind == "pipe" ? pipe(ends) == 0 : socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0;
    if (!made) return "nothing";
    std::atomic<size_t> taken{0};
    std::thread reading;
    if (reader == "closed") close(ends[0]);
    if (reader == "reads") {
        reading = std::thread([&] {
            char buffer[65536];
            for (ssize_t got; (got = read(ends[0], buffer, sizeof(buffer))) > 0;)
                taken.fetch_add(static_cast<size_t>(got));
        });
    }
    const auto start = Clock::now();
    const binder_status_t status = AIBinder_dump(dumper, ends[1], nullptr, 0);
    const auto took =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
    close(ends[1]);
    if (reading.joinable()) reading.join();
    if (reader != "closed") close(ends[0]);
    return std::to_string(status) + " " + std::to_string(taken.load()) + " " + std::to_string(took);
}

HOST_HELPER(Asker) {
    // As a program has it that knows nothing of pipes.
    signal(SIGPIPE, SIG_DFL);
    const ndk::SpAIBinder dumper(AServiceManager_waitForService(kDumper));
    channel.Serve([&](const std::string& line) {
        std::istringstream words(line);
        std::string kind, reader;
        words >> kind >> reader;
        if (kind == "ping") return std::to_string(AIBinder_ping(dumper.get()));
        return DumpInto(dumper.get(), kind, reader);
    });
    return 0;
}

struct Outcome {
    int status = -1;
    size_t taken = 0;
    int64_t milliseconds = 0;
};

Outcome Parse(const std::string& answer) {
    Outcome outcome;
    std::istringstream(answer) >> outcome.status >> outcome.taken >> outcome.milliseconds;
    return outcome;
}

TEST(HostileDump, OneThatIsNotTakenIsGivenUpAndOthersAreServedMeanwhile) {
    ScopedHost host({.echo_log = false});
    Helper dumper("Dumper", {}, {.echo_log = false});
    Helper asker("Asker"), stuck_on_pipe("Asker"), stuck_on_socket("Asker");
    const ExitStatus good{0, 0};
    ASSERT_EQ(asker.Command("ping"), "0");
    ASSERT_EQ(stuck_on_pipe.Command("ping"), "0");
    ASSERT_EQ(stuck_on_socket.Command("ping"), "0");
    const ProcessCounts before = ProcessCounts::Of(dumper.pid());
    stuck_on_pipe.Send("pipe unread");
    stuck_on_socket.Send("socket unread");
    for (const char* kind : {"pipe", "socket"}) {
        SCOPED_TRACE(kind);
        const Outcome whole = Parse(asker.Command(std::string(kind) + " reads"));
        EXPECT_EQ(whole.status, STATUS_OK);
        EXPECT_EQ(whole.taken, kHuge);
        const Outcome closed = Parse(asker.Command(std::string(kind) + " closed"));
        EXPECT_EQ(closed.status, STATUS_FAILED_TRANSACTION);
    }
    // All of that was served before either of these was given up.
    EXPECT_FALSE(stuck_on_pipe.WaitForAnswer(std::chrono::seconds(0)));
    for (Helper* stuck : {&stuck_on_pipe, &stuck_on_socket}) {
        const Outcome given_up = Parse(stuck->WaitForAnswer().value_or(""));
        EXPECT_EQ(given_up.status, STATUS_TIMED_OUT);
        EXPECT_GE(given_up.milliseconds, 4900);
        EXPECT_EQ(stuck->Finish(), good);
    }
    EXPECT_EQ(asker.Command("ping"), "0");
    EXPECT_EQ(asker.Finish(), good);
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(dumper.pid()) <= before.descriptors; }));
    EXPECT_EQ(dumper.Finish(), good);
}

}  // namespace
}  // namespace host::testing
