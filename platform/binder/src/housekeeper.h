// The one thread that listens, takes in new connections and reads control connections. It runs no
// code of the layer's users and waits for no peer. Never destroyed. Any thread may call everything
// here; nothing blocks.
#pragma once

#include <android-base/thread_annotations.h>
#include <pthread.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "fd.h"

namespace host {

// Something that the housekeeper watches.
class Watched {
  public:
    virtual ~Watched() = default;
    // On the housekeeper's thread.
    virtual void OnEvents(uint32_t events) = 0;
};

class Housekeeper {
  public:
    using Job = std::function<void()>;
    using Clock = std::chrono::steady_clock;

    static Housekeeper& Get();

    // Starts the thread, once. False with errno if it or its descriptors cannot be had.
    bool Start() EXCLUDES(mutex_);

    // Level-triggered. 0 on failure, else a key.
    uint64_t Watch(int fd, uint32_t events, std::shared_ptr<Watched> watched) EXCLUDES(mutex_);
    void Change(int fd, uint64_t key, uint32_t events);
    void Forget(int fd, uint64_t key) EXCLUDES(mutex_);

    void RunSoon(Job job) EXCLUDES(mutex_);
    void RunLater(int delay_ms, Job job) EXCLUDES(mutex_);

  private:
    Housekeeper() = default;

    void Loop() EXCLUDES(mutex_);
    void RunJobs() EXCLUDES(mutex_);
    int WaitMs() EXCLUDES(mutex_);
    void Nudge();

    UniqueFd epoll_;
    UniqueFd nudge_;

    std::mutex mutex_;
    std::optional<pthread_t> thread_ GUARDED_BY(mutex_);
    uint64_t next_key_ GUARDED_BY(mutex_) = 1;
    std::unordered_map<uint64_t, std::shared_ptr<Watched>> watched_ GUARDED_BY(mutex_);
    std::vector<Job> jobs_ GUARDED_BY(mutex_);
    std::multimap<Clock::time_point, Job> later_ GUARDED_BY(mutex_);
};

}  // namespace host
