#include "supervisor.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <thread>

namespace velmoractl {

namespace {

using Seconds = std::chrono::duration<double>;

// Long enough for the calls with which a verb takes its leave.
constexpr Seconds kGrace{0.5};
// From the verb's thread: it has ended.
constexpr int kEnded = SIGUSR1;

sigset_t BlockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, kEnded})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// The signal, or nothing when the time has passed. A process that was stopped and goes on goes on
// waiting.
std::optional<int> WaitForSignal(const sigset_t& signals, std::optional<Seconds> limit) {
    using Clock = std::chrono::steady_clock;
    int signal = 0;
    if (!limit) return sigwait(&signals, &signal) == 0 ? std::optional(signal) : std::nullopt;
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(*limit);
    do {
        const auto left = std::max(end - Clock::now(), Clock::duration::zero());
        const int64_t nanoseconds = std::chrono::nanoseconds(left).count();
        const timespec time{static_cast<time_t>(nanoseconds / 1'000'000'000),
                            static_cast<long>(nanoseconds % 1'000'000'000)};
        signal = sigtimedwait(&signals, nullptr, &time);
    } while (signal < 0 && errno == EINTR);
    return signal > 0 ? std::optional(signal) : std::nullopt;
}

}  // namespace

int Supervise(const Limits& limits, const Output& output, const Verb& verb) {
    const sigset_t signals = BlockSignals();
    const auto loop = std::make_shared<Loop>();
    const pthread_t supervisor = pthread_self();
    std::thread thread([&verb, loop, supervisor] {
        loop->Stop(verb(loop));
        pthread_kill(supervisor, kEnded);
    });
    std::optional<int> signal = WaitForSignal(signals, limits.timeout);
    if (signal != kEnded) {
        if (!signal) output.Talk("giving up: the time is over");
        loop->Stop(signal ? limits.interrupted_status : kTimeout);
        signal = WaitForSignal(signals, kGrace);
    }
    // No more than the hub notices by itself is left undone.
    if (signal != kEnded) std::_Exit(*loop->status());
    thread.join();
    return *loop->status();
}

}  // namespace velmoractl
