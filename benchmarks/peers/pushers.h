// Threads of a producer process that push what another thread hands them.
//
// One thread calls Add and Drain; the destructor is never run in a benchmark that ends by _exit.

#pragma once

#include <android-base/thread_annotations.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace peers {

class Pushers {
  public:
    using Event = std::vector<char>;
    // Sends one event and waits for its acknowledgement. One made per thread.
    using Send = std::function<void(const Event& event)>;

    // Starts `count` threads, each with a Send from `make_send`, called on the constructing thread.
    Pushers(size_t count, const std::function<Send()>& make_send);
    // Pushes what was added, then joins.
    ~Pushers();

    // Hands the event over. Never waits: whoever adds bounds what is under way.
    void Add(const void* data, size_t size);
    // Returns when all that was added has been acknowledged.
    void Drain();

  private:
    // False, and nothing taken, when there will be no more.
    bool Take(Event* event);
    void Settle();

    std::mutex mutex_;
    std::condition_variable added_;
    std::condition_variable drained_;
    std::deque<Event> events_ GUARDED_BY(mutex_);
    size_t under_way_ GUARDED_BY(mutex_) = 0;  // taken and not acknowledged
    bool ending_ GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_;  // last: they use the others
};

}  // namespace peers
