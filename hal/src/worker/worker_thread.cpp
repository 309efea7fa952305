#include "worker_thread.h"

#include <chrono>
#include <utility>

namespace aidl::android::hardware::biometrics {

namespace {

using Clock = std::chrono::steady_clock;

// When tasks follow one another this closely, the thread stays awake for the next one, so that no
// caller pays for a wake-up that comes too late anyway.
constexpr Clock::duration kDenseGap = std::chrono::microseconds(100);
constexpr Clock::duration kLookOut = std::chrono::microseconds(50);

}  // namespace

WorkerThread::WorkerThread(size_t maxQueueSize)
        : max_queue_size_(maxQueueSize), thread_(&WorkerThread::threadFunc, this) {}

WorkerThread::~WorkerThread() {
    {
        std::lock_guard lock(queue_mutex_);
        destructing_ = true;
    }
    queue_cv_.notify_all();
    thread_.join();
    // One by one: a deque's own destructor promises no order, and a task's may still call schedule,
    // which refuses.
    while (!queue_.empty())
        queue_.pop_front();
}

bool WorkerThread::schedule(std::unique_ptr<Callable> task) {
    if (destructing_) return false;
    {
        std::lock_guard lock(queue_mutex_);
        if (queue_.size() >= max_queue_size_) return false;
        queue_.push_back(std::move(task));
        has_tasks_.store(true, std::memory_order_relaxed);
    }
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
    lookOutForTask();
    std::unique_lock lock(queue_mutex_);
    if (queue_.empty() && !destructing_) {
        const auto begin = Clock::now();
        queue_cv_.wait(lock, [this] { return !queue_.empty() || destructing_; });
        tasks_are_dense_ = Clock::now() - begin < kDenseGap;
    }
    if (destructing_) return nullptr;
    std::unique_ptr<Callable> task = std::move(queue_.front());
    queue_.pop_front();
    has_tasks_.store(!queue_.empty(), std::memory_order_relaxed);
    return task;
}

void WorkerThread::lookOutForTask() {
    if (!tasks_are_dense_ || has_tasks_.load(std::memory_order_relaxed)) return;
    const auto end = Clock::now() + kLookOut;
    while (!has_tasks_.load(std::memory_order_relaxed) && !destructing_ && Clock::now() < end)
        std::this_thread::yield();
}

}  // namespace aidl::android::hardware::biometrics
