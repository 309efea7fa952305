#include "pool.h"

#include <android-base/logging.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "housekeeper.h"
#include "sys.h"
#include "warning.h"

namespace host {
namespace {

constexpr uint64_t kNudgeKey = 0;

// Half of the threads at most wait for one peer each.
constexpr int kMaxLingering = kDefaultPoolThreads / 2;

constexpr int kHeaps = 4;

constexpr int kStartAgainMs = 50;

// Tasks that a thread runs before it looks whether a connection is ready: what goes on by posting
// another task must not keep connections waiting.
constexpr int kTasksInARow = 4;

std::atomic<bool> g_exiting{false};

void NoteExit() {
    g_exiting.store(true);
}

// exit() destroys what is local to its thread before anything static, also before what became
// static after the pool. A process whose first thread ends is taken to exit: main returns, or calls
// exit.
class ExitWatch {
  public:
    ~ExitWatch() {
        if (armed_) NoteExit();
    }
    void ArmOnFirstThread() { armed_ = gettid() == getpid(); }

  private:
    bool armed_ = false;
};

void WatchForExit() {
    thread_local ExitWatch watch;
    watch.ArmOnFirstThread();
}

}  // namespace

Pool& Pool::Get() {
    static Pool* pool = new Pool;  // never destroyed: its threads serve until the process is gone
    return *pool;
}

Pool::Pool()
        : epoll_(sys::EpollCreate1(EPOLL_CLOEXEC)),
          nudge_(sys::EventFd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    // Each thread that serves would get a heap of its own, and each keeps what its busiest moment
    // took. Small objects come from a thread's own store in any case.
    mallopt(M_ARENA_MAX, kHeaps);
    // A process that cannot even wait for its peers cannot serve anybody.
    CHECK(epoll_.ok() && nudge_.ok());
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    event.data.u64 = kNudgeKey;
    CHECK(epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, nudge_.get(), &event) == 0);
    std::atexit(NoteExit);
    WatchForExit();
}

Pool::Linger::Linger() {
    Pool& pool = Pool::Get();
    if (pool.idle_.load() == 0 || pool.ended_.load()) return;
    granted_ = pool.lingering_.fetch_add(1) < kMaxLingering;
    if (!granted_) pool.lingering_.fetch_sub(1);
}

Pool::Linger::~Linger() {
    if (granted_) Pool::Get().lingering_.fetch_sub(1);
}

void Pool::StayIfExiting() {
    if (!g_exiting.load(std::memory_order_relaxed)) [[likely]]
        return;
    static std::mutex* mutex = new std::mutex;
    static std::condition_variable* never = new std::condition_variable;
    std::unique_lock lock(*mutex);
    for (;;)
        never->wait(lock);
}

void Pool::Start() {
    WatchForExit();
    if (!started_.exchange(true)) SpawnIfNoneIdle();
}

void Pool::Join() {
    started_.store(true);
    Loop(/*joined=*/true);
    // Registered last, so that it runs before the destructors of whatever main leaves behind.
    std::atexit(NoteExit);
}

void Pool::End() {
    ended_.store(true);
    Nudge();
}

void Pool::Nudge() {
    uint64_t one = 1;
    // Only an edge is needed: a full counter is one, too.
    [[maybe_unused]] ssize_t written = write(nudge_.get(), &one, sizeof(one));
}

void Pool::Post(Task task) {
    int error = 0;
    bool served = true;
    bool newly_short = false;
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        queued_.store(tasks_.size());
        served = started_.load() && !ended_.load();
        if (!served) {
            error = TryTaskThread();
            newly_short = IsNewlyShort(error);
            task_posted_.notify_one();
        }
    }
    if (newly_short) TryAgainLater(error);
    if (!served) return;
    if (idle_.load() > 0) {
        Nudge();
    } else {
        SpawnIfNoneIdle();
    }
}

bool Pool::RunTask() {
    if (queued_.load() == 0) return false;
    Task task;
    {
        std::lock_guard lock(mutex_);
        if (tasks_.empty()) return false;
        task = std::move(tasks_.front());
        tasks_.pop_front();
        queued_.store(tasks_.size());
    }
    if (queued_.load() > 0 && idle_.load() > 0) Nudge();
    SpawnIfNoneIdle();
    StayIfExiting();
    task();
    return true;
}

// Exempt: waits on a condition variable.
void Pool::TaskLoop() NO_THREAD_SAFETY_ANALYSIS {
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex_);
            while (tasks_.empty())
                task_posted_.wait(lock);
            task = std::move(tasks_.front());
            tasks_.pop_front();
            queued_.store(tasks_.size());
        }
        StayIfExiting();
        task();
    }
}

