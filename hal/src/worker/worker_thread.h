// One thread that runs tasks one at a time, in the order in which they were accepted, out of a
// queue with a bound.
//
// Threads: any thread may call schedule, one that runs a task of this worker included. The owner
// destroys the worker from any other thread than the worker's own, when nobody will call it again.

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "callable.h"

namespace aidl::android::hardware::biometrics {

class WorkerThread {
  public:
    // Starts the thread. At most `maxQueueSize` tasks wait at a time; the one that runs does not
    // count. A thread that cannot be started ends the process: it is built without exceptions.
    explicit WorkerThread(size_t maxQueueSize);

    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // Waits until the task that is running has ended and the thread is joined. Then destroys the
    // tasks that still wait, oldest first, on the calling thread; none of them runs.
    virtual ~WorkerThread();

    // Queues the task (not null): true. False, and without a log line, if the queue is full or the
    // destructor has begun: the task is destroyed on the calling thread, without having run, as the
    // call returns. Never waits for a task. May be called with locks held, unless a refused task
    // releases something that wants one of them.
    virtual bool schedule(std::unique_ptr<Callable> task);

  private:
    void threadFunc();

    // The oldest task, once there is one; null when the destructor has begun.
    std::unique_ptr<Callable> waitForTask();

    // Takes all tasks that wait, once there are any; none when the destructor has begun.
    void takeTasks();

    // While tasks are dense: stays awake, giving way to other threads, until one is announced, but
    // not for long. True if one was, which may have been taken already.
    bool lookOutForTask();

    const size_t max_queue_size_;

    // Read anywhere; written under queue_mutex_, so that the thread cannot miss it between its look
    // at the flag and its wait.
    std::atomic<bool> destructing_{false};

    // A task has been queued since the thread looked last. A hint.
    std::atomic<bool> has_tasks_{false};

    // Of the thread: the last wait was a short one; when it may look out again.
    bool tasks_are_dense_ = false;
    std::chrono::steady_clock::time_point look_again_at_{};

    // Guarded by queue_mutex_.
    std::vector<std::unique_ptr<Callable>> queue_;

    // Of the thread: taken out of the queue together, so that it seldom meets schedule at the
    // mutex. The last `taken_count_` of them still wait, and count. The two vectors change places
    // and keep their storage.
    std::vector<std::unique_ptr<Callable>> taken_;
    std::atomic<size_t> taken_count_{0};

    // Held to push, to take and to set the flag; never while a task runs or is destroyed.
    std::mutex queue_mutex_;
    std::condition_variable queue_cv_;

    // Last: the thread uses everything above from its first moment.
    std::thread thread_;
};

}  // namespace aidl::android::hardware::biometrics
