#include "siege.h"

#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "binder.h"
#include "endpoint.h"
#include "references.h"

namespace host::testing {
namespace {

constexpr char kName[] = "siege/victim";

std::atomic<int> g_posted{0};
Counter g_unblocked;
std::atomic<bool> g_met{false};

binder_status_t Behave(int code, const Letter& in, Letter* out) {
    static auto* kept = new std::vector<ndk::SpAIBinder>;
    static auto* mutex = new std::mutex;
    switch (code) {
        case kEcho:
            out->value = in.value;
            return STATUS_OK;
        case kBig:
            out->numbers.resize(static_cast<size_t>(in.value));
            return STATUS_OK;
        case kCallBack:
            out->value = Call(in.binder, kEcho);
            return STATUS_OK;
        case kKeep: {
            std::lock_guard lock(*mutex);
            kept->push_back(in.binder);
            return STATUS_OK;
        }
        case kPosted:
            g_posted.fetch_add(1);
            return STATUS_OK;
        case kDumpIt: {
            UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
            out->value = AIBinder_dump(in.binder.get(), nowhere.get(), nullptr, 0);
            return STATUS_OK;
        }
        case kPostTo:
            out->value = Post(in.binder, kEcho);
            return STATUS_OK;
        case kBlock:
            return g_unblocked.WaitFor(1) ? STATUS_OK : STATUS_TIMED_OUT;
        case kMet:
            g_met.store(true);
            return STATUS_OK;
        case kDawdle:
            poll(nullptr, 0, 1);
            return STATUS_OK;
        case kFlood:
            out->value = CallWithObjects(in.binder, static_cast<size_t>(in.value));
            return STATUS_OK;
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

std::string CpuMs() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return std::to_string(used.tv_sec * 1000 + used.tv_nsec / 1'000'000);
}

std::string Obey(const std::string& line, const RefId& id) {
    std::istringstream words(line);
    std::string verb;
    int number = 0;
    words >> verb >> number;
    if (verb == "id") return WordsOf(id);
    if (verb == "posted") return std::to_string(g_posted.load());
    if (verb == "unblock") g_unblocked.Add();
    if (verb == "met") return g_met.load() ? "yes" : "no";
    if (verb == "cpu") return CpuMs();
    if (verb == "exports") return std::to_string(ExportTable::Get().size());
    if (verb == "mark") __android_log_print(ANDROID_LOG_INFO, "siege", "mark %d.", number);
    return "done";
}

HOST_HELPER(SiegeVictim) {
    if (channel.arguments().size() == 1) {
        const auto most = static_cast<rlim_t>(std::stoi(channel.arguments()[0]));
        const rlimit limit{most, most};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder object = MakeObject(Behave);
    RefId id;
    if (!ExportTable::Get().HandOver(AsLocal(object.get()), &id)) return 1;
    if (AServiceManager_addService(object.get(), kName) != EX_NONE) return 1;
    channel.Serve([&id](const std::string& line) { return Obey(line, id); });
    return 0;
}

// Calls without a pause; counts what succeeded and what did not.
HOST_HELPER(SiegeClient) {
    const ndk::SpAIBinder victim(AServiceManager_waitForService(kName));
    std::atomic<int> made{0}, failed{0};
    std::atomic<bool> done{false};
    std::thread calls([&] {
        for (int i = 0; !done.load(); ++i) {
            Letter in, out;
            in.value = i;
            const bool good = Call(victim, kEcho, in, &out) == STATUS_OK && out.value == i &&
                              Post(victim, i == 0 ? kMet : kEcho, in) == STATUS_OK;
            (good ? made : failed).fetch_add(1);
            if (!good) poll(nullptr, 0, 10);
        }
    });
    channel.Serve([&](const std::string&) {
        return std::to_string(made.load()) + " " + std::to_string(failed.load());
    });
    done.store(true);
    calls.join();
    return 0;
}

// Keeps what it is given. Its commands: "id", its process's and its object's name; else the name of
// a service that it looks up and calls: the status.
HOST_HELPER(Bystander) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder object = MakeObject(Behave);
    RefId id;
    if (!ExportTable::Get().HandOver(AsLocal(object.get()), &id)) return 1;
    const std::string& name = channel.arguments()[0];
    if (AServiceManager_addService(object.get(), name.c_str()) != EX_NONE) return 1;
    channel.Serve([&id](const std::string& command) {
        if (command == "id") return Endpoint::Get().name() + " " + WordsOf(id);
        const ndk::SpAIBinder service(AServiceManager_waitForService(command.c_str()));
        return std::to_string(Call(service, kEcho));
    });
    return 0;
}

struct Report {
    int made = 0;
    int failed = 0;
};

Report Ask(Helper* client) {
    std::istringstream answer(client->Command("report"));
    Report report;
    answer >> report.made >> report.failed;
    return report;
}

}  // namespace

RawCall Handing(const RefId& target, VictimCode code, int32_t value, const RefId& object) {
    return {target, code, LetterData(value, true), ObjectEntry(object), 1};
}

std::optional<int32_t> TakeObjects(RawConnection* connection, const RefId& target, size_t objects) {
    connection->Send(Handing(target, kFlood, static_cast<int32_t>(objects)).Frame());
    for (auto frame = connection->Receive(); frame; frame = connection->Receive()) {
        if (frame->type == FrameType::kReply) {
            int32_t status = -1;
            memcpy(&status, frame->body.data() + sizeof(ReplyBody), sizeof(status));
            return status;
        }
        connection->Send(RawReply(STATUS_OK, LetterData(0).substr(16)));
    }
    return std::nullopt;
}

binder_status_t CallWithObjects(const ndk::SpAIBinder& target, size_t objects, size_t numbers) {
    // The first call tells what the object is.
    const binder_status_t known = Call(target, kEcho);
    if (known != STATUS_OK) return known;
    AParcel* in = nullptr;
    binder_status_t status = AIBinder_prepareTransaction(target.get(), &in);
    ndk::ScopedAParcel question(in), answer;
    const std::vector<int32_t> filling(numbers);
    if (status == STATUS_OK) status = AParcel_writeInt32(in, 0);
    if (status == STATUS_OK) status = AParcel_writeStrongBinder(in, nullptr);
    if (status == STATUS_OK) status = ndk::AParcel_writeVector(in, filling);
    for (size_t i = 0; i < objects && status == STATUS_OK; ++i)
        status = AParcel_writeStrongBinder(in, MakeObject(Behave).get());
    if (status != STATUS_OK) return status;
    in = question.release();
    return AIBinder_transact(target.get(), kEcho, &in, answer.getR(), 0);
}

Bystander::Bystander(const std::string& name) : process("Bystander", {name}) {
    const std::string words = process.Command("id");
    const size_t end = words.find(' ');
    object = {NameFrom(words.substr(end)), words.substr(0, end)};
}

Siege::Siege(const std::vector<std::string>& victim_descriptors)
        : host_({.echo_log = false}),
          victim_("SiegeVictim", victim_descriptors, {.echo_log = false}),
          client_("SiegeClient") {
    target_ = NameFrom(victim_.Command("id"));
    EXPECT_TRUE(Eventually([this] { return Ask(&client_).made > 100; }));
    // Every connection of the client has been taken in: from here on the counts stand still.
    EXPECT_TRUE(Eventually([this] { return victim_.Command("met") == "yes"; }));
    before_ = ProcessCounts::Of(victim_.pid());
}

Siege::~Siege() {
    if (!HasFailure()) return;
    for (const std::string& line : victim_.log().lines())
        fprintf(stderr, "%s\n", line.c_str());
}

RawPeer Siege::NewPeer() {
    RawPeer peer(host_.path(), victim_.pid());
    EXPECT_TRUE(peer.Begin());
    return peer;
}

void Siege::ExpectNoSpinning(const std::function<void()>& body) {
    EXPECT_TRUE(client_.process().Stop());
    const int64_t cpu = std::stoll(victim_.Command("cpu"));
    const auto start = std::chrono::steady_clock::now();
    body();
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    EXPECT_LE(std::stoll(victim_.Command("cpu")) - cpu, took.count() + 50);
    EXPECT_TRUE(client_.process().Continue());
}

int Siege::Warnings() {
    return victim_.log().Count("pid " + std::to_string(getpid()) + " uid " +
                               std::to_string(getuid()));
}

void Siege::ExpectServing(int warnings, int at_most_more) {
    EXPECT_TRUE(Eventually([&] { return Warnings() >= warnings; }));
    const Report earlier = Ask(&client_);
    EXPECT_TRUE(Eventually([&] { return Ask(&client_).made > earlier.made + 20; }));
    EXPECT_EQ(Ask(&client_).failed, 0);
    // Whatever was logged before the mark has been read once the mark has.
    victim_.Command("mark " + std::to_string(++marks_));
    EXPECT_TRUE(victim_.log().WaitForLine("mark " + std::to_string(marks_) + "."));
    EXPECT_GE(Warnings(), warnings);
    EXPECT_LE(Warnings(), warnings + at_most_more);
}

void Siege::ExpectUnhurt(int warnings) {
    ExpectServing(warnings);
    // A pool that has grown stays: its threads have a bound of their own.
    EXPECT_TRUE(Eventually([&] { return OpenDescriptors(victim_.pid()) <= before_.descriptors; }))
            << OpenDescriptors(victim_.pid()) << " descriptors, before " << before_.descriptors;
    EXPECT_LE(Threads(victim_.pid()), 20);
}

}  // namespace host::testing
