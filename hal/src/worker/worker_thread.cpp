#include "worker_thread.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace aidl::android::hardware::biometrics {

namespace {

using Clock = std::chrono::steady_clock;

// When tasks follow one another this closely, the thread stays awake for the next one, so that no
// caller pays for a wake-up that comes too late anyway.
constexpr Clock::duration kDenseGap = std::chrono::microseconds(100);
constexpr Clock::duration kLookOut = std::chrono::microseconds(50);

// A thread that gave way for so long met one that does not give way in turn. It would be back at
// once from a wait, and so waits for some time to come: this costs 4 % at most.
constexpr Clock::duration kTooLong = std::chrono::milliseconds(1);
constexpr int kRest = 24;

// So that a queue of a sensible bound never grows while callers wait.
constexpr size_t kMostRoom = 128;

std::vector<std::unique_ptr<Callable>> WithRoomFor(size_t tasks) {
    std::vector<std::unique_ptr<Callable>> room;
    room.reserve(std::min(tasks, kMostRoom));
    return room;
}

}  // namespace

WorkerThread::WorkerThread(size_t maxQueueSize)
        : max_queue_size_(maxQueueSize),
          queue_(WithRoomFor(maxQueueSize)),
          taken_(WithRoomFor(maxQueueSize)),
          thread_(&WorkerThread::threadFunc, this) {}

WorkerThread::~WorkerThread() {
    {
        std::lock_guard lock(queue_mutex_);
        destructing_ = true;
    }
    queue_cv_.notify_all();
    thread_.join();
    // One by one: a vector's own destructor promises no order, and a task's may still call
    // schedule, which refuses.
    for (auto* tasks : {&taken_, &queue_}) {
        for (std::unique_ptr<Callable>& task : *tasks)
            task.reset();
    }
}

bool WorkerThread::schedule(std::unique_ptr<Callable> task) {
    if (destructing_) return false;
    {
        std::lock_guard lock(queue_mutex_);
        if (queue_.size() + taken_count_.load(std::memory_order_relaxed) >= max_queue_size_)
            return false;
        queue_.push_back(std::move(task));
    }
    // With the mutex free again: the thread that looks out comes for it at once.
    has_tasks_.store(true, std::memory_order_relaxed);
    queue_cv_.notify_one();
    return true;
}

void WorkerThread::threadFunc() {
    while (!destructing_) {
        const std::unique_ptr<Callable> task = waitForTask();
        if (task == nullptr) return;
        (*task)();
    }
}

std::unique_ptr<Callable> WorkerThread::waitForTask() {
    if (taken_count_.load(std::memory_order_relaxed) == 0) takeTasks();
    if (destructing_) return nullptr;  // what was taken waits for the destructor
    // Counts down, so that the oldest comes first.
    const size_t left = taken_count_.load(std::memory_order_relaxed);
    taken_count_.store(left - 1, std::memory_order_relaxed);
    return std::move(taken_[taken_.size() - left]);
}

void WorkerThread::takeTasks() {
    std::unique_lock lock(queue_mutex_, std::defer_lock);
    for (;;) {
        const bool announced = lookOutForTask();
        lock.lock();
        has_tasks_.store(false, std::memory_order_relaxed);
        if (!queue_.empty() || destructing_ || !announced) break;
        // Announced late: it has been taken already.
        lock.unlock();
    }
    if (queue_.empty() && !destructing_) {
        const auto begin = Clock::now();
        queue_cv_.wait(lock, [this] { return !queue_.empty() || destructing_; });
        tasks_are_dense_ = Clock::now() - begin < kDenseGap;
    }
    taken_.clear();
    taken_.swap(queue_);
    taken_count_.store(taken_.size(), std::memory_order_relaxed);
}

bool WorkerThread::lookOutForTask() {
    if (!tasks_are_dense_) return false;
    if (has_tasks_.load(std::memory_order_relaxed)) return true;
    const auto begin = Clock::now();
    if (begin < look_again_at_) return false;
    Clock::duration spent{};
    do {
        std::this_thread::yield();
        spent = Clock::now() - begin;
    } while (!has_tasks_.load(std::memory_order_relaxed) && !destructing_ && spent < kLookOut);
    if (spent > kTooLong) look_again_at_ = begin + kRest * spent;
    return has_tasks_.load(std::memory_order_relaxed);
}

}  // namespace aidl::android::hardware::biometrics
