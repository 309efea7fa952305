// What a verb waits for, in one place: tasks from other threads, input, time, and the end.
//
// Threads: Post and Stop from any, the rest on the one thread that runs the verb.

#pragma once

#include <android-base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace velmoractl {

class Loop {
  public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;
    enum class Wake { kStopped, kTasks, kInput, kTime };

    Loop();
    ~Loop();
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    // Queues a task for Next. Waits while the queue is full: who prints slowly is sent slowly.
    // Dropped once stopped.
    void Post(Task task) EXCLUDES(mutex_);

    // Ends every Next, present and future; the status of the first call stays.
    void Stop(int status) EXCLUDES(mutex_);

    bool stopped() const { return status().has_value(); }

    // That of Stop; nothing before it.
    std::optional<int> status() const EXCLUDES(mutex_);

    // Returns when stopped, when tasks were there (they have run), when `input` can be read
    // without waiting or has ended, or at the time: in this order if several are true.
    Wake Next(int input = -1, std::optional<Clock::time_point> until = std::nullopt)
            EXCLUDES(mutex_);

  private:
    // Whether there was a task.
    bool RunTasks() EXCLUDES(mutex_);

    const int wake_;  // an eventfd: something was posted or stopped
    mutable std::mutex mutex_;
    std::condition_variable room_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
    std::optional<int> status_ GUARDED_BY(mutex_);
};

}  // namespace velmoractl
