#include "worker_thread.h"

#include <utility>

namespace aidl::android::hardware::biometrics {

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
    std::unique_lock lock(queue_mutex_);
    queue_cv_.wait(lock, [this] { return !queue_.empty() || destructing_; });
    if (destructing_) return nullptr;
    std::unique_ptr<Callable> task = std::move(queue_.front());
    queue_.pop_front();
    return task;
}

}  // namespace aidl::android::hardware::biometrics
