// Labels: memory processes
// Timeout: 450
// Every system call of the transport fails once, at each place of its first uses, and so does the
// start of a thread: what was asked for fails with a status or succeeds, nothing hangs, and
// afterwards everything works.

#include <android/binder_manager.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <sstream>

#include "test_object.h"

namespace host::testing {
namespace {

constexpr char kService[] = "faults/service";

std::atomic<int> g_posted{0};

binder_status_t Behave(int code, const Letter& in, Letter* out) {
    out->value = in.value;
    if (code == 2) out->binder = MakeObject(Behave);
    if (code == 3) out->value = Call(in.binder, 1);
    if (code == 4) g_posted.store(in.value);
    if (code == 5) out->value = g_posted.load();
    return STATUS_OK;
}

// A oneway call that was accepted is run, unless the processes lose each other.
binder_status_t PostAndWait(const ndk::SpAIBinder& service) {
    static int value = getpid() * 1000;
    binder_status_t status = Post(service, 4, {++value, {}, {}});
    Letter out;
    const bool run = Eventually(
            [&] {
                if (status == STATUS_OK) status = Call(service, 5, {}, &out);
                return status != STATUS_OK || out.value == value;
            },
            std::chrono::seconds(5));
    return run ? status : STATUS_TIMED_OUT;
}

binder_status_t Dump(const ndk::SpAIBinder& service) {
    int ends[2];
    if (pipe(ends) != 0) return STATUS_NO_MEMORY;
    const binder_status_t status = AIBinder_dump(service.get(), ends[1], nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return status;
}

// What touches every part of the transport once; the first status that is not STATUS_OK.
binder_status_t Everything(const ndk::SpAIBinder& service) {
    Letter in, out;
    in.value = 5;
    binder_status_t status = Call(service, 1, in, &out);
    if (status == STATUS_OK && out.value != 5) return STATUS_UNKNOWN_ERROR;
    if (status == STATUS_OK) status = PostAndWait(service);
    if (status == STATUS_OK) status = Call(service, 2, in, &out);
    if (status == STATUS_OK) status = Call(out.binder, 1, in);
    in.binder = MakeObject(Behave);
    if (status == STATUS_OK) status = Call(service, 3, in, &out);
    if (status == STATUS_OK) status = static_cast<binder_status_t>(out.value);
    return status == STATUS_OK ? Dump(service) : status;
}

// Arms the fault of a command like "accept4 1 24"; the name "none" clears it.
class Switch {
  public:
    std::string Obey(const std::string& line) {
        std::istringstream words(line);
        std::string verb, name;
        int n = 0, error = 0;
        words >> verb >> name >> n >> error;
        const bool fired = fault_ != nullptr && fault_->fired();
        fault_.reset();
        if (verb == "fail") fault_ = std::make_unique<FailNthCall>(name.c_str(), n, error);
        return fired ? "fired" : "not";
    }

  private:
    std::unique_ptr<FailNthCall> fault_;
};

HOST_HELPER(FaultyServer) {
    Switch fault;
    return Serve(channel, Behave, [&fault](const std::string& line) { return fault.Obey(line); });
}

// Does not get the thread that is to serve: the housekeeper's, which is the first, is there.
HOST_HELPER(ThreadlessServer) {
    const ndk::SpAIBinder none(AServiceManager_checkService(kService));
    Switch fault;
    fault.Obey("fail pthread_create 1 " + std::to_string(EAGAIN));
    return Serve(channel, Behave, [&fault](const std::string& line) { return fault.Obey(line); });
}

// The fault is armed before the first binder call of the process: connecting meets it, too.
HOST_HELPER(FaultyClient) {
    Switch fault;
    fault.Obey(channel.arguments()[1]);
    const std::string name = channel.arguments()[0];
    ndk::SpAIBinder service;
    channel.Serve([&](const std::string& line) {
        if (line != "go") return fault.Obey(line);
        // A dead one is looked for again, as a client does.
        if (service.get() == nullptr || !AIBinder_isAlive(service.get()))
            service.set(AServiceManager_checkService(name.c_str()));
        const binder_status_t status =
                service.get() == nullptr ? STATUS_NAME_NOT_FOUND : Everything(service);
        return std::to_string(status);
    });
    return 0;
}

struct Fault {
    const char* name;
    std::vector<int> errors;
    int most = 4;  // the last place at which it fails
};

const std::vector<Fault>& Faults() {
    static const auto* faults = new std::vector<Fault>{
            {"socket", {EMFILE, ENOMEM}, 6},
            {"connect", {EAGAIN, ECONNREFUSED}, 5},
            {"bind", {EADDRINUSE}, 1},
            {"listen", {EADDRINUSE}, 1},
            {"accept4", {EMFILE, EINTR, ENOMEM}},
            {"epoll_create1", {EMFILE}, 1},
            {"epoll_ctl", {ENOMEM}, 6},
            {"epoll_wait", {EINTR}},
            {"eventfd", {EMFILE}, 1},
            {"memfd_create", {EMFILE}, 2},
            {"ftruncate", {EFBIG}, 1},
            {"mmap", {ENOMEM}, 2},
            {"fcntl", {EINVAL}, 4},
            {"getrandom", {EINTR}, 2},
            {"getsockopt", {ENOBUFS}, 5},
            {"getpeername", {ENOBUFS}},
            {"sendmsg", {EINTR, ENOBUFS, EPIPE}, 7},
            {"recvmsg", {EINTR, ENOMEM, ECONNRESET}, 6},
            {"poll", {EINTR}},
            {"send", {EINTR, ENOBUFS}, 3},
            {"pthread_create", {EAGAIN}, 2},
    };
    return *faults;
}

// Within so long everything works again: the transport tries again by itself.
constexpr std::chrono::milliseconds kRecovery{15'000};

class FaultTest : public ::testing::Test {
  protected:
    bool Recovers(Helper* client) {
        return Eventually([client] { return client->Command("go") == "0"; }, kRecovery);
    }

    // `body` gets the name of the system call and the command that makes it fail.
    template <typename Body>
    void ForEachFault(const Body& body) {
        for (const Fault& fault : Faults()) {
            for (int error : fault.errors) {
                for (int n = 1; n <= fault.most; ++n) {
                    const std::string arm = "fail " + std::string(fault.name) + " " +
                                            std::to_string(n) + " " + std::to_string(error);
                    SCOPED_TRACE(arm);
                    body(fault.name, arm);
                }
            }
        }
    }

    ScopedHost host_{{.echo_log = false}};
};

TEST_F(FaultTest, AClientSurvivesTheFailureOfEachSystemCall) {
    const Helper server("FaultyServer", {kService}, {.echo_log = false});
    Helper sound("FaultyClient", {kService, "none"}, {.echo_log = false});
    ASSERT_TRUE(Recovers(&sound));
    std::set<std::string> fired;
    int failed = 0;
    ForEachFault([&](const std::string& name, const std::string& arm) {
        Helper client("FaultyClient", {kService, arm}, {.echo_log = false});
        if (client.Command("go") != "0") ++failed;
        if (client.Command("clear") == "fired") fired.insert(name);
        EXPECT_TRUE(Recovers(&client)) << client.Command("go");
        EXPECT_EQ(client.Finish(), ExitStatus({0, 0}));
    });
    // All but what only a process does that others connect to.
    fired.insert("accept4");
    EXPECT_EQ(fired.size(), Faults().size());
    EXPECT_GT(failed, 0);
    EXPECT_EQ(sound.Command("go"), "0");
}

TEST_F(FaultTest, AServerSurvivesTheFailureOfEachSystemCall) {
    Helper server("FaultyServer", {kService}, {.echo_log = false});
    const auto call = [this] {
        Helper client("FaultyClient", {kService, "none"}, {.echo_log = false});
        client.Command("go");
        const bool recovers = Recovers(&client);
        return client.Finish() == ExitStatus({0, 0}) && recovers;
    };
    ASSERT_TRUE(call());
    ASSERT_TRUE(Eventually([&] { return Threads(server.pid()) > 1; }));
    const int before = OpenDescriptors(server.pid());
    std::set<std::string> fired;
    ForEachFault([&](const std::string& name, const std::string& arm) {
        server.Command(arm);
        EXPECT_TRUE(call());
        if (server.Command("clear") == "fired") fired.insert(name);
    });
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(server.pid()) <= before; }))
            << OpenDescriptors(server.pid()) << " descriptors, before " << before;
    for (const char* name : {"accept4", "epoll_ctl", "epoll_wait", "fcntl", "getsockopt",
                             "memfd_create", "mmap", "recvmsg", "send", "sendmsg"})
        EXPECT_EQ(fired.count(name), 1U) << name;
}

TEST_F(FaultTest, AServerThatGetsNoThreadAtFirstServesAllTheSame) {
    Helper server("ThreadlessServer", {kService}, {.echo_log = false});
    EXPECT_TRUE(server.log().WaitForLine("A thread to serve cannot be started"));
    EXPECT_EQ(server.Command("clear"), "fired");
    Helper client("FaultyClient", {kService, "none"}, {.echo_log = false});
    EXPECT_TRUE(Recovers(&client));
    EXPECT_EQ(client.Finish(), ExitStatus({0, 0}));
    EXPECT_EQ(server.Finish(), ExitStatus({0, 0}));
}

TEST_F(FaultTest, AServerWithoutMemoryForAMailboxServesThroughTheSocket) {
    Helper server("FaultyServer", {kService}, {.echo_log = false});
    Helper client("FaultyClient", {kService, "none"}, {.echo_log = false});
    ASSERT_TRUE(Recovers(&client));
    const std::string arm = "fail mmap 1 " + std::to_string(ENOMEM);
    server.Command(arm);
    int rounds = 0;
    do {
        ASSERT_EQ(client.Command("go"), "0");
        ASSERT_LT(++rounds, 1000) << "no mailbox has been offered";
    } while (server.Command(arm) != "fired");
    EXPECT_EQ(client.Command("go"), "0");
}

}  // namespace
}  // namespace host::testing
