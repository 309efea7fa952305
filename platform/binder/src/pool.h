// The threads that serve: calls that arrive, oneway calls, releases and death notices. Threads are
// started on demand up to a bound and sleep in one wait for connections and tasks alike. While the
// system gives no thread, those that are there serve, and it is asked again. Never destroyed. Any
// thread may call everything here; nothing blocks except Join.
#pragma once

#include <android-base/thread_annotations.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "fd.h"
#include "limits.h"

namespace host {

// Something with a descriptor that a pool thread serves when it is ready.
class PoolSource {
  public:
    virtual ~PoolSource() = default;
    // On a pool thread. With one-shot registration no second thread comes before Rearm.
    virtual void OnReady(uint32_t events) = 0;
};

class Pool {
  public:
    using Task = std::function<void()>;

    static Pool& Get();

    void Start() EXCLUDES(mutex_);
    // Serves on the calling thread until End.
    void Join() EXCLUDES(mutex_);
    void SetMaxThreads(uint32_t count) { max_threads_.store(count); }
    bool IsStarted() const { return started_.load(); }
    // Whether some thread waits for work. A hint: who goes on by it asks again before long.
    bool HasIdleThread() const { return idle_.load(std::memory_order_relaxed) > 0; }
    // The threads that joined come back, the others take nothing new.
    void End() EXCLUDES(mutex_);

    // Runs `task` on a pool thread, after the tasks posted before it have begun. A process that
    // serves nothing gets one thread for its tasks.
    void Post(Task task) EXCLUDES(mutex_);

    // Registers a descriptor: one-shot (Rearm after each event) or edge-triggered. `*key` is there
    // before the first event, which may come before this returns; 0 and false on failure.
    bool Add(int fd, uint32_t events, std::shared_ptr<PoolSource> source,
             std::atomic<uint64_t>* key) EXCLUDES(sources_mutex_);
    void Rearm(int fd, uint64_t key, uint32_t events);
    void Remove(int fd, uint64_t key) EXCLUDES(sources_mutex_);

    // Granted to a thread that would rather wait for more of the same work than go back to the
    // pool, while another thread is left to take up what else comes. Bounded in number; the holder
    // waits some milliseconds at most, so the threads are soon back when all are needed.
    class Linger {
      public:
        Linger();
        ~Linger();
        Linger(const Linger&) = delete;
        Linger& operator=(const Linger&) = delete;

        bool granted() const { return granted_; }

      private:
        bool granted_ = false;
    };

    // From the start of process exit on, threads that come by here stay: no new call or notice
    // begins.
    static void StayIfExiting();

  private:
    Pool();

    void Loop(bool joined);
    // One wait and what it brought; false when the pool has ended.
    bool ServeOnce();
    bool RunTask() EXCLUDES(mutex_);
    void Nudge();
    void SpawnIfNoneIdle() EXCLUDES(mutex_);
    // These answer an error number: 0 also if no thread is to be started.
    int TrySpawn() REQUIRES(mutex_);
    int TryTaskThread() REQUIRES(mutex_);
    int StartThread(void* (*body)(void*)) REQUIRES(mutex_);
    // Whether a start has failed that is to be followed by TryAgainLater, unlocked.
    bool IsNewlyShort(int error) REQUIRES(mutex_);
    void TryAgainLater(int error);
    void TryAgain() EXCLUDES(mutex_);
    void TaskLoop() EXCLUDES(mutex_);
    std::shared_ptr<PoolSource> FindSource(uint64_t key) EXCLUDES(sources_mutex_);

    UniqueFd epoll_;
    UniqueFd nudge_;
    std::atomic<bool> started_{false};
    std::atomic<bool> ended_{false};
    std::atomic<uint32_t> max_threads_{kDefaultPoolThreads};
    std::atomic<int> idle_{0};
    std::atomic<int> lingering_{0};
    std::atomic<size_t> queued_{0};

    std::mutex mutex_;
    std::condition_variable task_posted_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
    std::vector<pthread_t> threads_ GUARDED_BY(mutex_);
    bool has_task_thread_ GUARDED_BY(mutex_) = false;
    bool is_short_ GUARDED_BY(mutex_) = false;  // of a thread, which is tried again

    std::mutex sources_mutex_;
    uint64_t next_key_ GUARDED_BY(sources_mutex_) = 1;
    std::unordered_map<uint64_t, std::shared_ptr<PoolSource>> sources_ GUARDED_BY(sources_mutex_);
};

}  // namespace host