void Pool::SpawnIfNoneIdle() {
    if (idle_.load() > 0 || !started_.load()) return;
    int error = 0;
    {
        std::lock_guard lock(mutex_);
        error = TrySpawn();
        if (!IsNewlyShort(error)) return;
    }
    TryAgainLater(error);
}

int Pool::TrySpawn() {
    size_t limit = max_threads_.load() + (has_task_thread_ ? 1 : 0);
    if (ended_.load() || idle_.load() > 0 || threads_.size() >= limit) return 0;
    // Counted as idle at once, so that a burst of work does not start more than it needs.
    idle_.fetch_add(1);
    const int error = StartThread([](void* pool) -> void* {
        static_cast<Pool*>(pool)->idle_.fetch_sub(1);
        static_cast<Pool*>(pool)->Loop(/*joined=*/false);
        return nullptr;
    });
    if (error != 0) idle_.fetch_sub(1);
    return error;
}

int Pool::TryTaskThread() {
    if (has_task_thread_) return 0;
    const int error = StartThread([](void* pool) -> void* {
        static_cast<Pool*>(pool)->TaskLoop();
        return nullptr;
    });
    has_task_thread_ = error == 0;
    return error;
}

int Pool::StartThread(void* (*body)(void*)) {
    pthread_t thread;
    const int error = sys::PthreadCreate(&thread, body, this);
    if (error == 0) threads_.push_back(thread);
    return error;
}

bool Pool::IsNewlyShort(int error) {
    return error != 0 && !std::exchange(is_short_, true);
}

void Pool::TryAgainLater(int error) {
    Warn("A thread to serve cannot be started, and is tried again: %s.", strerror(error));
    Housekeeper::Get().RunLater(kStartAgainMs, [this] { TryAgain(); });
}

// Whatever is queued: who saw the thread counted that did not start has left its work to it.
void Pool::TryAgain() {
    {
        std::lock_guard lock(mutex_);
        int error = 0;
        if (started_.load() && !ended_.load())
            error = TrySpawn();
        else if (!tasks_.empty())
            error = TryTaskThread();
        is_short_ = error != 0;
        if (!is_short_) return;
    }
    Housekeeper::Get().RunLater(kStartAgainMs, [this] { TryAgain(); });
}

void Pool::Loop(bool joined) {
    while (!ended_.load()) {
        for (int i = 0; i < kTasksInARow && !ended_.load() && RunTask(); ++i) {
        }
        if (!ServeOnce()) break;
    }
    Nudge();  // the next one learns of the end
    if (joined) return;
    // Kept until the process is gone; tasks that are left are for the task thread.
    Post([] {});
    static std::mutex* mutex = new std::mutex;
    static std::condition_variable* never = new std::condition_variable;
    std::unique_lock lock(*mutex);
    for (;;)
        never->wait(lock);
}

bool Pool::ServeOnce() {
    epoll_event event{};
    idle_.fetch_add(1);
    int count = 0;
    // A task posted before this thread was seen as idle has nudged nobody.
    const int wait_ms = queued_.load() == 0 ? -1 : 0;
    if (!ended_.load()) count = sys::EpollWait(epoll_.get(), &event, 1, wait_ms);
    idle_.fetch_sub(1);
    if (ended_.load()) return false;
    if (count <= 0 || event.data.u64 == kNudgeKey) return true;
    std::shared_ptr<PoolSource> source = FindSource(event.data.u64);
    if (source == nullptr) return true;
    SpawnIfNoneIdle();
    StayIfExiting();
    source->OnReady(event.events);
    return true;
}

std::shared_ptr<PoolSource> Pool::FindSource(uint64_t key) {
    std::lock_guard lock(sources_mutex_);
    auto source = sources_.find(key);
    return source == sources_.end() ? nullptr : source->second;
}

bool Pool::Add(int fd, uint32_t events, std::shared_ptr<PoolSource> source,
               std::atomic<uint64_t>* key) {
    uint64_t number;
    {
        std::lock_guard lock(sources_mutex_);
        number = next_key_++;
        sources_[number] = std::move(source);
    }
    key->store(number);
    epoll_event event{};
    event.events = events;
    event.data.u64 = number;
    if (sys::EpollCtl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0) return true;
    key->store(0);
    std::lock_guard lock(sources_mutex_);
    sources_.erase(number);
    return false;
}

void Pool::Rearm(int fd, uint64_t key, uint32_t events) {
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.u64 = key;
    // Fails only for a connection that has been removed, which nobody waits for.
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event);
}

void Pool::Remove(int fd, uint64_t key) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    std::shared_ptr<PoolSource> last;  // dropped after unlocking: it may be the last reference
    std::lock_guard lock(sources_mutex_);
    auto source = sources_.find(key);
    if (source == sources_.end()) return;
    last = std::move(source->second);
    sources_.erase(source);
}

}  // namespace host
