// Labels: memory processes
// Timeout: 300
// Peers that take and do not give: half messages, replies that nobody reads, calls without a pause,
// every descriptor there is. The others are served as if they were not there.

#include <android/binder_manager.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "pool.h"
#include "siege.h"

namespace host::testing {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPeers = 15;
constexpr int kReplyNumbers = 262'000;  // nearly a mebibyte
constexpr int kCalls = 1000;
constexpr uid_t kNobody = 65534;

int64_t Since(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
}

// A raw peer in a process of its own. Arguments: folder, victim, the object's name.
HOST_HELPER(RawProcess) {
    const auto& arguments = channel.arguments();
    const RefId target = NameFrom(arguments[2]);
    RawPeer peer(arguments[0], std::stoi(arguments[1]));
    std::vector<RawConnection> connections;
    channel.Serve([&](const std::string& command) -> std::string {
        if (command == "stranger" && setuid(kNobody) != 0) return "still privileged";
        if (command == "stranger" || command == "begin") return peer.Begin() ? "begun" : "refused";
        if (command == "half") {
            connections.push_back(peer.Open(ConnectionKind::kCall));
            const std::string call = RawCall{target, kEcho, LetterData(0, false, 1000)}.Frame();
            return connections.back().Send(call.substr(0, call.size() / 2)) ? "sent" : "cut";
        }
        if (command == "unread") {
            connections.push_back(peer.Open(ConnectionKind::kCall));
            const RawCall call{target, kBig, LetterData(kReplyNumbers)};
            return connections.back().Send(call.Frame()) ? "sent" : "cut";
        }
        auto reply = connections.back().Receive();
        return reply ? std::to_string(reply->body.size()) : "nothing";
    });
    return 0;
}

// Calls by the layer: the median of so many, in microseconds, at once or one by one; a single call;
// a oneway call; a fresh connection.
HOST_HELPER(LoadCaller) {
    const ndk::SpAIBinder victim(AServiceManager_waitForService("siege/victim"));
    channel.Serve([&](const std::string& command) {
        if (command == "post") return std::to_string(Post(victim, kPosted));
        if (command == "once") return std::to_string(Call(victim, kEcho));
        std::vector<int64_t> times;
        for (int i = 0; i < kCalls; ++i) {
            if (command == "lone") Await(std::chrono::microseconds(300));
            const auto start = Clock::now();
            if (Call(victim, kEcho) != STATUS_OK) return std::string("-1");
            times.push_back(Since(start));
        }
        std::nth_element(times.begin(), times.begin() + kCalls / 2, times.end());
        return std::to_string(times[kCalls / 2]);
    });
    return 0;
}

class Load : public Siege {
  protected:
    using Siege::Siege;

    std::unique_ptr<Helper> NewRawProcess() {
        return std::make_unique<Helper>(
                "RawProcess", std::vector<std::string>{host_.path(), std::to_string(victim_.pid()),
                                                       WordsOf(target_)});
    }

    // So many obey, and a sixteenth is served as before.
    std::vector<std::unique_ptr<Helper>> FifteenSlowNobody(const std::string& command) {
        const int64_t before = std::stoll(caller_.Command("median"));
        std::vector<std::unique_ptr<Helper>> peers;
        for (int i = 0; i < kPeers; ++i) {
            peers.push_back(NewRawProcess());
            EXPECT_EQ(peers.back()->Command("begin"), "begun");
            EXPECT_EQ(peers.back()->Command(command), "sent");
        }
        ExpectAsFast(before);
        ExpectCalledWithoutSpinning();
        return peers;
    }

    // The sixteenth is served as fast as before, a loaded machine's noise apart.
    void ExpectAsFast(int64_t before) {
        int64_t after = -1;
        EXPECT_TRUE(Eventually([&] {
            after = std::stoll(caller_.Command("median"));
            return after >= 0 && after <= 2 * before + 100;
        })) << "median before "
            << before << " us, now " << after << " us";
        ExpectServing(0);
    }

    // Calls sent one behind the other, whichever threads serve them.
    void ExpectAnsweredInOrder(RawConnection* connection) {
        std::string calls;
        for (int32_t i = 0; i < kCalls; ++i)
            calls += RawCall{target_, kEcho, LetterData(i)}.Frame();
        EXPECT_TRUE(connection->Send(calls));
        for (int32_t i = 0; i < kCalls; ++i) {
            const auto answer = connection->Receive();
            ASSERT_TRUE(answer) << i;
            ASSERT_EQ(answer->body.substr(sizeof(ReplyBody), sizeof(i)), RawBytes(i));
        }
    }

    void ExpectCalledWithoutSpinning() {
        ExpectNoSpinning([this] { EXPECT_GE(std::stoll(caller_.Command("median")), 0); });
    }

    // Without the caller, whose connections count.
    void ExpectAllUnhurt(int warnings) {
        EXPECT_EQ(caller_.Finish(), ExitStatus({0, 0}));
        ExpectUnhurt(warnings);
    }

