#include "loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

namespace velmoractl {

namespace {

constexpr size_t kMaxTasks = 256;

// For poll: rounded up, so that it does not wake up just before the time; -1 without one.
int MillisecondsUntil(std::optional<Loop::Clock::time_point> until) {
    if (!until) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Loop::Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

Loop::Loop() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Loop::~Loop() {
    close(wake_);
}

void Loop::Post(Task task) {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [this] { return tasks_.size() < kMaxTasks || status_; });
    if (status_) return;
    tasks_.push_back(std::move(task));
    eventfd_write(wake_, 1);
}

void Loop::Stop(int status) {
    std::lock_guard lock(mutex_);
    if (!status_) status_ = status;
    room_.notify_all();
    eventfd_write(wake_, 1);
}

std::optional<int> Loop::status() const {
    std::lock_guard lock(mutex_);
    return status_;
}

Loop::Wake Loop::Next(int input, std::optional<Clock::time_point> until) {
    for (;;) {
        const bool ran = RunTasks();
        if (stopped()) return Wake::kStopped;
        if (ran) return Wake::kTasks;
        pollfd polled[] = {{wake_, POLLIN, 0}, {input, POLLIN, 0}};
        poll(polled, 2, MillisecondsUntil(until));
        if (polled[0].revents != 0) continue;
        if (polled[1].revents != 0) return Wake::kInput;
        if (until && Clock::now() >= *until) return Wake::kTime;
    }
}

bool Loop::RunTasks() {
    eventfd_t count;
    eventfd_read(wake_, &count);
    std::deque<Task> tasks;
    {
        std::lock_guard lock(mutex_);
        tasks.swap(tasks_);
        room_.notify_all();
    }
    for (const Task& task : tasks) {
        if (stopped()) break;
        task();
    }
    return !tasks.empty();
}

}  // namespace velmoractl
