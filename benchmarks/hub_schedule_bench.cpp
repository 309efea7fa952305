// What handing a task to the worker costs the caller, against pushing a plain pointer to a deque of
// the same shape: alone, with the thread asleep each time, and in rows that the queue takes whole.

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "bench_support.h"
#include "sending.h"
#include "worker/callable.h"
#include "worker/worker_thread.h"

namespace {

using aidl::android::hardware::biometrics::Callable;
using aidl::android::hardware::biometrics::WorkerThread;
using bench::Require;
using bench::Shared;

constexpr int kBound = 100;

void Count(Shared* shared) {
    shared->handled.fetch_add(1, std::memory_order_release);
}

// The floor: a thread, a lock, a condition and a deque, without tasks in it. A null ends it.
class BareQueue {
  public:
    BareQueue() : thread_([this] { Run(); }) {}
    ~BareQueue() {
        Push(nullptr);
        thread_.join();
    }

    void Push(Shared* shared) {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(shared);
        }
        pushed_.notify_one();
    }

  private:
    Shared* Pop() {
        std::unique_lock lock(mutex_);
        pushed_.wait(lock, [this] { return !queue_.empty(); });
        Shared* front = queue_.front();
        queue_.pop_front();
        return front;
    }
    void Run() {
        while (Shared* shared = Pop())
            Count(shared);
    }

    std::mutex mutex_;
    std::condition_variable pushed_;
    std::deque<Shared*> queue_;
    std::thread thread_;  // last: uses the members above
};

}  // namespace

int main(int argc, char** argv) {
    Shared worker_shared{};
    Shared bare_shared{};
    WorkerThread worker(kBound);
    BareQueue bare;
    bench::RegisterSending("schedule", "_worker", &worker_shared, kBound, [&] {
        Require(worker.schedule(Callable::wrap([&] { Count(&worker_shared); })), "schedule");
    });
    bench::RegisterSending("schedule", "_bare", &bare_shared, kBound,
                           [&] { bare.Push(&bare_shared); });
    bench::RunAndCompare(argc, argv,
                         {{"schedule_lone", "schedule_lone_worker", "schedule_lone_bare"},
                          {"schedule_row", "schedule_row_worker", "schedule_row_bare"}});
    return 0;
}