    Helper caller_{"LoadCaller"};
};

TEST_F(Load, FifteenHalfMessagesDoNotSlowASixteenth) {
    FifteenSlowNobody("half");
    ExpectAllUnhurt(0);
}

TEST_F(Load, FifteenUnreadRepliesDoNotSlowASixteenthAndAreDeliveredWhenRead) {
    auto peers = FifteenSlowNobody("unread");
    const std::string whole = std::to_string(sizeof(ReplyBody) + 12 + 4 * kReplyNumbers);
    for (auto& peer : peers)
        EXPECT_EQ(peer->Command("read"), whole);
    peers.clear();
    ExpectAllUnhurt(0);
}

// So many connections that never pause: each has more to read as soon as something is read. A
// thread each, as one alone would not keep up.
class Flood {
  public:
    Flood(const RawPeer& peer, const RefId& target, const std::string& frame) {
        while (bytes_.size() < 65'536)
            bytes_ += frame;
        const UniqueFd mailbox = MemoryFile(2 * 4096, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
        // After a large call very many frames are read at a time.
        const std::string large = RawCall{target, kEcho, LetterData(0, false, 15'000)}.Frame();
        for (int i = 0; i < kPeers; ++i) {
            RawConnection connection = peer.Open(ConnectionKind::kCall);
            connection.Send(RawFrame(FrameType::kMailbox, ""), {mailbox.get()});
            connection.Send(large);
            EXPECT_TRUE(connection.Receive());
            connections_.push_back(std::move(connection));
        }
        for (RawConnection& connection : connections_)
            threads_.emplace_back([this, &connection] { Run(connection.fd()); });
    }
    ~Flood() {
        done_ = true;
        for (std::thread& thread : threads_)
            thread.join();
    }

    // Each has found its socket full.
    bool IsUnderWay() const {
        return Eventually([this] { return full_.value() == kPeers; });
    }

  private:
    void Run(int fd) {
        std::vector<char> answers(65'536);
        bool was_full = false;
        for (size_t sent = 0; !done_;) {
            while (recv(fd, answers.data(), answers.size(), MSG_DONTWAIT) > 0) {
            }
            const size_t at = sent % bytes_.size();
            const ssize_t taken =
                    send(fd, bytes_.data() + at, bytes_.size() - at, MSG_DONTWAIT | MSG_NOSIGNAL);
            if (taken > 0) sent += static_cast<size_t>(taken);
            if (taken > 0) continue;
            if (!std::exchange(was_full, true)) full_.Add();
            pollfd wait{fd, POLLIN | POLLOUT, 0};
            poll(&wait, 1, 10);
        }
    }

    std::string bytes_;
    std::vector<RawConnection> connections_;
    std::atomic<bool> done_{false};
    Counter full_;
    std::vector<std::thread> threads_;
};

class Starved : public Load {
  protected:
    Starved() : Load({"64"}) {}

    // Connections of the peer that leave the victim no descriptor.
    std::vector<RawConnection> TakeAllDescriptors(const RawPeer& peer) {
        std::vector<RawConnection> silent;
        while (Warnings() == 0 && silent.size() < kMaxNewcomers) {
            const int used = OpenDescriptors(victim_.pid());
            silent.push_back(peer.Connect());
            EXPECT_TRUE(Eventually(
                    [&] { return Warnings() > 0 || OpenDescriptors(victim_.pid()) > used; }));
        }
        EXPECT_TRUE(silent.back().WaitForEnd());
        return silent;
    }
};

TEST_F(Starved, WithoutADescriptorLeftItServesWhoIsThereAndLaterWhoComes) {
    EXPECT_GE(std::stoll(caller_.Command("median")), 0);
    RawPeer peer(host_.path(), victim_.pid());
    std::vector<RawConnection> silent = TakeAllDescriptors(peer);
    ExpectServing(1);
    ExpectCalledWithoutSpinning();
    // A oneway call for which there is no connection yet is accepted all the same.
    EXPECT_EQ(caller_.Command("post"), "0");
    ExpectServing(1);
    silent.clear();
    EXPECT_TRUE(Eventually([&] { return victim_.Command("posted") == "1"; }));
    ASSERT_TRUE(peer.Begin());
    EXPECT_EQ(peer.CallOnce({target_})->status, STATUS_OK);
    peer.control().Close();
    ExpectAllUnhurt(1);
}

TEST_F(Starved, WithoutADescriptorLeftForAMailboxCallsGoOnThroughTheSocket) {
    ASSERT_EQ(caller_.Command("once"), "0");
    RawPeer peer(host_.path(), victim_.pid());
    std::vector<RawConnection> silent = TakeAllDescriptors(peer);
    // Dense calls and then lone ones: each kind offers a mailbox, or would wait at one.
    EXPECT_GE(std::stoll(caller_.Command("median")), 0);
    const int64_t lone = std::stoll(caller_.Command("lone"));
    EXPECT_GE(lone, 0);
    EXPECT_LT(lone, 5000) << "who waits at a mailbox that nobody has sleeps for 10 ms";
    silent.clear();
    ExpectAllUnhurt(1);
}

TEST_F(Starved, WithoutADescriptorLeftForADumpItFailsAndTheDumpedProcessStays) {
    RawPeer peer = NewPeer();
    RawConnection connection = peer.Open(ConnectionKind::kCall);
    connection.Send(Handing(target_, kDumpIt).Frame());
    ASSERT_TRUE(connection.Receive()) << "it asks for the dump";
    std::vector<RawConnection> silent = TakeAllDescriptors(peer);
    const UniqueFd dump = MemoryFile(100, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE);
    connection.Send(RawReply(STATUS_OK, RawBytes(uint64_t{100}), kReplyCarriesMemory),
                    {dump.get()});
    const auto answer = connection.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->body.substr(sizeof(ReplyBody), sizeof(int32_t)),
              RawBytes(int32_t{STATUS_NO_MEMORY}));
    silent.clear();
    connection.Close();
    peer.control().Close();
    ExpectAllUnhurt(1);
}

TEST_F(Load, ConnectionsThatNeverPauseLeaveATurnToOthers) {
    RawPeer peer = NewPeer();
    RawConnection one_more = peer.Open(ConnectionKind::kCall);
    const std::string calls = RawCall{target_, kDawdle}.Frame();
    const std::string knock = RawFrame(FrameType::kKnock, "");
    for (const std::string& frame : {calls, knock}) {
        SCOPED_TRACE(frame == knock ? "knocks" : "calls");
        const Flood flood(peer, target_, frame);
        EXPECT_TRUE(flood.IsUnderWay());
        EXPECT_EQ(caller_.Command("once"), "0");
        EXPECT_EQ(caller_.Command("post"), "0");
        ExpectServing(0);
        ExpectAnsweredInOrder(&one_more);
    }
    EXPECT_TRUE(Eventually([&] { return victim_.Command("posted") == "2"; }));
    one_more.Close();
    peer.control().Close();
    ExpectAllUnhurt(0);
}

// Publishes; its commands: "wait" has a thread wait for what nobody publishes, "check" looks for
// it.
HOST_HELPER(Seeker) {
    const ndk::SpAIBinder object =
            MakeObject([](int, const Letter&, Letter*) { return STATUS_OK; });
    if (AServiceManager_addService(object.get(), "seeker") != EX_NONE) return 1;
    std::thread waiting;
    channel.Serve([&waiting](const std::string& command) {
        if (command == "wait")
            waiting =
                    std::thread([] { ndk::SpAIBinder(AServiceManager_waitForService("nobody")); });
        else if (ndk::SpAIBinder(AServiceManager_checkService("nobody")) != nullptr)
            return "found";
        return "done";
    });
    waiting.join();
    return 0;
}

TEST(AFullServiceManager, IsAskedAgainAfterAWhileAndIsNotTakenForDead) {
    constexpr int kRefusals = 11;
    ScopedHost host({.echo_log = false});
    Helper seeker("Seeker");
    ASSERT_EQ(seeker.Command("check"), "done");
    Child& manager = *host.service_manager();
    // The connection that there is stays with the thread that waits.
    seeker.Command("wait");
    ASSERT_TRUE(WaitForRest({seeker.pid(), manager.pid()}));
    const rlimit few{64, 64};
    ASSERT_EQ(prlimit(manager.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    RawPeer peer(host.path(), manager.pid());
    std::vector<RawConnection> silent;
    while (silent.size() < kMaxNewcomers)
        silent.push_back(peer.Connect());
    const auto refused = [&manager](pid_t pid) {
        return manager.log().Count("pid " + std::to_string(pid) + " uid " +
                                   std::to_string(getuid()) + ": no descriptor is left");
    };
    ASSERT_TRUE(Eventually([&] { return refused(getpid()) > 0; }));
    const auto start = Clock::now();
    seeker.Send("check");
    EXPECT_TRUE(Eventually([&] { return refused(seeker.pid()) >= kRefusals; }));
    EXPECT_GE(Since(start), (kRefusals - 1) * 50'000);
    silent.clear();
    EXPECT_EQ(seeker.WaitForAnswer(), "done");
    seeker.process().Kill();
}

TEST_F(Load, AProcessOfAnotherUserIsRefusedByWhatTheKernelSaysOfIt) {
    auto stranger = NewRawProcess();
    const bool root = geteuid() == 0;
    if (root) {
        // Let it come as far as the socket, past what the folder's rights keep from it.
        const std::string folder = host_.path();
        chmod(folder.substr(0, folder.rfind('/')).c_str(), 0755);
        chmod(folder.c_str(), 0755);
        const std::string name = NewPeer().path();
        chmod(name.c_str(), 0777);
        EXPECT_EQ(stranger->Command("stranger"), "refused");
        const std::string who = "pid " + std::to_string(stranger->pid()) + " uid 65534";
        EXPECT_TRUE(victim_.log().WaitForLine(who + ": another user's"));
        chmod(folder.c_str(), 0700);
    }
    // One of the same user is not.
    auto known = NewRawProcess();
    EXPECT_EQ(known->Command("begin"), "begun");
    ExpectServing(0);
}

}  // namespace
}  // namespace host::testing
