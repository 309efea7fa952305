// What the benchmarks share: the process at the other end, bare or with the layer, and medians of
// interleaved rounds with their ratios. Everything runs on the main thread of its process;
// processes are forked before anything else happens, so that nothing of the layer exists in two of
// them.
#pragma once

#include <aidl/velmora/benchmark/BnPayload.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "launcher.h"

namespace bench {

using aidl::velmora::benchmark::BnPayload;
using aidl::velmora::benchmark::IPayload;
using Payload = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

inline constexpr size_t kSmall = 64;
inline constexpr size_t kLarge = 1024;

// What all processes of a benchmark see.
struct Shared {
    std::atomic<uint64_t> handled;  // messages that the other end has taken in
    std::atomic<uint64_t> calls;    // system calls that it has made, where they are counted
};

// Aborts: a benchmark that has lost its footing has nothing to report.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "benchmark: %s failed\n", what);
    abort();
}

// The memory behind `file`, zero at first; with -1 shared with forked children only.
template <typename T = Shared>
T* MapShared(int file = -1) {
    int flags = MAP_SHARED | (file < 0 ? MAP_ANONYMOUS : 0);
    void* memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, flags, file, 0);
    Require(memory != MAP_FAILED, "mmap");
    return static_cast<T*>(memory);
}

// Memory for MapShared that started programs inherit.
inline int MakeSharedFile(size_t size) {
    int file = memfd_create("bench", 0);
    Require(file >= 0 && ftruncate(file, static_cast<off_t>(size)) == 0, "memfd_create");
    return file;
}

// Busy: giving up the processor would be part of what is measured.
inline void WaitHandled(const Shared& shared, uint64_t count) {
    while (shared.handled.load(std::memory_order_acquire) < count) {
    }
}

inline void SpinFor(std::chrono::nanoseconds time) {
    for (auto end = Clock::now() + time; Clock::now() < end;) {
    }
}

inline double Nanoseconds(Clock::duration time) {
    return std::chrono::duration<double, std::nano>(time).count();
}

// The sample that the fraction `rank` of the others does not exceed. Reorders the samples.
inline double Quantile(std::vector<double>* samples, double rank) {
    const double place = rank * static_cast<double>(samples->size());
    const auto at = samples->begin() + static_cast<std::ptrdiff_t>(place);
    std::nth_element(samples->begin(), at, samples->end());
    return *at;
}

// This process, and all that it starts from now on, share one processor. Whether the system puts
// two that talk on one or on two, where each wake-up of an idle one costs several times the call,
// is decided anew from run to run and would decide a ratio. On one it is steady, and as large as it
// gets: nothing else is left to hide the cost of a call.
inline void StayOnOneProcessor() {
    cpu_set_t allowed, one;
    Require(sched_getaffinity(0, sizeof(allowed), &allowed) == 0, "sched_getaffinity");
    CPU_ZERO(&one);
    for (int cpu = 0; CPU_COUNT(&one) == 0; ++cpu)
        if (CPU_ISSET(cpu, &allowed)) CPU_SET(cpu, &one);
    Require(sched_setaffinity(0, sizeof(one), &one) == 0, "sched_setaffinity");
}

// A process that runs `body` and is killed with this object.
class Process {
  public:
    template <typename Body>
    explicit Process(Body body) : pid_(fork()) {
        Require(pid_ >= 0, "fork");
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    ~Process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

  private:
    const pid_t pid_;
};

// A connected pair; `body` runs on the far end in a process of its own.
class BarePeer {
  public:
    template <typename Body>
    explicit BarePeer(Body body) {
        int ends[2];
        Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
        process_ = std::make_unique<Process>([&] { body(ends[1]); });
        close(ends[1]);
        fd_ = ends[0];
    }
    ~BarePeer() { close(fd_); }

    int fd() const { return fd_; }

  private:
    std::unique_ptr<Process> process_;
    int fd_;
};

inline void SendAll(int fd, const uint8_t* data, size_t size) {
    for (size_t sent = 0; sent < size;) {
        ssize_t now = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
        Require(now > 0, "send");
        sent += static_cast<size_t>(now);
    }
}

// False at the end of the stream.
inline bool ReceiveAll(int fd, uint8_t* data, size_t size) {
    for (size_t got = 0; got < size;) {
        ssize_t now = recv(fd, data + got, size - got, 0);
        if (now <= 0) return false;
        got += static_cast<size_t>(now);
    }
    return true;
}

class PayloadService : public BnPayload {
  public:
    explicit PayloadService(Shared* shared) : shared_(shared) {}

    ndk::ScopedAStatus echo(const Payload& data, Payload* answer) override {
        *answer = data;
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus take(const Payload&) override {
        shared_->handled.fetch_add(1, std::memory_order_release);
        return ndk::ScopedAStatus::ok();
    }

  private:
    Shared* const shared_;
};

inline constexpr char kServiceRole[] = "--payload-service";

// In the process that is to be the service: what it shares with its driver. Null in the driver.
inline Shared* SharedOfService(int argc, char** argv) {
    if (argc != 3 || std::string(argv[1]) != kServiceRole) return nullptr;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    return MapShared(atoi(argv[2]));
}

// Serves until it is killed.
inline int Serve(Shared* shared) {
    auto service = ndk::SharedRefBase::make<PayloadService>(shared);
    binder_exception_t added = AServiceManager_addService(service->asBinder().get(), "payload");
    Require(added == EX_NONE, "addService");
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    return 0;
}

// A service manager and a PayloadService, each a process of its own, in a folder of their own. The
// service is this program started anew: the layer does not work in a child that was only forked.
class HostedPayload {
  public:
    HostedPayload() {
        char folder[] = "/tmp/velmora-bench-XXXXXX";
        Require(mkdtemp(folder) != nullptr, "mkdtemp");
        folder_ = folder;
        setenv("BINDER_HOST_DIR", folder, 1);
        int memory = MakeSharedFile(sizeof(Shared));
        shared_ = MapShared(memory);
        manager_ = std::make_unique<Process>([] {
            const char* const line[] = {BENCH_SERVICEMANAGER, nullptr};
            host::testing::BecomeProgram(line, environ);
        });
        service_ = std::make_unique<Process>([memory] {
            const std::string program = host::testing::OwnProgram();
            const std::string shared = std::to_string(memory);
            const char* const line[] = {program.c_str(), kServiceRole, shared.c_str(), nullptr};
            host::testing::BecomeProgram(line, environ);
        });
        close(memory);
    }
    ~HostedPayload() {
        service_.reset();
        manager_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    Shared* shared() const { return shared_; }

    // Once all processes have been forked.
    std::shared_ptr<IPayload> Find() const {
        auto found =
                IPayload::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService("payload")));
        Require(found != nullptr, "waitForService");
        return found;
    }

  private:
    std::string folder_;
    Shared* shared_ = nullptr;
    std::unique_ptr<Process> manager_;
    std::unique_ptr<Process> service_;
};

// `name` is the median of `ours` divided by the median of `bare`; a limit of 0 is none.
struct Comparison {
    std::string name;
    std::string ours;
    std::string bare;
    double limit = 0;
};

// One line per figure, for scripts/bench.
inline void PrintRatio(const std::string& name, double ratio, double limit) {
    std::printf("ratio %s %.3f %.2f\n", name.c_str(), ratio, limit);
}

// Prints one line per benchmark and keeps its median.
class Medians : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        double spread = 0;
        for (const Run& run : runs) {
            Require(!run.error_occurred, run.error_message.c_str());
            if (run.aggregate_name == "cv") spread = run.real_accumulated_time;
            if (run.aggregate_name == "median")
                of_[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
        const std::string& name = runs.front().run_name.function_name;
        std::printf("%-32s %10.0f ns   +-%3.0f %%\n", name.c_str(), of_[name], 100 * spread);
        std::fflush(stdout);
    }
    // 0 for what was not run.
    double Of(const std::string& name) const {
        auto found = of_.find(name);
        return found == of_.end() ? 0 : found->second;
    }

  private:
    std::map<std::string, double> of_;
};

// Whether the program was started only to see that it runs, with --short as its first argument.
inline bool IsShort(int argc, char** argv) {
    return argc > 1 && std::string(argv[1]) == "--short";
}

// Runs what was registered, in rounds in random order, and prints the ratios. --short: two rounds.
inline void RunAndCompare(int argc, char** argv, const std::vector<Comparison>& comparisons,
                          int rounds = 25) {
    const bool is_short = IsShort(argc, argv);
    std::vector<std::string> given = {
            argv[0], "--benchmark_repetitions=" + std::to_string(is_short ? 2 : rounds),
            is_short ? "--benchmark_min_time=0.001" : "--benchmark_min_time=0.1",
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_display_aggregates_only=true"};
    given.insert(given.end(), argv + (is_short ? 2 : 1), argv + argc);
    std::vector<char*> arguments;
    for (std::string& argument : given)
        arguments.push_back(argument.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) exit(2);
    Medians medians;
    benchmark::RunSpecifiedBenchmarks(&medians);
    for (const Comparison& one : comparisons) {
        double ours = medians.Of(one.ours);
        double bare = medians.Of(one.bare);
        if (ours != 0 && bare != 0) PrintRatio(one.name, ours / bare, one.limit);
    }
}

}  // namespace bench
